// A 10-second loopback on the laptop (speakers to microphone array) in virtual time: how
// much faster than real time the simulated platform runs the client renderer and capture.
// The counter "speedup" is the audio's duration over the wall time it took.
#include "common.h"

#include "libAudio/AudioCapture.h"
#include "libAudio/AudioRenderer.h"
#include "platform/CComPtr.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"

#include <chrono>
#include <string>

namespace {

constexpr double kSeconds = 10.0;
const std::string kSpeakers = "{0.0.0.00000000}.{3b1f6d2a-7c4e-4a8b-9f21-5d6e7a8b9c01}";
const std::string kMicArray = "{0.0.1.00000000}.{2c4e6a8b-5d7f-4b9c-a1e3-4f5a6b7c8d06}";

CComPtr<IMMDevice> endpoint(const std::string& id) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator);
    std::u16string wide(id.begin(), id.end());
    CComPtr<IMMDevice> device;
    enumerator->GetDevice(reinterpret_cast<LPCWSTR>(wide.c_str()), &device);
    return device;
}

void BM_Loopback_virtualTime(benchmark::State& state) {
    sim::installMachine(model::loadMachine("laptop"));
    sim::setClockMode(sim::ClockMode::Virtual);
    libAudio::StaticPCMBuffer tone = bench::makeBuffer(2, bench::kRate);
    libAudio::createSinusoid(libAudio::PCMTrack::LEFT, bench::kAmplitude, bench::kToneHz, tone);
    libAudio::createSinusoid(libAudio::PCMTrack::RIGHT, bench::kAmplitude, bench::kToneHz, tone);
    CComPtr<IMMDevice> speakers = endpoint(kSpeakers);
    CComPtr<IMMDevice> microphones = endpoint(kMicArray);
    double wall = 0;
    for (auto _ : state) {
        libAudio::StaticPCMBuffer recorded =
            bench::makeBuffer(2, unsigned(kSeconds * bench::kRate));
        libAudio::AudioRendererEx renderer(speakers, &tone);
        libAudio::AudioCaptureEx capture(microphones, &recorded);
        auto begin = std::chrono::steady_clock::now();
        renderer.play(0, [] { return false; });
        capture.start([] { return false; });
        while (capture.isStillRecording()) {
            Sleep(10);
        }
        capture.stop();
        renderer.stop();
        wall += std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        benchmark::DoNotOptimize(recorded.writeMarker());
    }
    state.counters["speedup"] = kSeconds * double(state.iterations()) / wall;
    sim::setClockMode(sim::ClockMode::Real);
}

BENCHMARK(BM_Loopback_virtualTime)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime()
    ->Iterations(3)
    ->Repetitions(3)
    ->ReportAggregatesOnly(true);

} // namespace
