#include "platform/sim/StreamRules.h"
#include "platform/sim/Runtime.h"

#include <algorithm>
#include <numeric>

namespace sim {

namespace {

// Limits of exclusive-mode streams.
constexpr REFERENCE_TIME kLongestPeriod = 5000000;   // 500 ms
constexpr REFERENCE_TIME kLongestBuffer = 20000000;  // 2 s
constexpr REFERENCE_TIME kLongestShared = 600000000; // 60 s: beyond is a caller's mistake
constexpr std::uint32_t kSharedPeriods = 3;          // the shared engine's smallest buffer

bool listed(const std::vector<std::uint32_t>& given, std::vector<std::uint32_t> defaults,
            std::uint32_t own, std::uint32_t value) {
    if (!given.empty()) {
        return std::find(given.begin(), given.end(), value) != given.end();
    }
    defaults.push_back(own);
    return std::find(defaults.begin(), defaults.end(), value) != defaults.end();
}

std::uint32_t framesOf(REFERENCE_TIME duration, std::uint32_t rate) {
    return std::uint32_t((duration * REFERENCE_TIME(rate) + 5000000) / 10000000);
}

} // namespace

std::optional<EndpointStreamInfo> streamInfo(const std::string& endpointId) {
    std::optional<EndpointStreamInfo> info;
    withMachine([&](model::Machine& m) {
        if (const model::Endpoint* e = m.findEndpoint(endpointId)) {
            info = EndpointStreamInfo{e->flow, e->state == model::STATE_ACTIVE, e->deviceFormat,
                                      e->stream};
        }
    });
    return info;
}

bool supportsExclusive(const EndpointStreamInfo& endpoint, const SampleFormat& format) {
    const WAVEFORMATEX& device = endpoint.deviceFormat.Format;
    const model::StreamTraits& t = endpoint.traits;
    return !format.isFloat &&
           listed(t.rates, {44100, 48000, 96000}, device.nSamplesPerSec, format.rate) &&
           listed(t.bits, {16, 24}, device.wBitsPerSample, format.bits) &&
           listed(t.channels, {1, 2}, device.nChannels, format.channels);
}

WAVEFORMATEXTENSIBLE mixFormat(const EndpointStreamInfo& endpoint) {
    WAVEFORMATEXTENSIBLE mix = endpoint.deviceFormat;
    mix.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    mix.Format.cbSize = 22;
    mix.Format.wBitsPerSample = 32;
    mix.Format.nBlockAlign = WORD(mix.Format.nChannels * 4);
    mix.Format.nAvgBytesPerSec = mix.Format.nSamplesPerSec * mix.Format.nBlockAlign;
    mix.Samples.wValidBitsPerSample = 32;
    mix.SubFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    return mix;
}

bool supportsShared(const EndpointStreamInfo& endpoint, const SampleFormat& format) {
    const WAVEFORMATEX& device = endpoint.deviceFormat.Format;
    return format.rate == device.nSamplesPerSec && format.channels == device.nChannels;
}

HRESULT layoutBuffer(const EndpointStreamInfo& endpoint, const SampleFormat& format,
                     const BufferRequest& request, BufferLayout& layout) {
    const model::StreamTraits& t = endpoint.traits;
    if (!request.exclusive) {
        layout.period = t.defaultPeriod;
        REFERENCE_TIME duration = std::max(request.duration, kSharedPeriods * t.defaultPeriod);
        if (duration > kLongestShared) {
            return E_OUTOFMEMORY;
        }
        layout.frames = framesOf(duration, format.rate);
        return S_OK;
    }
    layout.period = request.periodicity ? request.periodicity : t.defaultPeriod;
    if (layout.period < t.minimumPeriod || layout.period > kLongestPeriod) {
        return AUDCLNT_E_INVALID_DEVICE_PERIOD;
    }
    if (request.duration > kLongestBuffer) {
        return AUDCLNT_E_BUFFER_SIZE_ERROR;
    }
    if (request.eventDriven && request.duration != layout.period) {
        return AUDCLNT_E_BUFDURATION_PERIOD_NOT_EQUAL;
    }
    // The device moves whole DMA blocks: a buffer is a whole number of them.
    std::uint32_t unit = t.alignmentBytes / std::gcd(t.alignmentBytes, format.blockAlign);
    std::uint32_t frames = framesOf(std::max(request.duration, layout.period), format.rate);
    if (request.eventDriven && frames % unit != 0) {
        return AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED;
    }
    layout.frames = (frames + unit - 1) / unit * unit;
    return S_OK;
}

} // namespace sim
