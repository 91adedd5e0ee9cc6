// The taper between an endpoint's volume scalar (0..1, the position of a volume slider) and
// its level in dB. Both curves share one form: the amplitude relative to the range's top is
//     a(s) = a_min + (1 - a_min) * s^k,   a_min = 10^((min_db - max_db) / 20)
// so that 0 lands on the range's bottom and 1 on its top. k = 1 is linear in amplitude;
// the audio taper's exponent is fitted to what Windows was measured to answer
// (machines/README.md, "Sources for the platform's behaviour"): 0.5 gives -10.30 dB on a
// -63.5..0 dB range.
#pragma once

#include "platform/model/Machine.h"

#include <cmath>

namespace sim {

constexpr double kAudioTaperExponent = 1.714;

inline double taperExponent(model::VolumeTaper taper) {
    return taper == model::VolumeTaper::Linear ? 1.0 : kAudioTaperExponent;
}

inline float scalarFromDb(float db, const model::VolumeRange& range, model::VolumeTaper taper) {
    if (!(range.maxDb > range.minDb)) {
        return 1.0f;
    }
    double floor = std::pow(10.0, (range.minDb - range.maxDb) / 20.0);
    double amplitude = std::pow(10.0, (double(db) - range.maxDb) / 20.0);
    double share = std::fmin(1.0, std::fmax(0.0, (amplitude - floor) / (1.0 - floor)));
    return float(std::pow(share, 1.0 / taperExponent(taper)));
}

inline float dbFromScalar(float scalar, const model::VolumeRange& range, model::VolumeTaper taper) {
    if (!(range.maxDb > range.minDb)) {
        return range.maxDb;
    }
    double floor = std::pow(10.0, (range.minDb - range.maxDb) / 20.0);
    double s = std::fmin(1.0, std::fmax(0.0, double(scalar)));
    double amplitude = floor + (1.0 - floor) * std::pow(s, taperExponent(taper));
    double db = range.maxDb + 20.0 * std::log10(amplitude);
    return float(std::fmin(range.maxDb, std::fmax(range.minDb, db)));
}

} // namespace sim
