#include "libAudio/SignalAnalysis.h"
#include "foundation/qelLog.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <new>
#include <numbers>
#include <optional>

static_assert(std::endian::native == std::endian::little, "samples are read as little-endian");

namespace libAudio {

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.pcmsupport")

// Longest stretch analysed in the frequency domain: 5.5 s at 48 kHz, enough resolution for
// any test tone, and the FFT stays a few milliseconds.
constexpr std::uint64_t kMaxAnalysed = std::uint64_t(1) << 18;

enum class Encoding { Unsigned8, Signed16, Signed24, Signed32, Float32, Float64 };

bool sameGuid(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

std::optional<Encoding> encodingOf(const WAVEFORMATEXTENSIBLE& format) {
    const WAVEFORMATEX& base = format.Format;
    bool integer = base.wFormatTag == WAVE_FORMAT_PCM;
    bool floating = base.wFormatTag == WAVE_FORMAT_IEEE_FLOAT;
    if (base.wFormatTag == WAVE_FORMAT_EXTENSIBLE) {
        // createPCMBuffer leaves the extension of its multi-channel buffers zero.
        integer = sameGuid(format.SubFormat, KSDATAFORMAT_SUBTYPE_PCM) ||
                  sameGuid(format.SubFormat, GUID{});
        floating = sameGuid(format.SubFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
    }
    if (integer) {
        switch (base.wBitsPerSample) {
        case 8:
            return Encoding::Unsigned8;
        case 16:
            return Encoding::Signed16;
        case 24:
            return Encoding::Signed24;
        case 32:
            return Encoding::Signed32;
        }
    } else if (floating) {
        switch (base.wBitsPerSample) {
        case 32:
            return Encoding::Float32;
        case 64:
            return Encoding::Float64;
        }
    }
    return std::nullopt;
}

// One channel of a buffer, checked so that every sample it yields lies inside the storage.
class ChannelView {
public:
    static std::optional<ChannelView> of(const StaticPCMBuffer& buffer, unsigned int channel,
                                         const char* operation);

    std::uint64_t size() const { return m_blocks; }
    double operator[](std::uint64_t block) const {
        const unsigned char* p = m_first + block * m_align;
        switch (m_encoding) {
        case Encoding::Unsigned8:
            return (double(p[0]) - 128.0) / 128.0;
        case Encoding::Signed16: {
            std::int16_t v;
            std::memcpy(&v, p, sizeof v);
            return v / 32768.0;
        }
        case Encoding::Signed24: {
            // Placed in the top of 32 bits so that the sign comes along.
            std::uint32_t u =
                std::uint32_t(p[0]) << 8 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 24;
            return double(std::int32_t(u)) / 2147483648.0;
        }
        case Encoding::Signed32: {
            std::int32_t v;
            std::memcpy(&v, p, sizeof v);
            return v / 2147483648.0;
        }
        case Encoding::Float32: {
            float v;
            std::memcpy(&v, p, sizeof v);
            return v;
        }
        case Encoding::Float64: {
            double v;
            std::memcpy(&v, p, sizeof v);
            return v;
        }
        }
        return 0.0;
    }

private:
    const unsigned char* m_first = nullptr;
    std::uint64_t m_blocks = 0;
    std::uint64_t m_align = 0;
    Encoding m_encoding = Encoding::Signed16;
};

std::optional<ChannelView> ChannelView::of(const StaticPCMBuffer& buffer, unsigned int channel,
                                           const char* operation) {
    const WAVEFORMATEX& base = buffer.format().Format;
    std::optional<Encoding> encoding = encodingOf(buffer.format());
    if (!encoding) {
        QEL_ERROR(operation, ": cannot read samples of format tag ", base.wFormatTag, " with ",
                  base.wBitsPerSample, " bits");
        return std::nullopt;
    }
    if (channel >= base.nChannels) {
        QEL_ERROR(operation, ": there is no channel ", channel, " in a format of ", base.nChannels,
                  " channels");
        return std::nullopt;
    }
    const std::uint64_t width = base.wBitsPerSample / 8u;
    const std::uint64_t align = base.nBlockAlign;
    // A block too small for its channels would put this channel's sample in the next block.
    if (align < (std::uint64_t(channel) + 1) * width) {
        QEL_ERROR(operation, ": a block of ", align, " bytes cannot hold channel ", channel, " of ",
                  base.wBitsPerSample, "-bit samples");
        return std::nullopt;
    }
    const std::uint64_t bytes = buffer.pcmArray().size();
    ChannelView view;
    view.m_blocks = bytes / align;
    if (view.m_blocks == 0) {
        QEL_ERROR(operation, ": the buffer holds no whole block (", bytes, " bytes)");
        return std::nullopt;
    }
    if (bytes % align != 0) {
        QEL_INFO(operation, ": the last ", bytes % align, " bytes are no whole block; left out");
    }
    view.m_first = buffer.pcmArray().data() + channel * width;
    view.m_align = align;
    view.m_encoding = *encoding;
    return view;
}

using Complex = std::complex<double>;

// In-place iterative radix-2 FFT; data.size() is a power of two.
void fft(std::vector<Complex>& data) {
    const std::size_t n = data.size();
    for (std::size_t i = 1, j = 0; i < n; ++i) {
        std::size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) {
            j ^= bit;
        }
        j |= bit;
        if (i < j) {
            std::swap(data[i], data[j]);
        }
    }
    // Twiddles computed directly rather than by repeated multiplication, which drifts.
    std::vector<Complex> twiddle(n / 2);
    for (std::size_t k = 0; k < n / 2; ++k) {
        twiddle[k] = std::polar(1.0, -2.0 * std::numbers::pi * double(k) / double(n));
    }
    for (std::size_t length = 2; length <= n; length <<= 1) {
        const std::size_t half = length / 2, stride = n / length;
        for (std::size_t start = 0; start < n; start += length) {
            for (std::size_t k = 0; k < half; ++k) {
                Complex odd = data[start + k + half] * twiddle[k * stride];
                data[start + k + half] = data[start + k] - odd;
                data[start + k] += odd;
            }
        }
    }
}

// The spectrum of real input (size a power of two, at least 4), bins 0 .. N/2: the input
// is packed into a complex sequence of half the length, transformed, and split.
std::vector<Complex> realFft(const std::vector<double>& x) {
    const std::size_t n = x.size(), m = n / 2;
    std::vector<Complex> z(m);
    for (std::size_t i = 0; i < m; ++i) {
        z[i] = Complex(x[2 * i], x[2 * i + 1]);
    }
    fft(z);
    std::vector<Complex> out(m + 1);
    for (std::size_t k = 0; k <= m; ++k) {
        Complex a = z[k % m];
        Complex b = std::conj(z[(m - k) % m]);
        Complex even = 0.5 * (a + b);
        Complex odd = Complex(0.0, -0.5) * (a - b);
        out[k] = even + std::polar(1.0, -2.0 * std::numbers::pi * double(k) / double(n)) * odd;
    }
    return out;
}

struct Analysis {
    std::vector<Complex> bins; // 0 .. N/2
    double binHz = 0;
    double windowSum = 0; // the window's sum: a sine of amplitude A peaks at A * sum / 2
    bool signal = false;  // anything left once the mean is removed
};

std::optional<Analysis> analyse(const StaticPCMBuffer& buffer, unsigned int channel,
                                const char* operation) {
    std::optional<ChannelView> view = ChannelView::of(buffer, channel, operation);
    if (!view) {
        return std::nullopt;
    }
    const std::uint32_t rate = buffer.format().Format.nSamplesPerSec;
    if (rate == 0) {
        QEL_ERROR(operation, ": the format has no sample rate");
        return std::nullopt;
    }
    const std::uint64_t count = std::min(view->size(), kMaxAnalysed);
    const std::uint64_t first = (view->size() - count) / 2;
    std::vector<double> x(std::max<std::size_t>(std::bit_ceil(count), 4), 0.0);
    double sum = 0.0;
    for (std::uint64_t i = 0; i < count; ++i) {
        x[i] = (*view)[first + i];
        sum += x[i];
    }
    const double mean = sum / double(count);
    Analysis a;
    for (std::uint64_t i = 0; i < count; ++i) {
        x[i] -= mean;
        // Below any integer format's step: what a constant leaves after rounding.
        a.signal = a.signal || std::abs(x[i]) > 1e-10;
        // The periodic Hann window over the samples, not over the zero padding.
        double w = count > 1
                       ? 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * double(i) / double(count))
                       : 1.0;
        x[i] *= w;
        a.windowSum += w;
    }
    a.binHz = double(rate) / double(x.size());
    a.bins = realFft(x);
    return a;
}

double decibels(double amplitude) {
    return amplitude > 0.0 ? std::max(20.0 * std::log10(amplitude), kSilenceDbfs) : kSilenceDbfs;
}

} // namespace

std::vector<double> channelSamples(const StaticPCMBuffer& buffer, unsigned int channel) {
    QEL_TRACE_SCOPE("libAudio::channelSamples");
    std::optional<ChannelView> view = ChannelView::of(buffer, channel, "channelSamples");
    std::vector<double> samples;
    if (!view) {
        return samples;
    }
    try {
        samples.resize(view->size());
    } catch (const std::bad_alloc&) {
        QEL_ERROR("channelSamples: no memory for ", view->size(), " samples");
        return samples;
    }
    for (std::uint64_t i = 0; i < view->size(); ++i) {
        samples[i] = (*view)[i];
    }
    return samples;
}

double levelDbfs(const StaticPCMBuffer& buffer, unsigned int channel) {
    QEL_TRACE_SCOPE("libAudio::levelDbfs");
    std::optional<ChannelView> view = ChannelView::of(buffer, channel, "levelDbfs");
    if (!view) {
        return kSilenceDbfs;
    }
    double squares = 0.0;
    for (std::uint64_t i = 0; i < view->size(); ++i) {
        double s = (*view)[i];
        squares += s * s;
    }
    double level = decibels(std::sqrt(squares / double(view->size())));
    QEL_DEBUG("Channel ", channel, " level ", level, " dBFS");
    return level;
}

double dominantFrequency(const StaticPCMBuffer& buffer, unsigned int channel) {
    QEL_TRACE_SCOPE("libAudio::dominantFrequency");
    std::optional<Analysis> a = analyse(buffer, channel, "dominantFrequency");
    if (!a || !a->signal) {
        return 0.0;
    }
    const std::vector<Complex>& bins = a->bins;
    std::size_t peak = 1;
    for (std::size_t k = 2; k + 1 < bins.size(); ++k) {
        if (std::norm(bins[k]) > std::norm(bins[peak])) {
            peak = k;
        }
    }
    double offset = 0.0;
    double left = std::abs(bins[peak - 1]), centre = std::abs(bins[peak]),
           right = std::abs(bins[peak + 1]);
    if (left > 0.0 && centre > 0.0 && right > 0.0) {
        double l = std::log(left), c = std::log(centre), r = std::log(right);
        double curvature = l - 2.0 * c + r;
        if (curvature < 0.0) {
            offset = std::clamp(0.5 * (l - r) / curvature, -0.5, 0.5);
        }
    }
    double frequency = (double(peak) + offset) * a->binHz;
    QEL_DEBUG("Channel ", channel, " dominant frequency ", frequency, " Hz");
    return frequency;
}

Spectrum magnitudeSpectrum(const StaticPCMBuffer& buffer, unsigned int channel) {
    QEL_TRACE_SCOPE("libAudio::magnitudeSpectrum");
    Spectrum spectrum;
    std::optional<Analysis> a = analyse(buffer, channel, "magnitudeSpectrum");
    if (!a) {
        return spectrum;
    }
    spectrum.binHz = a->binHz;
    spectrum.magnitudeDb.reserve(a->bins.size());
    for (const Complex& bin : a->bins) {
        spectrum.magnitudeDb.push_back(decibels(2.0 * std::abs(bin) / a->windowSum));
    }
    return spectrum;
}

} // namespace libAudio
