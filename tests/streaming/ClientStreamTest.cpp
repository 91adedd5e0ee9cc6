// The client renderer and capture on their own: how they ask the driver for a buffer, how
// they end, fail and report, and what exactly reaches the other end of a clean route.
#include "StreamingSupport.h"

#include "libAudio/AudioCapture.h"
#include "libAudio/AudioRenderer.h"
#include "platform/model/Finish.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/MachineEvents.h"

namespace streaming {
namespace {

constexpr REFERENCE_TIME kSecond = 10000000;
const std::string kRendererLog = "libAudio.AudioRendererEx";
const std::string kCaptureLog = "libAudio.AudioCaptureEx";
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
    EXPECT_TRUE(logged(log, kRendererLog, kFatal, kBadState));
    bool called = false;
    EXPECT_FALSE(renderer.play(1, [&] { return called = true; }));
    EXPECT_FALSE(called);
}

TEST_F(ClientRendererTest, ADeviceInUseIsTriedInSharedModeWithTheSameDuration) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.25);
    fault("Initialize", kSpeakers, {AUDCLNT_E_DEVICE_IN_USE});
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    std::vector<sim::InitializeRequest> requests = sim::takeInitializeRequests();
    ASSERT_GE(requests.size(), 3u);
    EXPECT_EQ(AUDCLNT_SHAREMODE_SHARED, requests[1].mode);
    EXPECT_EQ(requests[0].duration, requests[1].duration);
    // 16-bit PCM is not the shared engine's mix format: the retry in exclusive mode wins.
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT, requests[1].result);
    EXPECT_EQ(S_OK, requests.back().result);
    EXPECT_EQ(AUDCLNT_SHAREMODE_EXCLUSIVE, requests.back().mode);
}

TEST_F(ClientRendererTest, FormatTheDeviceRefusesFailsAndPlayDoesNotStart) {
    testsupport::LogCapture log;
    WAVEFORMATEX eightBit{};
    libAudio::createWaveformatEx(2, 8, 48000, eightBit);
    libAudio::StaticPCMBuffer played;
    ASSERT_TRUE(libAudio::createPCMBuffer(eightBit, 0.1, played));
    libAudio::AudioRendererEx renderer;
    EXPECT_FALSE(renderer.initialize(device(kSpeakers), &played));
    EXPECT_TRUE(logged(log, kRendererLog, kFatal,
                       "Format requested is not supported" +
                           std::to_string(int(AUDCLNT_E_UNSUPPORTED_FORMAT))));
    EXPECT_FALSE(renderer.isStillPlaying());
}

TEST_F(ClientRendererTest, AStreamThatNeverStartsIsAbortedByTheCaller) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.5);
    fault("Start", kSpeakers, {E_FAIL});
    libAudio::AudioRendererEx renderer(device(kSpeakers), &played);
    int asked = 0;
    EXPECT_FALSE(renderer.play(1, [&] { return ++asked == 3; }));
    EXPECT_EQ(3, asked);
    EXPECT_TRUE(
        logged(log, kRendererLog, kFatal, "User aborted the playback. Thread may have died"));
    EXPECT_TRUE(renderer.stop());
    EXPECT_TRUE(logged(log, kRendererLog, kError, "IAudioClient::Start failed"));
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

// A machine whose one route carries every sample unchanged: 0 dB, no delay, no audible noise.
class CleanRouteTest : public StreamingTest {
protected:
    void SetUp() override {
        StreamingTest::SetUp();
        m_out = model::generatedEndpointId(model::Flow::Render, 0);
        m_in = model::generatedEndpointId(model::Flow::Capture, 1);
        sim::installMachine(model::MachineBuilder("clean")
                                .adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
                                .endpoint(model::Flow::Render, "Speakers", model::Speakers)
                                .endpoint(model::Flow::Capture, "Line In", model::LineLevel)
                                .format(1)
                                .route(m_out, m_in)
                                .build());
    }

    // A pattern no shift of itself matches: 4800 frames, both channels alike.
    static libAudio::StaticPCMBuffer pattern() {
        libAudio::StaticPCMBuffer buffer = recording(0.1);
        qel::Buffer<unsigned char>& bytes = buffer.pcmArray();
        for (unsigned int frame = 0; frame < buffer.numBlocks(); ++frame) {
            std::int16_t value = std::int16_t(int(frame * 7919 % 20000) - 10000);
            for (unsigned int c = 0; c < 2; ++c) {
                std::memcpy(bytes.data() + (frame * 2 + c) * 2, &value, 2);
            }
        }
        return buffer;
    }

    // Records while play() runs.
    libAudio::StaticPCMBuffer recordDuring(double seconds, const std::function<void()>& play) {
        libAudio::StaticPCMBuffer recorded = recording(seconds, 1);
        libAudio::AudioCaptureEx capture(device(m_in), &recorded);
        EXPECT_TRUE(capture.start(never()));
        play();
        EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
        EXPECT_EQ(0, capture.threadExitCode());
        return recorded;
    }

    std::string m_out;
    std::string m_in;
};

std::vector<std::int16_t> samples(const libAudio::StaticPCMBuffer& buffer, unsigned int step) {
    std::vector<std::int16_t> out;
    const qel::Buffer<unsigned char>& bytes = buffer.pcmArray();
    for (std::size_t at = 0; at + 2 <= bytes.size(); at += step) {
        std::int16_t value;
        std::memcpy(&value, bytes.data() + at, 2);
        out.push_back(value);
    }
    return out;
}

TEST_F(CleanRouteTest, ALoopWrapsAtTheLastBlockWithoutAGapOrARepeat) {
    libAudio::StaticPCMBuffer played = pattern();
    libAudio::AudioRendererEx renderer(device(m_out), &played);
    ASSERT_TRUE(renderer.play(0, never()));
    libAudio::StaticPCMBuffer recorded = recordDuring(0.5, [] {});
    renderer.stop();

    std::vector<std::int16_t> loop = samples(played, 4);
    std::vector<std::int16_t> heard = samples(recorded, 2);
    auto first = std::find(loop.begin(), loop.end(), heard[0]);
    ASSERT_NE(loop.end(), first) << "the recording does not start inside the pattern";
    std::size_t offset = std::size_t(first - loop.begin());
    std::size_t mismatches = 0;
    for (std::size_t i = 0; i < heard.size(); ++i) {
        mismatches += heard[i] != loop[(offset + i) % loop.size()];
    }
    EXPECT_EQ(0u, mismatches) << "over " << heard.size() / loop.size() << " rounds of the loop";
}

TEST_F(CleanRouteTest, PlayOnceContinuesWhereItStoppedUnlessRewound) {
    libAudio::StaticPCMBuffer played = pattern();
    libAudio::AudioRendererEx renderer(device(m_out), &played);
    ASSERT_TRUE(renderer.play(libAudio::AudioRendererEx::PLAY_ONCE, never()));
    ASSERT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));

    auto again = [&](unsigned int mode) {
        return recordDuring(0.3, [&] { EXPECT_TRUE(renderer.play(mode, never())); });
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

using ClientCaptureTest = StreamingTest;

TEST_F(ClientCaptureTest, ExitCodesOfAFreshAFullAndAFailedRecording) {
    testsupport::LogCapture log;
    libAudio::AudioCaptureEx fresh;
    EXPECT_EQ(128, fresh.threadExitCode());

    {
        libAudio::StaticPCMBuffer full = recording(0.1);
        full.fillDataBlocks(qel::Buffer<unsigned char>(full.pcmArray()));
        libAudio::AudioCaptureEx capture(device(kMicArray), &full);
        ASSERT_TRUE(capture.start(never()));
        EXPECT_EQ(0, capture.threadExitCode());
        EXPECT_TRUE(logged(log, kCaptureLog, kDebug, " PCM buffer available space 0 bytes"));
    }

    libAudio::StaticPCMBuffer empty = recording(0.1);
    fault("Start", kMicArray, {E_FAIL});
    libAudio::AudioCaptureEx failing(device(kMicArray), &empty);
    EXPECT_FALSE(failing.start([] { return true; }));
    EXPECT_EQ(-1, failing.threadExitCode());
    EXPECT_TRUE(
        logged(log, kCaptureLog, kFatal, "User aborted the playback. Thread may have died"));
}

TEST_F(ClientCaptureTest, AnUnroutedMicrophoneRecordsDigitalSilence) {
    libAudio::StaticPCMBuffer recorded = recording(0.2, 1);
    libAudio::AudioCaptureEx capture(device(kLoneMic), &recorded);
    ASSERT_TRUE(capture.start(never()));
    ASSERT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    EXPECT_EQ(0, capture.threadExitCode());
    EXPECT_EQ(recorded.pcmArray().size(), recorded.writeMarker());
    EXPECT_EQ(libAudio::kSilenceDbfs, libAudio::levelDbfs(recorded, 0));
}

} // namespace
} // namespace streaming
