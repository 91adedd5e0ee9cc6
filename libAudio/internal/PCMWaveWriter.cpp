// Writing PCM to WAV files. The header is 44 bytes: the format chunk carries only the six
// base fields even when the size field counts cbSize more bytes, and the RIFF size is
// 4 larger than what follows it. Readers that walk chunks by the "data" id handle both.
#include "foundation/qelLog.h"
#include "foundation/qelSystem.h"
#include "libAudio/PCMSupport.h"
#include "libAudio/StaticPCMBuffer.h"

#include <cstdio>

namespace libAudio {

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.pcmsupport")

class HeaderWriter {
public:
    void bytes(const char* text) {
        for (int i = 0; i < 4; ++i) {
            m_header[m_used++] = (unsigned char)text[i];
        }
    }
    void u16(std::uint16_t value) { little(value, 2); }
    void u32(std::uint32_t value) { little(value, 4); }
    const unsigned char* data() const { return m_header; }
    std::size_t size() const { return m_used; }

private:
    void little(std::uint32_t value, int count) {
        for (int i = 0; i < count; ++i) {
            m_header[m_used++] = (unsigned char)(value >> (8 * i));
        }
    }
    unsigned char m_header[44];
    std::size_t m_used = 0;
};

HeaderWriter waveHeader(const WAVEFORMATEX& fmt, std::uint32_t fmtSize, std::uint32_t riffSize,
                        unsigned long long dataSize) {
    HeaderWriter header;
    header.bytes("RIFF");
    header.u32(riffSize);
    header.bytes("WAVE");
    header.bytes("fmt ");
    header.u32(fmtSize);
    header.u16(fmt.wFormatTag);
    header.u16(fmt.nChannels);
    header.u32(fmt.nSamplesPerSec);
    header.u32(fmt.nAvgBytesPerSec);
    header.u16(fmt.nBlockAlign);
    header.u16(fmt.wBitsPerSample);
    header.bytes("data");
    header.u32(std::uint32_t(dataSize));
    return header;
}

} // namespace

bool createPCMWaveFile(const qel::String& path, const WAVEFORMATEX& fmt, const unsigned char* data,
                       unsigned long long size) {
    QEL_TRACE_SCOPE("createPCMWaveFile");
    DWORD error = 0;
    std::FILE* file = qel::System::fopen(path, qel::String("wb"), &error);
    if (!file) {
        return false;
    }
    std::uint32_t fmtSize = std::uint32_t(fmt.cbSize) + 16;
    std::uint32_t headerSize = fmtSize + 24;
    std::uint32_t riffSize = std::uint32_t(headerSize + size);
    QEL_INFO("Header Size ", headerSize);
    QEL_INFO("Data size ", size);
    HeaderWriter header = waveHeader(fmt, fmtSize, riffSize, size);
    std::fwrite(header.data(), 1, header.size(), file);
    if (size && data) {
        std::fwrite(data, 1, std::size_t(size), file);
    }
    std::fclose(file);
    QEL_INFO("Raw Wave File written: ", path.getUTF8String());
    return true;
}

bool writePCMToWaveFile(const qel::String& path, const StaticPCMBuffer& buffer) {
    return createPCMWaveFile(path, buffer.format().Format, buffer.pcmArray().data(),
                             buffer.pcmArray().size());
}

bool writePCMToWaveFile(const qel::String& path, const PCMTrack& track) {
    return createPCMWaveFile(path, track.format, track.pcm.data(), track.pcm.size());
}

} // namespace libAudio
