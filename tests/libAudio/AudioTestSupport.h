// Helpers shared by the PCM and WAV tests: byte strings, wave formats as plain values,
// untagged log texts and a scratch directory.
#pragma once

#include "foundation/qelBuffer.h"
#include "libAudio/PCMSupport.h"
#include "platform/win32.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace audiotest {

constexpr int kDebug = 1, kInfo = 2, kError = 3;
using Fields = std::array<unsigned, 7>;

inline std::string le16(std::uint16_t v) {
    return {char(v & 0xFF), char(v >> 8)};
}
inline std::string le32(std::uint32_t v) {
    return le16(std::uint16_t(v)) + le16(std::uint16_t(v >> 16));
}

// id, size field and body; sizeField overrides the body's length to forge headers.
inline std::string chunk(const char* id, const std::string& body, long long sizeField = -1) {
    return std::string(id, 4) + le32(std::uint32_t(sizeField < 0 ? body.size() : sizeField)) + body;
}

// The six base fields of a format chunk.
inline std::string fmtFields(std::uint16_t tag, std::uint16_t channels, std::uint32_t rate,
                             std::uint16_t bits) {
    std::uint16_t align = std::uint16_t(channels * bits / 8);
    return le16(tag) + le16(channels) + le32(rate) + le32(align * rate) + le16(align) + le16(bits);
}

inline std::string bytesOf(const qel::Buffer<unsigned char>& b) {
    return b.size() ? std::string(reinterpret_cast<const char*>(b.data()), b.size()) : "";
}

inline qel::Buffer<unsigned char> bufferOf(const std::string& bytes) {
    qel::Buffer<unsigned char> b;
    b.assign(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    return b;
}

// Bytes 1, 2, 3, ... so that every copied range is recognisable.
inline std::string counting(std::size_t n) {
    std::string s(n, '\0');
    for (std::size_t i = 0; i < n; ++i) {
        s[i] = char(i + 1);
    }
    return s;
}

// The seven base fields as values: compares whole records without touching packed members.
inline Fields fields(const WAVEFORMATEX& f) {
    return {f.wFormatTag,  f.nChannels,      f.nSamplesPerSec, f.nAvgBytesPerSec,
            f.nBlockAlign, f.wBitsPerSample, f.cbSize};
}

inline WAVEFORMATEXTENSIBLE pcmFormat(unsigned channels, unsigned bits, unsigned rate) {
    WAVEFORMATEXTENSIBLE f{};
    libAudio::createWaveformatEx(channels, bits, rate, f.Format);
    return f;
}

// Message texts of one logger at one priority with the leading line tag removed.
inline std::vector<std::string> untagged(const testsupport::LogCapture& log,
                                         const std::string& logger, int priority) {
    std::vector<std::string> out;
    for (const std::string& text : log.texts(logger, priority)) {
        std::size_t blank = text.find_first_not_of("0123456789");
        bool tagged = blank > 0 && blank != std::string::npos && text[blank] == ' ';
        out.push_back(tagged ? text.substr(blank + 1) : "<no line tag> " + text);
    }
    return out;
}

class ScratchDir {
public:
    ScratchDir() {
        std::string pattern = ::testing::TempDir() + "libaudio-XXXXXX";
        if (char* made = mkdtemp(pattern.data())) {
            m_dir = made;
        }
    }
    ~ScratchDir() {
        std::error_code ignored;
        std::filesystem::remove_all(m_dir, ignored);
    }
    std::string path(const std::string& name) const { return (m_dir / name).string(); }
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path(name), std::ios::binary) << bytes;
        return path(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream in(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

private:
    std::filesystem::path m_dir;
};

} // namespace audiotest
