// StaticPCMBuffer: fixed-size interleaved PCM with its format and a write marker.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelBuffer.h"
#include "libAudio/PCMSupport.h"
#include "platform/win32.h"

#include <cstdint>

namespace libAudio {

class LIBAUDIO_API StaticPCMBuffer {
public:
    StaticPCMBuffer();
    explicit StaticPCMBuffer(const WAVEFORMATEXTENSIBLE& fmt);
    explicit StaticPCMBuffer(const PCMTrack& track);
    StaticPCMBuffer(const StaticPCMBuffer& other);
    StaticPCMBuffer(StaticPCMBuffer&& other) noexcept;
    StaticPCMBuffer& operator=(const StaticPCMBuffer& other);
    StaticPCMBuffer& operator=(StaticPCMBuffer&& other) noexcept;
    ~StaticPCMBuffer();

    void initialize(unsigned int blocks, const WAVEFORMATEXTENSIBLE& fmt);
    void set(const StaticPCMBuffer& other);
    void set(const qel::Buffer<unsigned char>& data, const WAVEFORMATEXTENSIBLE& fmt);
    // Four little-endian bytes per word. DWORD: the 32-bit unsigned long of Windows callers.
    void set(const qel::Array<DWORD>& values, const WAVEFORMATEX& fmt);
    void setFormat(const WAVEFORMATEXTENSIBLE& fmt) { m_format = fmt; }

    const WAVEFORMATEXTENSIBLE& format() const { return m_format; }
    qel::Buffer<unsigned char>& pcmArray() { return m_pcm; }
    const qel::Buffer<unsigned char>& pcmArray() const { return m_pcm; }

    unsigned int numBlocks() const;
    unsigned int circularBlockIndex(unsigned int index) const;
    double durationSeconds() const;
    std::int64_t duration() const;

    std::uint64_t fillDataBlocks(const qel::Buffer<unsigned char>& data);
    std::uint64_t fillDataBlocks(const unsigned char* data, unsigned int blocks);
    std::uint64_t availableSpace() const { return m_pcm.size() - m_writeMarker; }
    std::uint64_t writeMarker() const { return m_writeMarker; }
    void resetWriteMarker() { m_writeMarker = 0; }
    void zeroBuffer();

    bool pcmSample(unsigned int index, qel::Buffer<unsigned char>& out) const;
    void pcmSampleBlock(unsigned int start, unsigned int count, bool wrap,
                        qel::Buffer<unsigned char>& out) const;
    bool getChannelData(PCMTrack::Channel channel, qel::Buffer<unsigned char>& out) const;
    bool truncateFront(double seconds);

private:
    std::uint64_t fill(const unsigned char* data, std::uint64_t bytes);
    // Copies bytes [from, from + count) of the storage to out at outOffset; what lies
    // beyond the storage or beyond out is left as it is.
    void copyOut(std::uint64_t from, std::uint64_t count, qel::Buffer<unsigned char>& out,
                 std::uint64_t outOffset) const;

    WAVEFORMATEXTENSIBLE m_format;
    qel::Buffer<unsigned char> m_pcm;
    std::uint64_t m_writeMarker;
};

} // namespace libAudio
