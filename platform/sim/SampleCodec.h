// Samples of a wave format as floats in [-1, 1), and back.
#pragma once

#include "platform/win32.h"

#include <cstdint>
#include <optional>

namespace sim {

struct SampleFormat {
    bool isFloat = false;
    std::uint32_t bits = 0; // container bits of one sample
    std::uint32_t channels = 0;
    std::uint32_t rate = 0;
    std::uint32_t blockAlign = 0;

    // The format if it is a consistent integer PCM or float format; nothing otherwise.
    static std::optional<SampleFormat> from(const WAVEFORMATEX* format);
    bool operator==(const SampleFormat&) const = default;
};

// Reads frames of interleaved samples into frames * channels floats.
void decodeFrames(const SampleFormat& format, const std::uint8_t* bytes, std::uint32_t frames,
                  float* out);
// Writes frames * channels floats as samples, clipped to the format's range.
void encodeFrames(const SampleFormat& format, const float* in, std::uint32_t frames,
                  std::uint8_t* bytes);

} // namespace sim
