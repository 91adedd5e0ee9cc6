// Shared by the benchmark files: buffer sizes, test buffers and the scratch directory.
#pragma once

#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>

namespace bench {

constexpr unsigned int kRate = 48000;
constexpr double kToneHz = 997.0;
constexpr unsigned int kAmplitude = 16000;
// 64 MiB of 16-bit stereo PCM: 16 Mi blocks of 4 bytes.
constexpr unsigned int kLargeStereoBlocks = 16u * 1024 * 1024;

// Run settings every benchmark shares, chosen to keep the whole run short: wall time,
// because file writes finish partly in the kernel, and three repetitions to show noise.
inline void shortRun(benchmark::internal::Benchmark* b) {
    b->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->MinTime(0.5)
        ->Repetitions(3)
        ->ReportAggregatesOnly(true);
}

// An empty 16-bit buffer of the given shape.
libAudio::StaticPCMBuffer makeBuffer(unsigned int channels, unsigned int blocks);

// The 64 MiB stereo buffer, with a tone on each channel, built once and shared.
const libAudio::StaticPCMBuffer& largeStereoBuffer();

// A private directory for the files the benchmarks write, removed at exit.
const std::string& scratchDir();

} // namespace bench
