// The audio taper between a volume scalar (0..1, the position of a volume slider) and a
// level in dB: the scalar is linear in amplitude between the range's ends, so the first
// half of the slider covers most of the dB range, as an audio-tapered control does.
#pragma once

#include "platform/model/Machine.h"

#include <cmath>

namespace sim {

inline float scalarFromDb(float db, const model::VolumeRange& range) {
    double low = std::pow(10.0, range.minDb / 20.0);
    double high = std::pow(10.0, range.maxDb / 20.0);
    if (high <= low) {
        return 1.0f;
    }
    double s = (std::pow(10.0, db / 20.0) - low) / (high - low);
    return float(std::fmin(1.0, std::fmax(0.0, s)));
}

inline float dbFromScalar(float scalar, const model::VolumeRange& range) {
    double low = std::pow(10.0, range.minDb / 20.0);
    double high = std::pow(10.0, range.maxDb / 20.0);
    double db = 20.0 * std::log10(low + double(scalar) * (high - low));
    return float(std::fmin(range.maxDb, std::fmax(range.minDb, db)));
}

} // namespace sim
