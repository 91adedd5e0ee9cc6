// The legacy wave classes: the devices themselves, and the renderer and capture over them.
#include "StreamingSupport.h"

#include "libAudio/LegacyWave.h"
#include "libAudio/WaveDevice.h"

namespace streaming {
namespace {

const std::string kLog = "libAudio";

// The legacy device numbers of the laptop: active endpoints of a flow, in order.
constexpr unsigned int kSpeakersDevice = 0;
constexpr unsigned int kMicArrayDevice = 0;

libAudio::PCMTrack trackOf(libAudio::StaticPCMBuffer& buffer) {
    libAudio::PCMTrack track;
    track.format = buffer.format().Format;
    track.pcm.assign(buffer.pcmArray().data(), buffer.pcmArray().size());
    return track;
}

using WaveDeviceTest = StreamingTest;

TEST_F(WaveDeviceTest, ABlockPlaysOnceOrLoopsUntilStoppedAndIsHandedBack) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.2);
    libAudio::PCMTrack track = trackOf(played);
    libAudio::WaveOut out;
    ASSERT_TRUE(out.open(kSpeakersDevice, track));
    ASSERT_TRUE(out.start(false));
    EXPECT_TRUE(out.stillPlaying());
    EXPECT_TRUE(waitFor([&] { return !out.stillPlaying(); }));
    EXPECT_TRUE(out.headerFlags() & WHDR_DONE);
    EXPECT_TRUE(out.stop());
    EXPECT_FALSE(out.headerFlags() & WHDR_PREPARED);

    ASSERT_TRUE(out.start(true));
    Sleep(1000); // five times the block
    EXPECT_TRUE(out.stillPlaying());
    EXPECT_TRUE(out.stop());
    EXPECT_FALSE(out.stillPlaying());
    EXPECT_FALSE(out.headerFlags() & WHDR_PREPARED);
    EXPECT_FALSE(sim::isStreaming(kSpeakers));
    out.abort();
    EXPECT_FALSE(out.stillPlaying());
}

TEST_F(WaveDeviceTest, ReopeningAnInputKeepsItAndClosingTwiceFails) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer buffer = recording(0.1);
    libAudio::PCMTrack track = trackOf(buffer);
    libAudio::WaveIn in;
    ASSERT_TRUE(in.open(kMicArrayDevice, track));
    EXPECT_TRUE(in.open(kMicArrayDevice, track));
    EXPECT_TRUE(logged(log, kLog, kInfo, "WaveIn object already has an open audio input device."));
    ASSERT_TRUE(in.start());
    EXPECT_TRUE(in.stillRecording());
    in.abort();
    EXPECT_FALSE(in.stillRecording()) << "an abort is seen at once";
    EXPECT_TRUE(in.stop());
    EXPECT_FALSE(in.headerFlags() & WHDR_PREPARED);
    EXPECT_FALSE(sim::isStreaming(kMicArray));
    EXPECT_TRUE(in.close());
    EXPECT_FALSE(in.close());
    EXPECT_TRUE(logged(log, kLog, kDebug, "Handle already closed"));

    libAudio::PCMTrack empty;
    empty.format = track.format;
    EXPECT_FALSE(libAudio::WaveIn().open(kMicArrayDevice, empty));
    EXPECT_TRUE(logged(log, kLog, kError, "Cannot operate on empty recording buffer"));
}

// An open clears an abort (an aborted output is opened afresh); the device closes when the
// last copy lets go of it. The endpoints here refuse an exclusive stream while a wave
// device holds them.
TEST_F(WaveDeviceTest, OpenClearsAnAbortAndTheLastHolderClosesTheDevice) {
    sim::withMachine([](model::Machine& m) {
        for (model::Endpoint& e : m.endpoints) {
            e.stream.exclusivePriority = false;
        }
    });
    auto exclusive = [&](const std::string& id, const WAVEFORMATEX& format) {
        CComPtr<IAudioClient> audio;
        device(id)->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr,
                             reinterpret_cast<void**>(&audio));
        return audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 1000000, 0, &format, nullptr);
    };
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer buffer = tone(1000.0, 0.1);
    libAudio::PCMTrack track = trackOf(buffer);
    {
        libAudio::WaveOut out;
        ASSERT_TRUE(out.open(kSpeakersDevice, track));
        out.abort();
        EXPECT_TRUE(out.open(kSpeakersDevice, track));
        EXPECT_FALSE(out.isAborted());
        EXPECT_EQ(1, testsupport::countOf(log, kLog, kInfo, "waveOutClose result = 0"));
        libAudio::WaveOut copy(out);
        EXPECT_EQ(AUDCLNT_E_DEVICE_IN_USE, exclusive(kSpeakers, track.format));
    }
    EXPECT_EQ(2, testsupport::countOf(log, kLog, kInfo, "waveOutClose result = 0"));
    EXPECT_EQ(S_OK, exclusive(kSpeakers, track.format));
    {
        libAudio::WaveIn in;
        ASSERT_TRUE(in.open(kMicArrayDevice, track));
        in.abort();
        EXPECT_TRUE(in.open(kMicArrayDevice, track));
        EXPECT_FALSE(in.isAborted());
        libAudio::WaveIn copy(in);
        EXPECT_EQ(AUDCLNT_E_DEVICE_IN_USE, exclusive(kMicArray, track.format));
        EXPECT_EQ(0, testsupport::countOf(log, kLog, kInfo, "Closing wave input device."));
    }
    EXPECT_EQ(1, testsupport::countOf(log, kLog, kInfo, "Closing wave input device."));
    EXPECT_EQ(1, testsupport::countOf(log, kLog, kInfo, "waveInClose result = 0"));
    EXPECT_EQ(S_OK, exclusive(kMicArray, track.format));
}

// Errors of the device come back; a recording that will not start is stopped again, and
// start answers what that stop answers.
TEST_F(WaveDeviceTest, DeviceErrorsAreReportedAndAFailedStartIsStopped) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer buffer = recording(0.1);
    libAudio::PCMTrack track = trackOf(buffer);
    libAudio::WaveOut out;
    ASSERT_TRUE(out.open(kSpeakersDevice, track));
    fault("waveOutWrite", kSpeakers, {MMSYSERR_NOMEM});
    EXPECT_FALSE(out.start(false));
    EXPECT_TRUE(logged(log, kLog, kInfo, "waveOutStart returns 7"));
    EXPECT_FALSE(sim::isStreaming(kSpeakers));

    libAudio::WaveIn in;
    ASSERT_TRUE(in.open(kMicArrayDevice, track));
    fault("waveInAddBuffer", kMicArray, {MMSYSERR_NOMEM});
    EXPECT_FALSE(in.start());
    EXPECT_EQ(1, countStarting(log, kLog, kError, "waveInAddBuffer fails with GetLastError() = "));
    EXPECT_TRUE(in.stop());

    fault("waveInStart", kMicArray, {MMSYSERR_ERROR});
    EXPECT_TRUE(in.start()) << "the answer of the stop that follows the failed start";
    EXPECT_TRUE(logged(log, kLog, kInfo, "waveInStart returns 1"));
    EXPECT_EQ(2, testsupport::countOf(log, kLog, kInfo, "waveInUnprepareHeader returns 0"));
    EXPECT_FALSE(in.headerFlags() & WHDR_PREPARED);
    EXPECT_FALSE(sim::isStreaming(kMicArray));
}

using LegacyStreamTest = StreamingTest;

TEST_F(LegacyStreamTest, PlayModeTwoLoopsAnyOtherPlaysOnceAndAnAbortEndsTheWorker) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.2);
    libAudio::AudioRendererLegacyWave renderer;
    renderer.initialize(device(kSpeakers), &played);
    for (unsigned int once : {1u, 4u}) {
        ASSERT_TRUE(renderer.play(once, never()));
        EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); })) << "mode " << once;
        EXPECT_TRUE(renderer.stop());
    }
    ASSERT_TRUE(renderer.play(libAudio::AudioRendererLegacyWave::LOOP, never()));
    Sleep(1000);
    EXPECT_TRUE(renderer.isStillPlaying());
    EXPECT_TRUE(renderer.stop());
    EXPECT_TRUE(logged(log, kLog, kDebug, "Thread exit code 0"));

    ASSERT_TRUE(renderer.play(libAudio::AudioRendererLegacyWave::LOOP, [] { return true; }));
    EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));
    EXPECT_TRUE(logged(log, kLog, kError, "User aborted playback"));
    EXPECT_TRUE(sim::isStreaming(kSpeakers)) << "the device plays on until stop";
    EXPECT_TRUE(renderer.stop());
    EXPECT_TRUE(logged(log, kLog, kDebug, "Thread exit code 128"));
    EXPECT_FALSE(sim::isStreaming(kSpeakers));
}

// The block's done flag ends playing at once, and the worker on its own. The caller's
// callback holds the worker up meanwhile, so the two are seen apart.
TEST_F(LegacyStreamTest, TheDoneFlagEndsPlayingAndTheWorker) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.2);
    libAudio::AudioRendererLegacyWave renderer;
    renderer.initialize(device(kSpeakers), &played);
    bool held = false;
    ASSERT_TRUE(renderer.play(1, [&] {
        if (!std::exchange(held, true)) {
            Sleep(1000);
        }
        return false;
    }));
    Sleep(500);
    EXPECT_FALSE(renderer.isStillPlaying());
    EXPECT_TRUE(waitFor([&] { return logged(log, kLog, kDebug, "Stopping playback."); }));
    EXPECT_TRUE(renderer.stop());
    EXPECT_TRUE(logged(log, kLog, kDebug, "Thread exit code 0"));
}

// Copies share the worker: a stop through either ends it, even when the device will not
// reset and so never marks the block done.
TEST_F(LegacyStreamTest, ACopyStopsTheOneWorker) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.2);
    libAudio::AudioRendererLegacyWave renderer;
    renderer.initialize(device(kSpeakers), &played);
    ASSERT_TRUE(renderer.play(libAudio::AudioRendererLegacyWave::LOOP, never()));
    ASSERT_TRUE(waitFor([] { return sim::isStreaming(kSpeakers); }));
    libAudio::AudioRendererLegacyWave copy(renderer);
    fault("waveOutReset", kSpeakers, {MMSYSERR_ERROR});
    EXPECT_TRUE(returnsPromptly([&] { copy.stop(); }, [&] { renderer.stop(); }));
    EXPECT_FALSE(renderer.isStillPlaying());
    EXPECT_FALSE(sim::isStreaming(kSpeakers)) << "the worker stopped the device";
    EXPECT_TRUE(renderer.stop());
}

TEST_F(LegacyStreamTest, BadArgumentsAndDevicesThatWillNotStart) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer buffer = tone(1000.0, 0.2);
    libAudio::AudioRendererLegacyWave renderer;
    EXPECT_FALSE(renderer.initialize(nullptr, &buffer));
    EXPECT_FALSE(renderer.initialize(device(kSpeakers), nullptr));
    EXPECT_EQ(2,
              testsupport::countOf(log, kLog, kError, "Invalid parameter passed to the function"));
    libAudio::AudioCaptureLegacyWave capture;
    EXPECT_FALSE(capture.initialize(device(kMicArray), nullptr));
    EXPECT_TRUE(logged(log, kLog, kError, "Storage pointer is NULL"));

    renderer.initialize(device(kSpeakers), &buffer);
    fault("waveOutWrite", kSpeakers, {MMSYSERR_NOMEM});
    ASSERT_TRUE(renderer.play(1, never()));
    EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));
    EXPECT_TRUE(renderer.stop());
    EXPECT_TRUE(logged(log, kLog, kDebug, "Thread exit code -1"));

    ASSERT_TRUE(capture.initialize(device(kMicArray), &buffer));
    fault("waveInAddBuffer", kMicArray, {MMSYSERR_NOMEM});
    ASSERT_TRUE(capture.start(never()));
    EXPECT_TRUE(capture.stop());
    EXPECT_EQ(-1, capture.threadExitCode());
    EXPECT_EQ(2, testsupport::countOf(log, kLog, kError, "Unable to start recording"));
}

TEST_F(LegacyStreamTest, TheHardTimeOutIsCutToOneAndAHalfTimesTheBufferLess) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer recorded = recording(1.0);
    libAudio::AudioCaptureLegacyWave capture;
    ASSERT_TRUE(capture.initialize(device(kMicArray), &recorded));
    capture.setTimeout(10000);
    ASSERT_TRUE(capture.start(never()));
    EXPECT_EQ(1400u, capture.timeout());
    EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    EXPECT_TRUE(capture.stop());
    EXPECT_EQ(0, capture.threadExitCode());
    EXPECT_TRUE(
        logged(log, kLog, kDebug, "Waiting for recording to finish. Hard timeout = 1400 ms."));

    // A time-out shorter than the recording ends the worker early and leaves the device
    // recording, until the caller's stop.
    capture.setTimeout(300);
    recorded.resetWriteMarker();
    ASSERT_TRUE(capture.start(never()));
    EXPECT_EQ(300u, capture.timeout());
    Sleep(500);
    EXPECT_TRUE(sim::isStreaming(kMicArray));
    EXPECT_TRUE(capture.stop());
    EXPECT_FALSE(sim::isStreaming(kMicArray));
    EXPECT_EQ(128, capture.threadExitCode());

    // Without a sample rate the limit is 0: the recording ends at once.
    WAVEFORMATEXTENSIBLE broken = recorded.format();
    broken.Format.nSamplesPerSec = 0;
    recorded.setFormat(broken);
    ASSERT_TRUE(capture.start(never()));
    EXPECT_EQ(0u, capture.timeout());
    EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    capture.stop();
    EXPECT_EQ(128, capture.threadExitCode());
}

// Along a clean route the legacy classes carry every frame: the loop wraps exactly, and the
// recording fills its buffer to the last block.
TEST_F(CleanRouteTest, LegacyClassesCarryEveryFrame) {
    libAudio::StaticPCMBuffer played = pattern(kLoopFrames);
    libAudio::AudioRendererLegacyWave renderer;
    renderer.initialize(device(m_out), &played);
    ASSERT_TRUE(renderer.play(libAudio::AudioRendererLegacyWave::LOOP, never()));
    libAudio::StaticPCMBuffer recorded = recording(0.5);
    std::fill_n(recorded.pcmArray().data(), recorded.pcmArray().size(), 0x7F); // never heard
    libAudio::AudioCaptureLegacyWave capture;
    ASSERT_TRUE(capture.initialize(device(m_in), &recorded));
    ASSERT_TRUE(capture.start(never()));
    EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    EXPECT_TRUE(capture.stop());
    EXPECT_TRUE(renderer.stop());
    EXPECT_EQ(0, capture.threadExitCode());
    for (unsigned int c : {0u, 1u}) {
        LoopFollowed heard = followLoop(channelOf(recorded, c), channelOf(played, c));
        EXPECT_EQ(0u, heard.mismatches) << "channel " << c;
        EXPECT_EQ(0u, heard.wrapSilences) << "channel " << c;
    }
}

} // namespace
} // namespace streaming
