// Conversions from double that truncate toward zero like the C conversions do, but
// never invoke undefined behaviour on values outside the target range: those wrap
// modulo 2^32 as the 64-bit truncation would, and NaN gives 0.
#pragma once

#include <cmath>
#include <cstdint>

namespace libAudio {

inline std::int64_t truncateToInt64(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    if (value >= 9.2233720368547758e18) {
        return INT64_MAX;
    }
    if (value <= -9.2233720368547758e18) {
        return INT64_MIN;
    }
    return std::int64_t(value);
}

inline std::uint32_t truncateToUint32(double value) {
    return std::uint32_t(truncateToInt64(value));
}

inline std::int32_t truncateToInt32(double value) {
    return std::int32_t(std::uint32_t(truncateToInt64(value)));
}

} // namespace libAudio
