// Measurements of one channel of PCM: its level, its strongest tone and its magnitude
// spectrum, whatever the sample encoding of the buffer.
//
// Accepted formats: WAVE_FORMAT_PCM, WAVE_FORMAT_IEEE_FLOAT, and WAVE_FORMAT_EXTENSIBLE
// with the PCM or IEEE-float sub-format (or a zero sub-format, which createPCMBuffer
// leaves in the multi-channel buffers it makes). Integer samples are 8-bit unsigned or
// 16/24/32-bit signed little-endian, float samples 32 or 64-bit; full scale is 1.0 for
// float and the most negative code for integers (32768 for 16 bits). A format outside
// this set, a channel the blocks do not hold, a zero block size or a buffer without a
// whole block gives the neutral result of each function and an error in the log
// "libAudio.pcmsupport". A partial block at the end of the buffer is left out.
#pragma once

#include "foundation/export.h"
#include "libAudio/StaticPCMBuffer.h"

#include <vector>

namespace libAudio {

// The level reported for digital silence and for anything that cannot be measured.
inline constexpr double kSilenceDbfs = -200.0;

// The samples of one channel scaled to full scale (-1.0 .. 1.0); empty on bad input.
LIBAUDIO_API std::vector<double> channelSamples(const StaticPCMBuffer& buffer,
                                                unsigned int channel);

// RMS level in dB relative to a full-scale square wave: a full-scale sine reads -3.01 dB.
// DC counts towards the level. kSilenceDbfs for silence and on bad input.
LIBAUDIO_API double levelDbfs(const StaticPCMBuffer& buffer, unsigned int channel);

// The frequency in Hz of the strongest tone; 0 when the channel holds no signal apart from
// a constant, and on bad input (also a zero sample rate).
//
// Method: at most 2^18 samples from the middle of the channel (the start and end of a
// recording carry the device's ramps and latency) have their mean removed, are weighted by
// a Hann window and zero-padded to a power of two N; a radix-2 real FFT gives the spectrum.
// The peak is the strongest bin between DC and the Nyquist bin, refined by fitting a
// parabola through the logarithms of it and its two neighbours' magnitudes (the Hann
// window's main lobe is close to a Gaussian, for which that fit is exact). A clean tone
// comes out within a few hundredths of a bin (bin width: sample rate / N).
LIBAUDIO_API double dominantFrequency(const StaticPCMBuffer& buffer, unsigned int channel);

// The magnitude spectrum of the same analysis as dominantFrequency: N/2 + 1 bins from DC
// to the Nyquist frequency, bin k at k * binHz. Each bin is the amplitude of a sine in
// dB relative to full scale, corrected for the window's coherent gain, so a full-scale
// sine peaks at 0 dBFS when it falls on a bin and at most 1.5 dB lower between bins.
// The mean is removed first, so bin 0 holds only leakage. Bins at or below kSilenceDbfs
// are reported as kSilenceDbfs. Empty (binHz 0) on bad input.
struct Spectrum {
    std::vector<double> magnitudeDb;
    double binHz = 0;
};
LIBAUDIO_API Spectrum magnitudeSpectrum(const StaticPCMBuffer& buffer, unsigned int channel);

} // namespace libAudio
