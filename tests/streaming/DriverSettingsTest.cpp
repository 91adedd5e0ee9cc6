// The client renderer and capture against what Windows' audio engine does on its own: a
// device held by shared streams that exclusive mode may not cut off (the shared-mode retry
// then streams at the mix rate, the engine converting the sample type), exclusive mode that
// the user disallowed (the format check fails; the legacy devices still stream), a shared
// stream cut off by an exclusive one, and capture packets flagged silent whatever their
// bytes hold.
#include "StreamingSupport.h"

#include "libAudio/AudioRenderer.h"
#include "libAudio/LegacyWave.h"

#include <algorithm>

namespace streaming {
namespace {

const std::string kRenderLog = "libAudio.AudioRendererEx";
const std::string kCaptureLog = "libAudio.AudioCaptureEx";
const std::string kOut = model::generatedEndpointId(model::Flow::Render, 0);
const std::string kIn = model::generatedEndpointId(model::Flow::Capture, 1);
const std::string kQuiet = model::generatedEndpointId(model::Flow::Capture, 2);

// Speakers heard by a line input over a clean cable (0 dB, no delay, no audible noise), and a
// microphone that hears nothing; each endpoint's exclusive-mode settings as given.
model::Machine cable(bool allowed, bool priority) {
    model::MachineBuilder b("cable");
    b.adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
        .endpoint(model::Flow::Render, "Speakers", model::Speakers)
        .exclusiveMode(allowed, priority)
        .endpoint(model::Flow::Capture, "Line In", model::LineLevel)
        .exclusiveMode(allowed, priority)
        .endpoint(model::Flow::Capture, "Microphone", model::Microphone)
        .route(kOut, kIn);
    b.lastEndpoint().stream.bits = {8, 16}; // the microphone records 8-bit too
    return b.build();
}

libAudio::StaticPCMBuffer buffer(unsigned int bits, double seconds) {
    WAVEFORMATEX format{};
    libAudio::createWaveformatEx(2, bits, 48000, format);
    libAudio::StaticPCMBuffer made;
    EXPECT_TRUE(libAudio::createPCMBuffer(format, seconds, made));
    return made;
}

// A shared stream of the mix format, open (not started) on the endpoint.
CComPtr<IAudioClient> sharedStream(IMMDevice* endpoint) {
    CComPtr<IAudioClient> client;
    EXPECT_EQ(S_OK, endpoint->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr,
                                       reinterpret_cast<void**>(&client)));
    WAVEFORMATEX* mix = nullptr;
    EXPECT_EQ(S_OK, client->GetMixFormat(&mix));
    EXPECT_EQ(S_OK, client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 500000, 0, mix, nullptr));
    CoTaskMemFree(mix);
    return client;
}

using Request = std::pair<AUDCLNT_SHAREMODE, HRESULT>;

// The Initialize calls made on the endpoint, out of requests.
std::vector<Request> requestsOn(const std::vector<sim::InitializeRequest>& requests,
                                const std::string& endpoint) {
    std::vector<Request> made;
    for (const sim::InitializeRequest& r : requests) {
        if (r.endpoint == endpoint) {
            made.emplace_back(r.mode, r.result);
        }
    }
    return made;
}

using DriverSettingsTest = StreamingTest;

// Both endpoints are held by shared streams and refuse exclusive access: the renderer and
// the capture retry in shared mode with their own formats, 16-bit and 24-bit PCM at the mix
// rate, and the tone arrives converted but whole.
TEST_F(DriverSettingsTest, SharedModeStreamsAnyDepthAtTheMixRateWhenExclusiveIsRefused) {
    sim::installMachine(cable(true, false));
    CComPtr<IAudioClient> otherOut = sharedStream(device(kOut));
    CComPtr<IAudioClient> otherIn = sharedStream(device(kIn));
    sim::takeInitializeRequests();

    libAudio::StaticPCMBuffer played = tone(1000.0, 0.25); // a buffer the driver takes whole
    libAudio::StaticPCMBuffer recorded = buffer(24, 0.5);
    libAudio::AudioRendererEx renderer;
    libAudio::AudioCaptureEx capture;
    ASSERT_TRUE(renderer.initialize(device(kOut), &played));
    ASSERT_TRUE(capture.initialize(device(kIn), &recorded));
    const std::vector<Request> fellBack = {{AUDCLNT_SHAREMODE_EXCLUSIVE, AUDCLNT_E_DEVICE_IN_USE},
                                           {AUDCLNT_SHAREMODE_SHARED, S_OK}};
    const std::vector<sim::InitializeRequest> requests = sim::takeInitializeRequests();
    EXPECT_EQ(fellBack, requestsOn(requests, kOut));
    // The capture halves its 500 periods down to a period the driver takes first.
    std::vector<Request> in = requestsOn(requests, kIn);
    ASSERT_GE(in.size(), 2u);
    EXPECT_EQ(fellBack, std::vector<Request>(in.end() - 2, in.end()));

    ASSERT_TRUE(renderer.play(0, never()));
    ASSERT_TRUE(capture.start(never()));
    EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    EXPECT_EQ(0, capture.threadExitCode());
    EXPECT_TRUE(renderer.isStillPlaying());
    renderer.stop();
    EXPECT_EQ(recorded.pcmArray().size(), recorded.writeMarker());
    for (unsigned int c : {0u, 1u}) {
        EXPECT_NEAR(sineLevel(16384), libAudio::levelDbfs(recorded, c), 0.5) << "channel " << c;
        EXPECT_NEAR(1000.0, libAudio::dominantFrequency(recorded, c), 5.0) << "channel " << c;
    }
}

// Exclusive mode disallowed: both client classes fail their exclusive format check, as they
// must, and ask for no stream; the legacy devices, shared by nature, play and record.
TEST_F(DriverSettingsTest, DisallowedExclusiveModeFailsTheFormatCheckAndLeavesTheLegacyDevices) {
    sim::installMachine(cable(false, true));
    testsupport::LogCapture log;
    const std::string notAllowed = std::to_string(int(AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED));
    libAudio::StaticPCMBuffer played = tone(1000.0, 1.0);
    libAudio::StaticPCMBuffer recorded = recording(0.5);
    libAudio::AudioRendererEx renderer;
    libAudio::AudioCaptureEx capture;
    EXPECT_FALSE(renderer.initialize(device(kOut), &played));
    EXPECT_FALSE(capture.initialize(device(kIn), &recorded));
    EXPECT_TRUE(logged(log, kRenderLog, kFatal, "Format requested is not supported" + notAllowed));
    EXPECT_TRUE(
        logged(log, kCaptureLog, kFatal, "Format requested is not supported " + notAllowed));
    EXPECT_TRUE(sim::takeInitializeRequests().empty());
    EXPECT_FALSE(renderer.play(0, never()));
    EXPECT_TRUE(renderer.compatibleFormat().empty()) << "no exclusive format is taken";

    libAudio::AudioRendererLegacyWave legacyOut;
    libAudio::AudioCaptureLegacyWave legacyIn;
    legacyOut.initialize(device(kOut), &played);
    ASSERT_TRUE(legacyIn.initialize(device(kIn), &recorded));
    ASSERT_TRUE(legacyOut.play(2, never()));
    ASSERT_TRUE(legacyIn.start(never()));
    EXPECT_TRUE(waitFor([&] { return !legacyIn.isStillRecording(); }));
    legacyIn.stop();
    legacyOut.stop();
    EXPECT_EQ(0, legacyIn.threadExitCode());
    EXPECT_NEAR(1000.0, libAudio::dominantFrequency(recorded, 0), 5.0);
    EXPECT_GT(libAudio::levelDbfs(recorded, 0), sineLevel(16384) - 6.0);
}

// A playback that had to take the device in shared mode is cut off when another program
// opens it exclusively: the device is invalidated, and the worker ends on its own.
TEST_F(DriverSettingsTest, ASharedPlaybackCutOffByAnExclusiveStreamEndsByItself) {
    sim::installMachine(cable(true, true));
    fault("Initialize", kOut, {AUDCLNT_E_DEVICE_IN_USE});
    libAudio::StaticPCMBuffer played = tone(1000.0, 0.25);
    libAudio::AudioRendererEx renderer(device(kOut), &played);
    ASSERT_EQ(AUDCLNT_SHAREMODE_SHARED,
              requestsOn(sim::takeInitializeRequests(), kOut).back().first);
    ASSERT_TRUE(renderer.play(0, never()));
    Sleep(50);
    EXPECT_TRUE(renderer.isStillPlaying());

    CComPtr<IAudioClient> holder;
    ASSERT_EQ(S_OK, device(kOut)->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr,
                                           reinterpret_cast<void**>(&holder)));
    const WAVEFORMATEX& format = played.format().Format;
    ASSERT_EQ(S_OK,
              holder->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100000, 100000, &format, nullptr));
    EXPECT_TRUE(waitFor([&] { return !renderer.isStillPlaying(); }));
    EXPECT_FALSE(sim::isStreaming(kOut));
    EXPECT_TRUE(renderer.stop());
}

// A driver may leave anything in a packet it flags silent. An unrouted microphone's packets
// are all silent: the recording holds silence in the buffer's own format, whatever was there
// before.
TEST_F(DriverSettingsTest, SilentPacketsRecordAsSilenceWhateverTheirBytes) {
    sim::installMachine(cable(true, true));
    for (unsigned int bits : {16u, 8u}) {
        libAudio::StaticPCMBuffer recorded = buffer(bits, 0.2);
        std::fill(recorded.pcmArray().data(),
                  recorded.pcmArray().data() + recorded.pcmArray().size(), 0x33);
        libAudio::AudioCaptureEx capture(device(kQuiet), &recorded);
        ASSERT_TRUE(capture.start(never()));
        ASSERT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
        EXPECT_EQ(0, capture.threadExitCode());
        ASSERT_EQ(recorded.pcmArray().size(), recorded.writeMarker());
        const unsigned char silence = bits == 8 ? 0x80 : 0x00;
        const unsigned char* bytes = recorded.pcmArray().data();
        const std::size_t loud =
            std::size_t(std::count_if(bytes, bytes + recorded.pcmArray().size(),
                                      [&](unsigned char b) { return b != silence; }));
        EXPECT_EQ(0u, loud) << bits << "-bit recording";
    }
}

} // namespace
} // namespace streaming
