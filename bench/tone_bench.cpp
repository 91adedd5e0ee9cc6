// Test tone generation: libAudio::createSinusoid against a bare std::sin loop that writes
// the same number of 16-bit samples with the same stride.
#include "common.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <vector>

namespace {

// About 87 s of 48 kHz audio: large enough that per-call overhead does not matter.
constexpr unsigned int kToneBlocks = 4u * 1024 * 1024;

void BM_Tone_libAudio_createSinusoid(benchmark::State& state) {
    const auto channels = unsigned(state.range(0));
    libAudio::StaticPCMBuffer buffer = bench::makeBuffer(channels, kToneBlocks);
    for (auto _ : state) {
        bool ok = libAudio::createSinusoid(libAudio::PCMTrack::LEFT, bench::kAmplitude,
                                           bench::kToneHz, buffer);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(buffer.pcmArray().data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kToneBlocks);
}

void BM_Tone_baseline_sinLoop(benchmark::State& state) {
    const auto channels = std::size_t(state.range(0));
    std::vector<std::int16_t> samples(kToneBlocks * channels);
    const double step = bench::kToneHz * 6.283185307179586 / bench::kRate;
    const double scale = bench::kAmplitude;
    for (auto _ : state) {
        for (std::size_t i = 0; i < kToneBlocks; ++i) {
            samples[i * channels] = std::int16_t(std::sin(double(i) * step) * scale);
        }
        benchmark::DoNotOptimize(samples.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(std::int64_t(state.iterations()) * kToneBlocks);
}

} // namespace

BENCHMARK(BM_Tone_libAudio_createSinusoid)
    ->ArgName("channels")
    ->Arg(1)
    ->Arg(2)
    ->Apply(bench::shortRun);
BENCHMARK(BM_Tone_baseline_sinLoop)->ArgName("channels")->Arg(1)->Arg(2)->Apply(bench::shortRun);
