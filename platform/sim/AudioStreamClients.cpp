// IAudioRenderClient and IAudioCaptureClient: a client's window on its stream's buffer.
//
// Injected faults (operation, target endpoint id): "GetBuffer" (either service),
// "ReleaseBuffer" (either), "GetNextPacketSize".
#include "platform/sim/ClientState.h"
#include "platform/sim/ComObject.h"

namespace sim {

namespace {

class RenderClient final : public ComObject<RenderClient, IAudioRenderClient> {
public:
    explicit RenderClient(std::shared_ptr<ClientState> state) : m_state(std::move(state)) {}

    HRESULT STDMETHODCALLTYPE GetBuffer(UINT32 frames, BYTE** data) override {
        if (data) {
            *data = nullptr;
        }
        if (HRESULT refused = usable("GetBuffer")) {
            return refused;
        }
        AudioEngine& engine = AudioEngine::instance();
        engine.catchUp();
        return engine.locked([&] { return m_state->ring->getBuffer(frames, data); });
    }

    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames, DWORD flags) override {
        if (HRESULT refused = usable("ReleaseBuffer")) {
            return refused;
        }
        return AudioEngine::instance().locked(
            [&] { return m_state->ring->releaseBuffer(frames, flags); });
    }

private:
    HRESULT usable(const char* operation) const { return m_state->usable(operation); }

    std::shared_ptr<ClientState> m_state;
};

class CaptureClient final : public ComObject<CaptureClient, IAudioCaptureClient> {
public:
    explicit CaptureClient(std::shared_ptr<ClientState> state) : m_state(std::move(state)) {}

    HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** data, UINT32* frames, DWORD* flags, UINT64* position,
                                        UINT64* time) override {
        if (HRESULT refused = usable("GetBuffer")) {
            if (data && frames && flags) {
                *data = nullptr;
                *frames = 0;
                *flags = 0;
            }
            return refused;
        }
        AudioEngine& engine = AudioEngine::instance();
        engine.catchUp();
        return engine.locked(
            [&] { return m_state->queue->getBuffer(data, frames, flags, position, time); });
    }

    HRESULT STDMETHODCALLTYPE ReleaseBuffer(UINT32 frames) override {
        if (HRESULT refused = usable("ReleaseBuffer")) {
            return refused;
        }
        return AudioEngine::instance().locked(
            [&] { return m_state->queue->releaseBuffer(frames); });
    }

    HRESULT STDMETHODCALLTYPE GetNextPacketSize(UINT32* frames) override {
        if (!frames) {
            return E_POINTER;
        }
        *frames = 0;
        if (HRESULT refused = usable("GetNextPacketSize")) {
            return refused;
        }
        AudioEngine& engine = AudioEngine::instance();
        engine.catchUp();
        auto next = [&] {
            return engine.locked([&] { return m_state->queue->nextPacketFrames(); });
        };
        *frames = next();
        if (*frames == 0) {
            m_state->pollWait();
            engine.catchUp();
            *frames = next();
        }
        return S_OK;
    }

private:
    HRESULT usable(const char* operation) const { return m_state->usable(operation); }

    std::shared_ptr<ClientState> m_state;
};

} // namespace

IAudioRenderClient* createRenderClient(std::shared_ptr<ClientState> state) {
    return static_cast<IAudioRenderClient*>(RenderClient::create(std::move(state)));
}

IAudioCaptureClient* createCaptureClient(std::shared_ptr<ClientState> state) {
    return static_cast<IAudioCaptureClient*>(CaptureClient::create(std::move(state)));
}

} // namespace sim
