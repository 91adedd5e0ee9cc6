// The benchmark program's entry point with the library's logging silenced, and the
// scratch directory for the files the WAV benchmarks write, removed at exit.
#include "common.h"
#include "foundation/qelLog.h"

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace bench {

libAudio::StaticPCMBuffer makeBuffer(unsigned int channels, unsigned int blocks) {
    WAVEFORMATEXTENSIBLE fmt{};
    libAudio::createWaveformatEx(channels, 16, kRate, fmt.Format);
    libAudio::StaticPCMBuffer buffer;
    buffer.initialize(blocks, fmt);
    return buffer;
}

const libAudio::StaticPCMBuffer& largeStereoBuffer() {
    static const libAudio::StaticPCMBuffer buffer = [] {
        libAudio::StaticPCMBuffer b = makeBuffer(2, kLargeStereoBlocks);
        libAudio::createSinusoid(libAudio::PCMTrack::LEFT, kAmplitude, kToneHz, b);
        libAudio::createSinusoid(libAudio::PCMTrack::RIGHT, kAmplitude / 2, kToneHz * 3, b);
        return b;
    }();
    return buffer;
}

namespace {
std::string& scratchPath() {
    static std::string path;
    return path;
}

void removeScratchDir() {
    std::string& path = scratchPath();
    if (!path.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
        path.clear();
    }
}
} // namespace

const std::string& scratchDir() {
    std::string& path = scratchPath();
    if (path.empty()) {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "libaudio_bench.XXXXXX").string();
        if (!mkdtemp(pattern.data())) {
            std::abort();
        }
        path = pattern;
        std::atexit(removeScratchDir);
    }
    return path;
}

} // namespace bench

namespace {
// Error logging would land inside the timed loops; set before any benchmark runs.
[[maybe_unused]] const bool g_quietLog = [] {
    qel::LogFactory::setPriority(qel::LoggerPriority::PRIORITY_OFF);
    return true;
}();
} // namespace

BENCHMARK_MAIN();
