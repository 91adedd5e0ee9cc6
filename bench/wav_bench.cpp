// WAV file throughput on the 64 MiB stereo buffer: libAudio's writer and WaveFile reader
// against libsndfile. Files go to a private temporary directory that main() removes.
// Nothing is synced to disk, so writes measure the path into the page cache.
#include "common.h"
#include "libAudio/WaveFile.h"

#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <cstdint>
#include <string>
#include <vector>

namespace {

std::string scratchFile(const char* name) {
    return bench::scratchDir() + "/" + name;
}

std::int64_t bufferBytes() {
    return std::int64_t(bench::largeStereoBuffer().pcmArray().size());
}

// Writes the buffer as 16-bit stereo WAV through libsndfile; false on any failure.
bool sndfileWrite(const std::string& path, const libAudio::StaticPCMBuffer& buffer) {
    SF_INFO info{};
    info.samplerate = int(buffer.format().Format.nSamplesPerSec);
    info.channels = buffer.format().Format.nChannels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) {
        return false;
    }
    const sf_count_t frames = buffer.numBlocks();
    const auto* samples = reinterpret_cast<const short*>(buffer.pcmArray().data());
    bool ok = sf_writef_short(file, samples, frames) == frames;
    return sf_close(file) == 0 && ok;
}

// Both readers read one file written by libsndfile, so they see identical bytes.
const std::string& readSource() {
    static const std::string path = [] {
        std::string p = scratchFile("read_source.wav");
        return sndfileWrite(p, bench::largeStereoBuffer()) ? p : std::string();
    }();
    return path;
}

void BM_Wav_libAudio_write(benchmark::State& state) {
    const libAudio::StaticPCMBuffer& buffer = bench::largeStereoBuffer();
    const qel::String path(scratchFile("libaudio_write.wav").c_str());
    for (auto _ : state) {
        if (!libAudio::writePCMToWaveFile(path, buffer)) {
            state.SkipWithError("writePCMToWaveFile failed");
            break;
        }
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * bufferBytes());
}

void BM_Wav_sndfile_write(benchmark::State& state) {
    const libAudio::StaticPCMBuffer& buffer = bench::largeStereoBuffer();
    const std::string path = scratchFile("sndfile_write.wav");
    for (auto _ : state) {
        if (!sndfileWrite(path, buffer)) {
            state.SkipWithError("libsndfile write failed");
            break;
        }
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * bufferBytes());
}

void BM_Wav_libAudio_read(benchmark::State& state) {
    const std::string& source = readSource();
    if (source.empty()) {
        state.SkipWithError("cannot write the source file");
        return;
    }
    const qel::String path(source.c_str());
    for (auto _ : state) {
        WaveFile wave;
        if (!wave.loadFile(path) || std::int64_t(wave.audioByteSize()) != bufferBytes()) {
            state.SkipWithError("WaveFile::loadFile failed");
            break;
        }
        benchmark::DoNotOptimize(wave.pcmData().data());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * bufferBytes());
}

void BM_Wav_sndfile_read(benchmark::State& state) {
    const std::string& source = readSource();
    if (source.empty()) {
        state.SkipWithError("cannot write the source file");
        return;
    }
    for (auto _ : state) {
        SF_INFO info{};
        SNDFILE* file = sf_open(source.c_str(), SFM_READ, &info);
        if (!file) {
            state.SkipWithError("sf_open failed");
            break;
        }
        // A fresh buffer each time, as WaveFile::loadFile allocates its own.
        std::vector<short> samples(std::size_t(info.frames) * std::size_t(info.channels));
        sf_count_t got = sf_readf_short(file, samples.data(), info.frames);
        sf_close(file);
        if (got != info.frames || std::int64_t(samples.size() * sizeof(short)) != bufferBytes()) {
            state.SkipWithError("sf_readf_short failed");
            break;
        }
        benchmark::DoNotOptimize(samples.data());
    }
    state.SetBytesProcessed(std::int64_t(state.iterations()) * bufferBytes());
}

} // namespace

BENCHMARK(BM_Wav_libAudio_write)->Apply(bench::shortRun);
BENCHMARK(BM_Wav_sndfile_write)->Apply(bench::shortRun);
BENCHMARK(BM_Wav_libAudio_read)->Apply(bench::shortRun);
BENCHMARK(BM_Wav_sndfile_read)->Apply(bench::shortRun);
