// An endpoint's device format: the 40-byte WAVEFORMATEXTENSIBLE that Windows stores as
// PKEY_AudioEngine_DeviceFormat, built from the few numbers that describe it.
#pragma once

#include "platform/standin/mmreg.h"

#include <cstdint>

namespace model {

struct FormatFields {
    std::uint32_t channels = 2;
    std::uint32_t rate = 48000;
    std::uint32_t bits = 16;
    std::uint32_t validBits = 0;   // 0: equal to bits
    std::uint32_t channelMask = 0; // 0: the usual layout for the channel count
};

// SPEAKER_* mask of the usual layout: mono, stereo, quad, 5.1, 7.1; 0 otherwise.
std::uint32_t defaultChannelMask(std::uint32_t channels);

// Integer PCM in WAVE_FORMAT_EXTENSIBLE form (tag 0xFFFE, cbSize 22).
WAVEFORMATEXTENSIBLE makeDeviceFormat(const FormatFields& fields);

} // namespace model
