// What an endpoint's driver accepts from a stream: formats in exclusive and shared mode,
// device periods and buffer sizes, with the result codes of the audio client.
#pragma once

#include "platform/model/Machine.h"
#include "platform/sim/SampleCodec.h"

#include <optional>
#include <string>

namespace sim {

struct EndpointStreamInfo {
    model::Flow flow = model::Flow::Render;
    bool active = false;
    WAVEFORMATEXTENSIBLE deviceFormat{};
    model::StreamTraits traits;
};

// The endpoint as a stream sees it; nothing when it has left the machine.
std::optional<EndpointStreamInfo> streamInfo(const std::string& endpointId);

bool supportsExclusive(const EndpointStreamInfo& endpoint, const SampleFormat& format);
// The shared-mode engine's format: the device's rate and channels as 32-bit float.
WAVEFORMATEXTENSIBLE mixFormat(const EndpointStreamInfo& endpoint);
// The engine converts sample types but not rates or channel counts: a shared-mode stream
// may be integer PCM of any depth or float, at the mix format's rate and channel count.
bool supportsShared(const EndpointStreamInfo& endpoint, const SampleFormat& format);

struct BufferRequest {
    bool exclusive = false;
    bool eventDriven = false;
    REFERENCE_TIME duration = 0;
    REFERENCE_TIME periodicity = 0;
};

struct BufferLayout {
    std::uint32_t frames = 0;
    REFERENCE_TIME period = 0;
};

// The buffer a driver grants, or the result code with which it refuses.
HRESULT layoutBuffer(const EndpointStreamInfo& endpoint, const SampleFormat& format,
                     const BufferRequest& request, BufferLayout& layout);

} // namespace sim
