// Fuzzes the WAV reader: each input is written to this process's scratch file and loaded
// with WaveFile::loadFile, then everything the loaded object offers is read back.
#include "foundation/qelLog.h"
#include "libAudio/WaveFile.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <unistd.h>

namespace {

// Far above any real format (32 channels of 32 bytes ask for 32 KiB).
constexpr std::uint64_t kMaxBlockBytes = 1u << 20;

std::string g_path;

void removeScratchFile() {
    if (!g_path.empty()) {
        std::remove(g_path.c_str());
    }
}

// One file per process, so that parallel fuzzing jobs do not overwrite each other's input.
bool createScratchFile() {
    const char* dir = std::getenv("TMPDIR");
    std::string pattern = std::string(dir && *dir ? dir : "/tmp") + "/libaudio_wave_fuzz.XXXXXX";
    int fd = mkstemp(pattern.data());
    if (fd < 0) {
        return false;
    }
    close(fd);
    g_path = pattern;
    std::atexit(removeScratchFile);
    return true;
}

bool writeInput(const std::uint8_t* data, std::size_t size) {
    std::FILE* file = std::fopen(g_path.c_str(), "wb");
    if (!file) {
        return false;
    }
    bool ok = std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && ok;
}

// Reads every byte so that the address sanitizer checks the whole range.
unsigned int checksum(const unsigned char* bytes, std::uint64_t count) {
    unsigned int sum = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
        sum += bytes[i];
    }
    return sum;
}

// A short data chunk is padded with zeros up to the size its header announces, which may be
// a gigabyte for a file of a few bytes. Read what can have come from the file and the last
// pages (so the sanitizer sees that the storage reaches the announced size), not every zero
// page in between; beyond the file there must be zeros only.
unsigned int checkData(const qel::Buffer<unsigned char>& pcm, std::size_t fileSize) {
    constexpr std::uint64_t kTail = 8192;
    const std::uint64_t size = pcm.size();
    const std::uint64_t head = std::min<std::uint64_t>(size, fileSize);
    unsigned int sum = checksum(pcm.data(), head);
    for (std::uint64_t i = std::max(head, size > kTail ? size - kTail : 0); i < size; ++i) {
        if (pcm.data()[i] != 0) {
            std::abort(); // bytes the file does not hold
        }
    }
    return sum;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Every rejected input logs an error; printing them would swamp the fuzzer's output.
    qel::LogFactory::setPriority(qel::LoggerPriority::PRIORITY_OFF);
    if (!createScratchFile()) {
        std::perror("libaudio wave_fuzz: cannot create a scratch file");
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (!writeInput(data, size)) {
        std::abort();
    }
    WaveFile wave;
    // A failed load still leaves an object whose accessors must be safe to use.
    volatile bool loaded = wave.loadFile(qel::String(g_path.c_str()));
    (void)loaded;

    const qel::Buffer<unsigned char>& pcm = wave.pcmData();
    volatile unsigned int sink = checkData(pcm, size);
    sink = sink + unsigned(wave.audioByteSize() + wave.numBlocks());
    WAVEFORMATEXTENSIBLE format = wave.waveFormat();
    sink = sink + format.Format.nChannels + format.Format.nBlockAlign;

    // nthAudioBlock returns nChannels * nBlockAlign bytes, both straight from the header,
    // so a 100-byte file can ask it for 4 GiB by design; asking only when the answer is a
    // sane size keeps the fuzzer on memory errors instead of that known cost.
    const std::uint64_t blockBytes =
        std::uint64_t(format.Format.nChannels) * format.Format.nBlockAlign;
    if (blockBytes > kMaxBlockBytes) {
        return 0;
    }
    // The first, last, one-past-the-end and a far block: the last two read zeros only.
    const std::uint64_t blocks = wave.numBlocks();
    const std::uint64_t picks[] = {0, blocks ? blocks - 1 : 0, blocks, blocks + 7};
    qel::Array<unsigned char> block;
    for (std::uint64_t n : picks) {
        if (wave.nthAudioBlock(unsigned(n), block)) {
            for (unsigned char byte : block) {
                sink = sink + byte;
            }
        }
    }
    return 0;
}
