// The client renderer: how it asks the driver for a buffer, how it ends, fails and reports,
// and what exactly reaches the other end of a clean route.
#include "StreamingSupport.h"

#include "libAudio/AudioRenderer.h"
#include "platform/sim/MachineEvents.h"

#include <memory>
#include <thread>

namespace streaming {
namespace {

constexpr REFERENCE_TIME kSecond = 10000000;
const std::string kLog = "libAudio.AudioRendererEx";
const std::string kBadState =
    "Unable to initialize IAudioClient. System audio driver is in bad state";

std::vector<REFERENCE_TIME> durations(const std::vector<sim::InitializeRequest>& requests) {
    std::vector<REFERENCE_TIME> out;
    for (const auto& r : requests) {
        out.push_back(r.duration);
    }
    return out;
}

using ClientRendererTest = StreamingTest;

TEST_F(ClientRendererTest, InitializeHalvesTheBufferUntilTheDriverTakesIt) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 1.0);
    {
        libAudio::AudioRendererEx plain(device(kSpeakers), &played);
        // The driver refuses a period above 500 ms, so a one-second tone goes in halves.
        EXPECT_EQ((std::vector<REFERENCE_TIME>{kSecond, kSecond / 2}),
                  durations(sim::takeInitializeRequests()));
    }

    fault("Initialize", kSpeakers, {AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED, E_OUTOFMEMORY});
    libAudio::AudioRendererEx refused(device(kSpeakers), &played);
    std::vector<sim::InitializeRequest> requests = sim::takeInitializeRequests();
    EXPECT_EQ((std::vector<REFERENCE_TIME>{kSecond, kSecond / 2, kSecond / 4}),
              durations(requests));
    EXPECT_EQ(S_OK, requests.back().result);
}

// A client that refused Initialize refuses it for good: the second pass starts afresh.
TEST_F(ClientRendererTest, AnAlwaysMisalignedBufferStopsAtTheDevicePeriodAndTwoPassesFail) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 1.0);
    fault("Initialize", kSpeakers, {AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED}, true);
    libAudio::AudioRendererEx renderer;
    EXPECT_FALSE(renderer.initialize(device(kSpeakers), &played));
    std::vector<REFERENCE_TIME> pass = {kSecond,      kSecond / 2,  kSecond / 4,  kSecond / 8,
                                        kSecond / 16, kSecond / 32, kSecond / 64, kSecond / 128};
    std::vector<REFERENCE_TIME> both = pass;
    both.insert(both.end(), pass.begin(), pass.end());
    EXPECT_EQ(both, durations(sim::takeInitializeRequests()));
    EXPECT_TRUE(logged(log, kLog, kFatal, kBadState));
    bool called = false;
    EXPECT_FALSE(renderer.play(1, [&] { return called = true; }));
    EXPECT_FALSE(called);
}

TEST_F(ClientRendererTest, ADeviceInUseIsTriedInSharedModeWithTheSameDuration) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.25);
    fault("Initialize", kSpeakers, {AUDCLNT_E_DEVICE_IN_USE});
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    std::vector<sim::InitializeRequest> requests = sim::takeInitializeRequests();
    ASSERT_GE(requests.size(), 2u);
    EXPECT_EQ(AUDCLNT_SHAREMODE_EXCLUSIVE, requests[0].mode);
    EXPECT_EQ(AUDCLNT_SHAREMODE_SHARED, requests[1].mode);
    EXPECT_EQ(requests[0].duration, requests[1].duration);
    EXPECT_EQ(S_OK, requests.back().result);
}

struct Refusal {
    const char* name;
    std::string operation;
    HRESULT result;
    int priority;
    std::string message;
};

class RendererRefusalTest : public StreamingTest, public ::testing::WithParamInterface<Refusal> {};

// Each refusal fails initialize with its record, and play then starts nothing.
TEST_P(RendererRefusalTest, FailsInitializeWithItsRecord) {
    const Refusal& refusal = GetParam();
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.1);
    fault(refusal.operation, kSpeakers, {refusal.result});
    libAudio::AudioRendererEx renderer;
    EXPECT_FALSE(renderer.initialize(device(kSpeakers), &played));
    EXPECT_TRUE(logged(log, kLog, refusal.priority, refusal.message));
    EXPECT_EQ(refusal.operation == "GetBufferSize", logged(log, kLog, kFatal, kBadState));
    EXPECT_FALSE(renderer.play(1, never()));
    EXPECT_FALSE(renderer.isStillPlaying());
}

INSTANTIATE_TEST_SUITE_P(
    Driver, RendererRefusalTest,
    ::testing::Values(Refusal{"Format", "IsFormatSupported", AUDCLNT_E_UNSUPPORTED_FORMAT, kFatal,
                              "Format requested is not supported" +
                                  std::to_string(int(AUDCLNT_E_UNSUPPORTED_FORMAT))},
                      Refusal{"BufferSizeFails", "GetBufferSize", E_FAIL, kInfo,
                              "IAudioClient::GetBufferSize returns0x80004005 Max Frame Size0"},
                      Refusal{"EmptyBuffer", "GetBufferSize", S_FALSE, kInfo,
                              "IAudioClient::GetBufferSize returns0x00000000 Max Frame Size0"}),
    [](const auto& info) { return std::string(info.param.name); });

// The driver takes its time to start; the caller gives up meanwhile. play returns only once
// the worker is gone, so that the caller may free the buffer at once.
TEST_F(ClientRendererTest, AnAbortReturnsOnlyOnceTheWorkerHasEnded) {
    testsupport::LogCapture log;
    auto played = std::make_unique<libAudio::StaticPCMBuffer>(tone(1000.0, 0.3));
    libAudio::AudioRendererEx renderer(device(kSpeakers), played.get());
    sim::setStreamStartLatency(300000);
    int asked = 0;
    EXPECT_FALSE(renderer.play(1, [&] { return ++asked == 2; }));
    EXPECT_EQ(2, asked);
    EXPECT_TRUE(logged(log, kLog, kFatal, "User aborted the playback. Thread may have died"));
    EXPECT_FALSE(renderer.isStillPlaying());
    EXPECT_FALSE(sim::isStreaming(kSpeakers));
    played.reset();
    Sleep(500);
}

// A worker that could not start the client has ended: play does not wait for it in vain.
TEST_F(ClientRendererTest, AStreamThatCannotStartFailsPlayWithoutAnAbort) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.5);
    fault("Start", kSpeakers, {E_FAIL});
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    int asked = 0;
    EXPECT_FALSE(renderer.play(1, [&] { return ++asked == 100; }));
    EXPECT_LT(asked, 100);
    EXPECT_FALSE(logged(log, kLog, kFatal, "User aborted the playback. Thread may have died"));
    EXPECT_TRUE(logged(log, kLog, kError, "IAudioClient::Start failed"));
    EXPECT_FALSE(renderer.isStillPlaying());
}

TEST_F(ClientRendererTest, PlayOnceEndsByItselfAndARemovedDeviceEndsALoop) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.3);
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    EXPECT_FALSE(renderer.isStillPlaying());
    ASSERT_TRUE(renderer.play(libAudio::AudioRendererEx::PLAY_ONCE, never()));
    EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));

    ASSERT_TRUE(renderer.play(0, never()));
    EXPECT_TRUE(renderer.isStillPlaying());
    sim::setEndpointState(kSpeakers, DEVICE_STATE_UNPLUGGED);
    EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));
    EXPECT_TRUE(renderer.stop());
}

TEST_F(ClientRendererTest, AFailedDeviceBufferEndsTheLoop) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.1);
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    fault("GetBuffer", kSpeakers, {S_OK, E_FAIL}); // the pre-fill gets its buffer
    ASSERT_TRUE(renderer.play(0, never()));
    EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));
    EXPECT_TRUE(logged(log, kLog, kFatal, "GetBuffer failed " + std::to_string(int(E_FAIL))));
}

// Any copy stops the one worker; copies stopped from two threads close its handle once.
TEST_F(ClientRendererTest, EveryCopyStopsTheOneWorker) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.1);
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    ASSERT_TRUE(renderer.play(0, never()));
    libAudio::AudioRendererEx copy(renderer);
    EXPECT_TRUE(returnsPromptly([&] { copy.stop(); }, [&] { renderer.stop(); }));
    EXPECT_FALSE(renderer.isStillPlaying());
    EXPECT_FALSE(sim::isStreaming(kSpeakers));

    ASSERT_TRUE(renderer.play(0, never()));
    libAudio::AudioRendererEx first(renderer), second(renderer);
    EXPECT_TRUE(returnsPromptly(
        [&] {
            std::thread other([&] { second.stop(); });
            first.stop();
            other.join();
        },
        [&] { renderer.stop(); }));
    EXPECT_FALSE(renderer.isStillPlaying());
    EXPECT_TRUE(renderer.stop());
}

// A loop heard along a clean route: every sample in its channel, wrapping at the end of a
// buffer whose length is no multiple of a refill, and no glitch on the way.
TEST_F(CleanRouteTest, ALoopKeepsItsChannelsAndWrapsWithoutAGlitch) {
    libAudio::StaticPCMBuffer played = pattern(kLoopFrames);
    libAudio::AudioRendererEx renderer(device(m_out), &played);
    sim::takeRenderGlitches(m_out);
    ASSERT_TRUE(renderer.play(0, never()));
    libAudio::StaticPCMBuffer recorded = recordDuring(0.5, 2, [] {});
    renderer.stop();
    EXPECT_EQ(0u, sim::takeRenderGlitches(m_out));
    for (unsigned int c : {0u, 1u}) {
        LoopFollowed heard = followLoop(channelOf(recorded, c), channelOf(played, c));
        EXPECT_LE(heard.leadingSilence, 1u) << "channel " << c; // it may begin at a wrap
        EXPECT_EQ(0u, heard.mismatches) << "channel " << c;
        EXPECT_GE(heard.rounds, 4u) << "channel " << c;
        EXPECT_LE(heard.wrapSilences, heard.rounds) << "channel " << c;
    }
}

TEST_F(CleanRouteTest, PlayOnceContinuesWhereItStoppedUnlessRewound) {
    libAudio::StaticPCMBuffer played = pattern(4800);
    libAudio::AudioRendererEx renderer(device(m_out), &played);
    ASSERT_TRUE(renderer.play(libAudio::AudioRendererEx::PLAY_ONCE, never()));
    ASSERT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));

    auto again = [&](unsigned int mode) {
        return recordDuring(0.3, 1, [&] { EXPECT_TRUE(renderer.play(mode, never())); });
    };
    EXPECT_EQ(libAudio::kSilenceDbfs,
              libAudio::levelDbfs(again(libAudio::AudioRendererEx::PLAY_ONCE), 0))
        << "everything was played already";
    EXPECT_GT(
        libAudio::levelDbfs(
            again(libAudio::AudioRendererEx::PLAY_ONCE | libAudio::AudioRendererEx::REWIND), 0),
        -40.0);
    renderer.stop();
}

} // namespace
} // namespace streaming
