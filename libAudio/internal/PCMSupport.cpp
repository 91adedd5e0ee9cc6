#include "libAudio/PCMSupport.h"
#include "foundation/qelLog.h"
#include "libAudio/StaticPCMBuffer.h"
#include "libAudio/internal/numeric.h"

#include <bit>
#include <cmath>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "samples are read as little-endian");

namespace libAudio {

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.pcmsupport")

std::int16_t sampleAt(const unsigned char* data, std::uint64_t offset) {
    std::int16_t sample;
    std::memcpy(&sample, data + offset, sizeof sample);
    return sample;
}

// How many of the first numBlocks blocks have the channel's sample inside size bytes.
unsigned int blocksInside(std::uint64_t size, unsigned int numBlocks, unsigned int blockAlign,
                          unsigned int channel) {
    std::uint64_t sampleEnd = std::uint64_t(channel) * 2 + 2;
    if (size < sampleEnd) {
        return 0;
    }
    if (blockAlign == 0) {
        return numBlocks;
    }
    std::uint64_t inside = (size - sampleEnd) / blockAlign + 1;
    return inside < numBlocks ? unsigned(inside) : numBlocks;
}

// Integer partial sums stay below 2^53, so the total equals the sum taken in doubles in
// increasing order, whatever order the integers are added in.
std::int64_t sampleSum(const unsigned char* data, unsigned int numBlocks, unsigned int blockAlign,
                       unsigned int channel) {
    std::int64_t partial[4] = {0, 0, 0, 0};
    const unsigned char* sample = data + std::uint64_t(channel) * 2;
    unsigned int i = 0;
    for (; i + 4 <= numBlocks; i += 4, sample += 4 * std::uint64_t(blockAlign)) {
        for (int k = 0; k < 4; ++k) {
            partial[k] += sampleAt(sample, std::uint64_t(k) * blockAlign);
        }
    }
    for (; i < numBlocks; ++i, sample += blockAlign) {
        partial[0] += sampleAt(sample, 0);
    }
    return partial[0] + partial[1] + partial[2] + partial[3];
}

// Four partial sums: one running sum waits on the latency of every addition.
double sumOfSquaredDeviations(const unsigned char* data, unsigned int numBlocks,
                              unsigned int blockAlign, unsigned int channel, double m) {
    double partial[4] = {0.0, 0.0, 0.0, 0.0};
    const unsigned char* sample = data + std::uint64_t(channel) * 2;
    unsigned int i = 0;
    for (; i + 4 <= numBlocks; i += 4, sample += 4 * std::uint64_t(blockAlign)) {
        for (int k = 0; k < 4; ++k) {
            double d = sampleAt(sample, std::uint64_t(k) * blockAlign) - m;
            partial[k] += d * d;
        }
    }
    for (; i < numBlocks; ++i, sample += blockAlign) {
        double d = sampleAt(sample, 0) - m;
        partial[0] += d * d;
    }
    return (partial[0] + partial[1]) + (partial[2] + partial[3]);
}

unsigned int checkedBlocks(const StaticPCMBuffer& buffer, unsigned int channel) {
    unsigned int blocks = buffer.numBlocks();
    unsigned int inside =
        blocksInside(buffer.pcmArray().size(), blocks, buffer.format().Format.nBlockAlign, channel);
    if (inside < blocks) {
        QEL_ERROR("Channel ", channel, " lies outside the last ", blocks - inside,
                  " blocks of the buffer; they are left out");
    }
    return inside;
}

void fillBaseFormat(unsigned int channels, unsigned int bitsPerSample, unsigned int samplesPerSec,
                    WAVEFORMATEX& out) {
    bool plain = WORD(channels) < 3;
    std::int32_t product = std::int32_t(std::int64_t(channels) * std::int64_t(bitsPerSample));
    out.nChannels = WORD(channels);
    out.wBitsPerSample = WORD(bitsPerSample);
    out.nSamplesPerSec = samplesPerSec;
    out.cbSize = plain ? 0 : 22;
    out.wFormatTag = plain ? WAVE_FORMAT_PCM : WAVE_FORMAT_EXTENSIBLE;
    out.nBlockAlign = WORD(product / 8);
    out.nAvgBytesPerSec = DWORD(out.nBlockAlign) * samplesPerSec;
}

} // namespace

void createWaveformatEx(unsigned int channels, unsigned int bitsPerSample,
                        unsigned int samplesPerSec, WAVEFORMATEX& out) {
    fillBaseFormat(channels, bitsPerSample, samplesPerSec, out);
}

void createWaveformatExtend(unsigned int channels, unsigned int bitsPerSample,
                            unsigned int samplesPerSec, unsigned int channelMask,
                            unsigned short validBitsPerSample, WAVEFORMATEXTENSIBLE& out) {
    fillBaseFormat(channels, bitsPerSample, samplesPerSec, out.Format);
    out.dwChannelMask = channelMask;
    out.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
    out.Samples.wValidBitsPerSample = validBitsPerSample;
    if (out.Format.nBlockAlign == 0) {
        out.Format.nAvgBytesPerSec = DWORD(validBitsPerSample) * samplesPerSec;
    }
}

unsigned int numPCMBlock(const WAVEFORMATEX& fmt, double seconds) {
    if (fmt.nBlockAlign == 0) {
        QEL_ERROR("Block count asked of a format without block size");
        return 0;
    }
    return truncateToUint32(double(fmt.nAvgBytesPerSec) * seconds / fmt.nBlockAlign + 0.5);
}

unsigned int numPCMBlock(const WAVEFORMATEX& fmt, unsigned int byteCount) {
    if (fmt.nBlockAlign == 0) {
        QEL_ERROR("Block count asked of a format without block size");
        return 0;
    }
    return byteCount / fmt.nBlockAlign;
}

unsigned int blocksToMiliseconds(unsigned int blocks, const WAVEFORMATEX& fmt) {
    if (fmt.nAvgBytesPerSec == 0) {
        QEL_ERROR("Duration asked of a format without byte rate");
        return 0;
    }
    std::uint32_t bytesTimesThousand = std::uint32_t(fmt.nBlockAlign) * blocks * 1000u;
    return bytesTimesThousand / fmt.nAvgBytesPerSec;
}

bool createPCMBuffer(const WAVEFORMATEX& fmt, double seconds, StaticPCMBuffer& out) {
    QEL_TRACE_SCOPE("libAudio::createPCMBuffer");
    if (fmt.nAvgBytesPerSec == 0 || fmt.nBlockAlign == 0) {
        QEL_ERROR("Invalid wave format");
        return false;
    }
    WAVEFORMATEXTENSIBLE format{};
    format.Format = fmt;
    unsigned int blocks =
        truncateToUint32(double(fmt.nAvgBytesPerSec) * seconds / fmt.nBlockAlign + 0.5);
    try {
        out.initialize(blocks, format);
    } catch (const std::bad_alloc&) {
        QEL_ERROR("No memory for ", blocks, " blocks of PCM");
        return false;
    }
    return blocks == std::uint32_t(out.pcmArray().size() / fmt.nBlockAlign);
}

bool createSinusoid(PCMTrack::Channel channel, unsigned int amplitude, double frequency,
                    StaticPCMBuffer& buffer) {
    QEL_TRACE_SCOPE("libAudio::createSinusoid");
    unsigned int n = buffer.numBlocks();
    if (n == 0) {
        QEL_ERROR("No pcm storage in the wave buffer");
        return false;
    }
    const WAVEFORMATEX& fmt = buffer.format().Format;
    const std::uint64_t c = fmt.nChannels;
    const std::uint64_t firstSample = c == 1 ? 0 : std::uint64_t(unsigned(channel));
    const double angularStep = frequency * 6.283185307179586;
    const double period = 1.0 / fmt.nSamplesPerSec;
    const double scale = amplitude;
    unsigned char* data = buffer.pcmArray().data();
    const std::uint64_t size = buffer.pcmArray().size();
    for (unsigned int i = 0; i < n; ++i) {
        std::uint64_t offset = (i * c + firstSample) * 2;
        if (offset + 2 > size) {
            QEL_ERROR("The tone does not fit the buffer's blocks; it stops at block ", i);
            break;
        }
        double s = std::sin(double(i) * angularStep * period);
        std::uint16_t v = std::uint16_t(truncateToInt32(s * scale));
        std::memcpy(data + offset, &v, sizeof v);
    }
    return true;
}

double mean(const unsigned char* data, unsigned int numBlocks, unsigned int blockAlign,
            unsigned int channel) {
    QEL_TRACE_SCOPE("libAudio::mean");
    double result = double(sampleSum(data, numBlocks, blockAlign, channel)) / double(numBlocks);
    QEL_DEBUG("Signal mean = ", result);
    return result;
}

double mean(const StaticPCMBuffer& buffer, unsigned int channel) {
    return mean(buffer.pcmArray().data(), checkedBlocks(buffer, channel),
                buffer.format().Format.nBlockAlign, channel);
}

double stdDev(const unsigned char* data, unsigned int numBlocks, unsigned int blockAlign,
              unsigned int channel) {
    QEL_TRACE_SCOPE("libAudio::stdDev");
    double m = mean(data, numBlocks, blockAlign, channel);
    double result =
        std::sqrt(sumOfSquaredDeviations(data, numBlocks, blockAlign, channel, m) / numBlocks);
    QEL_DEBUG("Signal Std Dev = ", result);
    return result;
}

double stdDev(const StaticPCMBuffer& buffer, unsigned int channel) {
    return stdDev(buffer.pcmArray().data(), checkedBlocks(buffer, channel),
                  buffer.format().Format.nBlockAlign, channel);
}

} // namespace libAudio
