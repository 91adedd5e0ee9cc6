#include "platform/sim/SampleCodec.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace sim {

namespace {

bool consistent(const WAVEFORMATEX& f, bool isFloat) {
    bool bitsKnown = isFloat ? f.wBitsPerSample == 32
                             : (f.wBitsPerSample == 8 || f.wBitsPerSample == 16 ||
                                f.wBitsPerSample == 24 || f.wBitsPerSample == 32);
    return bitsKnown && f.nChannels > 0 && f.nSamplesPerSec > 0 &&
           f.nBlockAlign == f.nChannels * f.wBitsPerSample / 8 &&
           f.nAvgBytesPerSec == f.nSamplesPerSec * f.nBlockAlign;
}

// Whether an extensible format carries integer PCM (false) or floats (true); nothing when
// it carries something else.
std::optional<bool> extensibleKind(const WAVEFORMATEX* format) {
    if (format->cbSize < 22) {
        return std::nullopt;
    }
    const auto* extensible = reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(format);
    GUID sub;
    std::memcpy(&sub, &extensible->SubFormat, sizeof sub);
    if (sub == KSDATAFORMAT_SUBTYPE_PCM) {
        return false;
    }
    if (sub == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT) {
        return true;
    }
    return std::nullopt;
}

std::int32_t readInteger(const std::uint8_t* p, std::uint32_t bytes) {
    switch (bytes) {
    case 1:
        return (std::int32_t(p[0]) - 128) << 24;
    case 2:
        return std::int32_t(std::uint32_t(p[0]) << 16 | std::uint32_t(p[1]) << 24);
    case 3:
        return std::int32_t(std::uint32_t(p[0]) << 8 | std::uint32_t(p[1]) << 16 |
                            std::uint32_t(p[2]) << 24);
    default:
        return std::int32_t(std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 |
                            std::uint32_t(p[2]) << 16 | std::uint32_t(p[3]) << 24);
    }
}

void writeInteger(std::int64_t value, std::uint32_t bytes, std::uint8_t* p) {
    // value is scaled to 32 bits; keep the top bytes.
    std::uint32_t bits = std::uint32_t(std::int32_t(value));
    if (bytes == 1) {
        p[0] = std::uint8_t((bits >> 24) + 128);
        return;
    }
    for (std::uint32_t i = 0; i < bytes; ++i) {
        p[i] = std::uint8_t(bits >> (8 * (4 - bytes + i)));
    }
}

} // namespace

std::optional<SampleFormat> SampleFormat::from(const WAVEFORMATEX* format) {
    if (!format) {
        return std::nullopt;
    }
    std::optional<bool> isFloat;
    if (format->wFormatTag == WAVE_FORMAT_PCM) {
        isFloat = false;
    } else if (format->wFormatTag == WAVE_FORMAT_IEEE_FLOAT) {
        isFloat = true;
    } else if (format->wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        isFloat = extensibleKind(format);
    }
    if (!isFloat || !consistent(*format, *isFloat)) {
        return std::nullopt;
    }
    return SampleFormat{*isFloat, format->wBitsPerSample, format->nChannels,
                        std::uint32_t(format->nSamplesPerSec), format->nBlockAlign};
}

void decodeFrames(const SampleFormat& format, const std::uint8_t* bytes, std::uint32_t frames,
                  float* out) {
    const std::uint32_t sampleBytes = format.bits / 8;
    const std::size_t samples = std::size_t(frames) * format.channels;
    for (std::size_t i = 0; i < samples; ++i, bytes += sampleBytes) {
        if (format.isFloat) {
            std::memcpy(&out[i], bytes, sizeof(float));
        } else {
            out[i] = float(double(readInteger(bytes, sampleBytes)) / 2147483648.0);
        }
    }
}

void encodeFrames(const SampleFormat& format, const float* in, std::uint32_t frames,
                  std::uint8_t* bytes) {
    const std::uint32_t sampleBytes = format.bits / 8;
    const std::size_t samples = std::size_t(frames) * format.channels;
    const double top = std::ldexp(1.0, int(format.bits) - 1); // steps of the container
    for (std::size_t i = 0; i < samples; ++i, bytes += sampleBytes) {
        if (format.isFloat) {
            std::memcpy(bytes, &in[i], sizeof(float));
            continue;
        }
        double steps = std::clamp(std::nearbyint(double(in[i]) * top), -top, top - 1.0);
        writeInteger(std::int64_t(steps * (2147483648.0 / top)), sampleBytes, bytes);
    }
}

} // namespace sim
