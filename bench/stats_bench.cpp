// Signal statistics on 64 MiB of 16-bit stereo: libAudio::mean + libAudio::stdDev of one
// channel against a plain sum of every sample, which bounds what memory bandwidth allows.
#include "common.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>

namespace {

void BM_Stats_libAudio_meanStdDev(benchmark::State& state) {
    const libAudio::StaticPCMBuffer& buffer = bench::largeStereoBuffer();
    for (auto _ : state) {
        double m = libAudio::mean(buffer, 0);
        double s = libAudio::stdDev(buffer, 0);
        benchmark::DoNotOptimize(m);
        benchmark::DoNotOptimize(s);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) *
                            std::int64_t(buffer.pcmArray().size()));
}

void BM_Stats_baseline_streamingSum(benchmark::State& state) {
    const libAudio::StaticPCMBuffer& buffer = bench::largeStereoBuffer();
    const unsigned char* data = buffer.pcmArray().data();
    const std::uint64_t samples = buffer.pcmArray().size() / 2;
    for (auto _ : state) {
        std::int64_t sum = 0;
        for (std::uint64_t i = 0; i < samples; ++i) {
            std::int16_t v;
            std::memcpy(&v, data + i * 2, sizeof v);
            sum += v;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) *
                            std::int64_t(buffer.pcmArray().size()));
}

} // namespace

BENCHMARK(BM_Stats_libAudio_meanStdDev)->Apply(bench::shortRun);
BENCHMARK(BM_Stats_baseline_streamingSum)->Apply(bench::shortRun);
