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

TEST_F(WaveDeviceTest, ABlockPlaysOnceOrLoopsUntilStopped) {
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.2);
    libAudio::PCMTrack track = trackOf(played);
    libAudio::WaveOut out;
    ASSERT_TRUE(out.open(kSpeakersDevice, track));
    ASSERT_TRUE(out.start(false));
    EXPECT_TRUE(out.stillPlaying());
    EXPECT_TRUE(waitFor([&] { return !out.stillPlaying(); }));
    EXPECT_TRUE(out.headerFlags() & WHDR_DONE);
    EXPECT_TRUE(out.stop());

    ASSERT_TRUE(out.start(true));
    Sleep(1000); // five times the block
    EXPECT_TRUE(out.stillPlaying());
    EXPECT_TRUE(out.stop());
    EXPECT_FALSE(out.stillPlaying());
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
    EXPECT_TRUE(in.close());
    EXPECT_FALSE(in.close());
    EXPECT_TRUE(logged(log, kLog, kDebug, "Handle already closed"));

    libAudio::PCMTrack empty;
    empty.format = track.format;
    EXPECT_FALSE(libAudio::WaveIn().open(kMicArrayDevice, empty));
    EXPECT_TRUE(logged(log, kLog, kError, "Cannot operate on empty recording buffer"));
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

    // A time-out shorter than the recording ends it early, with the device left running.
    capture.setTimeout(300);
    recorded.resetWriteMarker();
    ASSERT_TRUE(capture.start(never()));
    EXPECT_EQ(300u, capture.timeout());
    EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    capture.stop();
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

} // namespace
} // namespace streaming
