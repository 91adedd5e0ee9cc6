// What an audio client and the render or capture client it hands out share: the stream,
// its format, its buffer and the endpoint it plays on.
#pragma once

#include "platform/sim/ClientBuffers.h"
#include "platform/sim/StreamRules.h"

#include <memory>
#include <string>

namespace sim {

struct ClientState {
    explicit ClientState(std::string endpointId) : endpoint(std::move(endpointId)) {}
    ~ClientState();

    // Whether the endpoint has left the machine or stopped being active.
    bool invalidated() const;
    // The checks every stream operation makes first: an injected fault, an uninitialised
    // client, an endpoint that has gone.
    HRESULT usable(const char* operation) const;
    // In virtual time a stream's thread that polls a running stream waits one device
    // period and a little: that is what lets the clock move on.
    void pollWait() const;

    const std::string endpoint;
    bool render = true;
    bool initialized = false;
    bool exclusive = false;
    DWORD flags = 0;
    SampleFormat format;
    BufferLayout layout;
    REFERENCE_TIME defaultPeriod = 100000;
    StreamId stream = 0;
    std::shared_ptr<RenderRing> ring;
    std::shared_ptr<CaptureQueue> queue;
    HANDLE event = nullptr;
};

IAudioRenderClient* createRenderClient(std::shared_ptr<ClientState> state);
IAudioCaptureClient* createCaptureClient(std::shared_ptr<ClientState> state);
IAudioClient* createAudioClient(const std::string& endpointId);

} // namespace sim
