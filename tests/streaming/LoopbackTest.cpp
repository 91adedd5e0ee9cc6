// A tone played on one endpoint and recorded on another along a route of the laptop: what
// a diagnostics loopback test does, through both streaming families.
#include "StreamingSupport.h"

#include "libAudio/AudioCapture.h"
#include "libAudio/AudioRenderer.h"
#include "libAudio/LegacyWave.h"

#include <memory>

namespace streaming {
namespace {

struct Loop {
    const char* name;
    std::string render;
    std::string capture;
    double gainDb; // render volume + route gain + capture volume on the laptop
    bool legacy;
};

class LoopbackTest : public StreamingTest, public ::testing::WithParamInterface<Loop> {};

std::unique_ptr<libAudio::AudioRenderer> renderer(bool legacy) {
    if (legacy) {
        return std::make_unique<libAudio::AudioRendererLegacyWave>();
    }
    return std::make_unique<libAudio::AudioRendererEx>();
}

std::unique_ptr<libAudio::AudioCapture> capture(bool legacy) {
    if (legacy) {
        return std::make_unique<libAudio::AudioCaptureLegacyWave>();
    }
    return std::make_unique<libAudio::AudioCaptureEx>();
}

TEST_P(LoopbackTest, RecordingMeasuresTheToneAtTheLevelTheRouteGives) {
    const Loop& loop = GetParam();
    libAudio::StaticPCMBuffer played = tone(1000.0, 2.0);
    libAudio::StaticPCMBuffer recorded = recording(1.0);
    CComPtr<IMMDevice> speaker = device(loop.render);
    CComPtr<IMMDevice> microphone = device(loop.capture);
    auto player = renderer(loop.legacy);
    auto recorder = capture(loop.legacy);
    // The legacy device opens with the format alone and is handed its block by play, so
    // its initialize reports the empty block.
    EXPECT_EQ(!loop.legacy, player->initialize(speaker, &played));
    ASSERT_TRUE(recorder->initialize(microphone, &recorded));

    const unsigned int loopMode = loop.legacy ? 2u : 0u; // loop until stopped
    ASSERT_TRUE(player->play(loopMode, never()));
    ASSERT_TRUE(recorder->start(never()));
    EXPECT_TRUE(waitFor([&] { return !recorder->isStillRecording(); }));
    EXPECT_TRUE(player->isStillPlaying()) << "a looped tone plays until it is stopped";
    EXPECT_TRUE(recorder->stop());
    EXPECT_TRUE(player->stop());
    EXPECT_EQ(0, recorder->threadExitCode());
    EXPECT_FALSE(player->isStillPlaying());

    for (unsigned int channel : {0u, 1u}) {
        EXPECT_NEAR(1000.0, libAudio::dominantFrequency(recorded, channel), 10.0);
        EXPECT_NEAR(sineLevel(16384) + loop.gainDb, libAudio::levelDbfs(recorded, channel), 1.0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Laptop, LoopbackTest,
    ::testing::Values(Loop{"SpeakersToMicArray", kSpeakers, kMicArray, -20.25 - 20 + 10.5, false},
                      Loop{"HeadphoneCable", kHeadphones, kHeadsetMic, -12 - 6 + 0, false},
                      Loop{"LegacySpeakersToMicArray", kSpeakers, kMicArray, -29.75, true},
                      Loop{"LegacyHeadphoneCable", kHeadphones, kHeadsetMic, -18, true}),
    [](const auto& info) { return std::string(info.param.name); });

} // namespace
} // namespace streaming
