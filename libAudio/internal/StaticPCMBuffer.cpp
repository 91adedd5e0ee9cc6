#include "libAudio/StaticPCMBuffer.h"
#include "foundation/qelLog.h"
#include "libAudio/internal/numeric.h"

#include <algorithm>
#include <cstring>

namespace libAudio {

namespace {
QEL_DEFINE_UNIT_LOGGER("qelraudio")

WAVEFORMATEXTENSIBLE defaultFormat() {
    WAVEFORMATEXTENSIBLE format{};
    format.Format.nBlockAlign = 1;
    format.Format.wBitsPerSample = 8;
    return format;
}

WAVEFORMATEXTENSIBLE withBase(const WAVEFORMATEX& base) {
    WAVEFORMATEXTENSIBLE format{};
    format.Format = base;
    return format;
}
} // namespace

StaticPCMBuffer::StaticPCMBuffer() : m_format(defaultFormat()), m_writeMarker(0xFFFFFFFFu) {}

StaticPCMBuffer::StaticPCMBuffer(const WAVEFORMATEXTENSIBLE& fmt)
    : m_format(fmt), m_writeMarker(0) {}

StaticPCMBuffer::StaticPCMBuffer(const PCMTrack& track)
    : m_format(withBase(track.format)), m_pcm(track.pcm), m_writeMarker(0) {}

StaticPCMBuffer::StaticPCMBuffer(const StaticPCMBuffer& other) = default;

StaticPCMBuffer::StaticPCMBuffer(StaticPCMBuffer&& other) noexcept
    : m_format(other.m_format), m_pcm(std::move(other.m_pcm)), m_writeMarker(other.m_writeMarker) {}

StaticPCMBuffer& StaticPCMBuffer::operator=(const StaticPCMBuffer& other) = default;

StaticPCMBuffer& StaticPCMBuffer::operator=(StaticPCMBuffer&& other) noexcept {
    if (this != &other) {
        m_format = other.m_format;
        m_pcm = std::move(other.m_pcm);
        m_writeMarker = other.m_writeMarker;
    }
    return *this;
}

StaticPCMBuffer::~StaticPCMBuffer() = default;

void StaticPCMBuffer::initialize(unsigned int blocks, const WAVEFORMATEXTENSIBLE& fmt) {
    m_pcm.release();
    std::uint32_t bytes = std::uint32_t(fmt.Format.nBlockAlign) * blocks;
    m_pcm.resize(bytes);
    m_format = fmt;
    m_writeMarker = 0;
}

void StaticPCMBuffer::set(const StaticPCMBuffer& other) {
    if (&other != this) {
        m_pcm.assign(other.m_pcm.data(), other.m_pcm.size());
        m_format = other.m_format;
    }
    m_writeMarker = 0;
}

void StaticPCMBuffer::set(const qel::Buffer<unsigned char>& data, const WAVEFORMATEXTENSIBLE& fmt) {
    if (&data != &m_pcm) {
        m_pcm.assign(data.data(), data.size());
    }
    m_format = fmt;
    m_writeMarker = 0;
}

void StaticPCMBuffer::set(const qel::Array<DWORD>& values, const WAVEFORMATEX& fmt) {
    m_pcm.release();
    m_pcm.resize(std::uint64_t(values.size()) * 4);
    unsigned char* out = m_pcm.data();
    for (DWORD value : values) {
        for (int b = 0; b < 4; ++b) {
            *out++ = (unsigned char)(value >> (8 * b));
        }
    }
    m_format.Format = fmt;
    m_writeMarker = 0;
}

unsigned int StaticPCMBuffer::numBlocks() const {
    unsigned int align = m_format.Format.nBlockAlign;
    return align ? std::uint32_t(m_pcm.size()) / align : 0;
}

unsigned int StaticPCMBuffer::circularBlockIndex(unsigned int index) const {
    unsigned int n = numBlocks();
    if (n == 0) {
        QEL_ERROR("Circular block index asked of a buffer without blocks");
        return 0;
    }
    return index % n;
}

double StaticPCMBuffer::durationSeconds() const {
    const WAVEFORMATEX& f = m_format.Format;
    if (f.nBlockAlign == 0 || f.nSamplesPerSec == 0) {
        return 0.0;
    }
    return double(m_pcm.size()) / f.nBlockAlign / f.nSamplesPerSec;
}

std::int64_t StaticPCMBuffer::duration() const {
    return truncateToInt64(durationSeconds() * 10000000.0);
}

std::uint64_t StaticPCMBuffer::fillDataBlocks(const qel::Buffer<unsigned char>& data) {
    unsigned int align = m_format.Format.nBlockAlign;
    if (align == 0) {
        QEL_ERROR("Cannot fill a buffer whose format has no block size");
        return 0;
    }
    return fill(data.data(), data.size() - data.size() % align);
}

std::uint64_t StaticPCMBuffer::fillDataBlocks(const unsigned char* data, unsigned int blocks) {
    return fill(data, std::uint64_t(blocks) * m_format.Format.nBlockAlign);
}

std::uint64_t StaticPCMBuffer::fill(const unsigned char* data, std::uint64_t bytes) {
    if (m_writeMarker > m_pcm.size()) {
        QEL_ERROR("The write marker ", m_writeMarker, " lies beyond the buffer's ", m_pcm.size(),
                  " bytes; initialize or set the buffer before filling it");
        return 0;
    }
    std::uint64_t copy = std::min(bytes, m_pcm.size() - m_writeMarker);
    if (copy == 0 || !data) {
        return 0;
    }
    std::memcpy(m_pcm.data() + m_writeMarker, data, copy);
    m_writeMarker += copy;
    return copy;
}

void StaticPCMBuffer::zeroBuffer() {
    if (m_pcm.size()) {
        std::memset(m_pcm.data(), 0, m_pcm.size());
    }
}

bool StaticPCMBuffer::pcmSample(unsigned int index, qel::Buffer<unsigned char>& out) const {
    std::uint64_t align = m_format.Format.nBlockAlign;
    std::uint64_t offset = align * index;
    if (offset >= m_pcm.size()) {
        QEL_ERROR("Channel ", index, " is not defined in the PCM buffer.");
        return false;
    }
    qel::Buffer<unsigned char> block;
    block.resize(align);
    copyOut(offset, align, block, 0);
    out = std::move(block);
    return true;
}

void StaticPCMBuffer::copyOut(std::uint64_t from, std::uint64_t count,
                              qel::Buffer<unsigned char>& out, std::uint64_t outOffset) const {
    std::uint64_t available = from < m_pcm.size() ? m_pcm.size() - from : 0;
    std::uint64_t room = outOffset < out.size() ? out.size() - outOffset : 0;
    std::uint64_t n = std::min({count, available, room});
    if (n) {
        std::memcpy(out.data() + outOffset, m_pcm.data() + from, n);
    }
}

void StaticPCMBuffer::pcmSampleBlock(unsigned int start, unsigned int count, bool wrap,
                                     qel::Buffer<unsigned char>& out) const {
    const std::uint32_t align = m_format.Format.nBlockAlign;
    out.release();
    out.resize(std::uint64_t(align) * count);
    const std::uint32_t n = numBlocks();
    if (n == 0) {
        QEL_ERROR("Blocks asked of a buffer without blocks");
        return;
    }
    const std::uint32_t size = std::uint32_t(m_pcm.size());
    const std::uint32_t pos = (start % n) * align;
    std::uint64_t outPos = 0;
    for (std::uint32_t remaining = count; remaining > 0;) {
        std::uint32_t k = std::min(remaining, n);
        std::uint32_t bytes = k * align;
        std::uint32_t last = bytes - align + pos;
        std::uint32_t r = last % size;
        if (r == last) {
            copyOut(pos, bytes, out, outPos);
        } else {
            copyOut(pos, bytes - r, out, outPos);
            if (wrap) {
                outPos += bytes - r;
                copyOut(0, r, out, outPos);
            }
        }
        remaining -= k;
    }
}

bool StaticPCMBuffer::getChannelData(PCMTrack::Channel channel,
                                     qel::Buffer<unsigned char>& out) const {
    QEL_TRACE_SCOPE("StaticPCMBuffer::getChannelData");
    if (unsigned(channel) >= 2) {
        QEL_ERROR("This class is not ready for multi-channel PCM storage yet");
        return false;
    }
    if (m_format.Format.nChannels == 1) {
        out = m_pcm;
        return true;
    }
    const std::uint32_t n = numBlocks();
    const std::uint64_t s = m_format.Format.wBitsPerSample / 8;
    const std::uint64_t align = m_format.Format.nBlockAlign;
    qel::Buffer<unsigned char> samples;
    samples.resize(s * n);
    for (std::uint32_t i = 0; i < n; ++i) {
        copyOut(i * align + s * unsigned(channel), s, samples, i * s);
    }
    out = std::move(samples);
    return true;
}

bool StaticPCMBuffer::truncateFront(double seconds) {
    QEL_TRACE_SCOPE("StaticPCMBuffer::truncateFront");
    std::uint32_t drop =
        std::uint32_t(truncateToInt64(double(m_format.Format.nSamplesPerSec) * seconds));
    if (drop < numBlocks()) {
        std::uint64_t offset = std::uint64_t(drop) * m_format.Format.nBlockAlign;
        qel::Buffer<unsigned char> rest;
        rest.assign(m_pcm.data() + offset, m_pcm.size() - offset);
        m_pcm = std::move(rest);
        return true;
    }
    QEL_ERROR("StaticPCMBuffer length is not long enough for the truncation. Check numBlocks() "
              "and duration() and recalculate the truncation length");
    return false;
}

} // namespace libAudio
