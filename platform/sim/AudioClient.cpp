// IAudioClient over the simulated engine: initialisation with the driver's rules, the
// stream's state machine, and the render and capture services.
//
// Injected faults (operation, target endpoint id): Initialize, IsFormatSupported,
// GetDevicePeriod, GetBufferSize, GetCurrentPadding, Start, Stop, Reset, GetService; and
// "DataDiscontinuity", which flags the next capture packet. A success code injected for
// GetBufferSize reports a buffer of 0 frames.
#include "platform/sim/ClientState.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/Runtime.h"

#include <atomic>
#include <cstring>
#include <mutex>
#include <utility>

namespace sim {

namespace {

constexpr DWORD kKnownStreamFlags = AUDCLNT_STREAMFLAGS_CROSSPROCESS |
                                    AUDCLNT_STREAMFLAGS_EVENTCALLBACK |
                                    AUDCLNT_STREAMFLAGS_NOPERSIST;

WAVEFORMATEX* taskCopy(const WAVEFORMATEXTENSIBLE& format) {
    auto* copy = static_cast<WAVEFORMATEX*>(CoTaskMemAlloc(sizeof format));
    if (copy) {
        std::memcpy(copy, &format, sizeof format);
    }
    return copy;
}

std::atomic<Hns> startLatency{0};

std::mutex requestsMutex;
std::vector<InitializeRequest>& requests() {
    static auto* made = new std::vector<InitializeRequest>;
    return *made;
}

class AudioClient final : public ComObject<AudioClient, IAudioClient> {
public:
    explicit AudioClient(const std::string& endpointId)
        : m_state(std::make_shared<ClientState>(endpointId)) {}

    HRESULT STDMETHODCALLTYPE Initialize(AUDCLNT_SHAREMODE mode, DWORD flags,
                                         REFERENCE_TIME duration, REFERENCE_TIME periodicity,
                                         const WAVEFORMATEX* format, LPCGUID session) override {
        HRESULT result = initialize(mode, flags, duration, periodicity, format, session);
        std::lock_guard lock(requestsMutex);
        requests().push_back({m_state->endpoint, mode, duration, periodicity, result});
        return result;
    }

    // As on Windows, a client whose Initialize got past the check of its arguments and
    // failed is spent: every later Initialize answers ALREADY_INITIALIZED, and the caller
    // needs a fresh client. A refused argument leaves the client as it was.
    HRESULT initialize(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration,
                       REFERENCE_TIME periodicity, const WAVEFORMATEX* format, LPCGUID) {
        if (m_state->initialized || m_spent) {
            return AUDCLNT_E_ALREADY_INITIALIZED;
        }
        if (!format) {
            return E_POINTER;
        }
        if ((mode != AUDCLNT_SHAREMODE_SHARED && mode != AUDCLNT_SHAREMODE_EXCLUSIVE) ||
            (flags & ~kKnownStreamFlags) || duration < 0 || periodicity < 0) {
            return E_INVALIDARG;
        }
        HRESULT result = openStream(mode, flags, duration, periodicity, format);
        m_spent = FAILED(result);
        return result;
    }

    // What the driver says to a well-formed request; an injected fault stands for its refusal.
    HRESULT openStream(AUDCLNT_SHAREMODE mode, DWORD flags, REFERENCE_TIME duration,
                       REFERENCE_TIME periodicity, const WAVEFORMATEX* format) {
        if (HRESULT fault = injectedFault("Initialize", m_state->endpoint)) {
            return fault;
        }
        std::optional<EndpointStreamInfo> info = streamInfo(m_state->endpoint);
        if (!info || !info->active) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        std::optional<SampleFormat> sample = SampleFormat::from(format);
        bool exclusive = mode == AUDCLNT_SHAREMODE_EXCLUSIVE;
        if (exclusive && !info->traits.exclusiveAllowed) {
            return AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED;
        }
        if (!sample ||
            (exclusive ? !supportsExclusive(*info, *sample) : !supportsShared(*info, *sample))) {
            return AUDCLNT_E_UNSUPPORTED_FORMAT;
        }
        BufferRequest request{exclusive, (flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0, duration,
                              periodicity};
        BufferLayout layout;
        if (HRESULT refused = layoutBuffer(*info, *sample, request, layout); FAILED(refused)) {
            return refused;
        }
        return open(*info, *sample, layout, exclusive, flags);
    }

    HRESULT STDMETHODCALLTYPE GetBufferSize(UINT32* frames) override {
        if (!frames) {
            return E_POINTER;
        }
        if (HRESULT refused = usable("GetBufferSize")) {
            if (SUCCEEDED(refused)) {
                *frames = 0; // an injected success: a driver that reports an empty buffer
                return S_OK;
            }
            return refused;
        }
        *frames = m_state->layout.frames;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetStreamLatency(REFERENCE_TIME* latency) override {
        if (!latency) {
            return E_POINTER;
        }
        if (!m_state->initialized) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        *latency = m_state->layout.period;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetCurrentPadding(UINT32* frames) override {
        if (!frames) {
            return E_POINTER;
        }
        if (HRESULT refused = usable("GetCurrentPadding")) {
            return refused;
        }
        if (m_state->render || m_state->queue->nextPacketFrames() == 0) {
            m_state->pollWait();
        }
        AudioEngine& engine = AudioEngine::instance();
        engine.catchUp();
        // A capture stream's padding is all it holds, however many packets that is.
        *frames = engine.locked([&] {
            return m_state->render ? m_state->ring->padding() : m_state->queue->queuedFrames();
        });
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE IsFormatSupported(AUDCLNT_SHAREMODE mode, const WAVEFORMATEX* format,
                                                WAVEFORMATEX** closest) override {
        if (closest) {
            *closest = nullptr;
        }
        if (HRESULT fault = injectedFault("IsFormatSupported", m_state->endpoint)) {
            return fault;
        }
        if (!format || (mode == AUDCLNT_SHAREMODE_SHARED && !closest)) {
            return E_POINTER;
        }
        if (mode != AUDCLNT_SHAREMODE_SHARED && mode != AUDCLNT_SHAREMODE_EXCLUSIVE) {
            return E_INVALIDARG;
        }
        std::optional<EndpointStreamInfo> info = streamInfo(m_state->endpoint);
        if (!info || !info->active) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        std::optional<SampleFormat> sample = SampleFormat::from(format);
        if (mode == AUDCLNT_SHAREMODE_EXCLUSIVE) {
            if (!info->traits.exclusiveAllowed) {
                return AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED; // whatever the format
            }
            return sample && supportsExclusive(*info, *sample) ? S_OK
                                                               : AUDCLNT_E_UNSUPPORTED_FORMAT;
        }
        if (!sample) {
            return AUDCLNT_E_UNSUPPORTED_FORMAT;
        }
        if (supportsShared(*info, *sample)) {
            return S_OK;
        }
        // Another rate or channel count: the shared engine would take the mix format instead.
        *closest = taskCopy(mixFormat(*info));
        return *closest ? S_FALSE : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetMixFormat(WAVEFORMATEX** format) override {
        if (!format) {
            return E_POINTER;
        }
        *format = nullptr;
        std::optional<EndpointStreamInfo> info = streamInfo(m_state->endpoint);
        if (!info || !info->active) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        *format = taskCopy(mixFormat(*info));
        return *format ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetDevicePeriod(REFERENCE_TIME* defaultPeriod,
                                              REFERENCE_TIME* minimumPeriod) override {
        if (!defaultPeriod && !minimumPeriod) {
            return E_POINTER;
        }
        if (HRESULT fault = injectedFault("GetDevicePeriod", m_state->endpoint)) {
            return fault;
        }
        std::optional<EndpointStreamInfo> info = streamInfo(m_state->endpoint);
        if (!info || !info->active) {
            return AUDCLNT_E_DEVICE_INVALIDATED;
        }
        if (defaultPeriod) {
            *defaultPeriod = info->traits.defaultPeriod;
        }
        if (minimumPeriod) {
            *minimumPeriod = info->traits.minimumPeriod;
        }
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Start() override {
        if (HRESULT refused = usable("Start")) {
            return refused;
        }
        AudioEngine& engine = AudioEngine::instance();
        if (engine.isRunning(m_state->stream)) {
            return AUDCLNT_E_NOT_STOPPED;
        }
        if ((m_state->flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) && !m_state->event) {
            return AUDCLNT_E_EVENTHANDLE_NOT_SET;
        }
        if (Hns latency = startLatency.load(); latency > 0) {
            Clock::instance().waitUntil(Clock::instance().now() + latency);
        }
        engine.start(m_state->stream);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Stop() override {
        if (HRESULT fault = injectedFault("Stop", m_state->endpoint)) {
            return fault;
        }
        if (!m_state->initialized) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        AudioEngine& engine = AudioEngine::instance();
        if (!engine.isRunning(m_state->stream)) {
            return S_FALSE;
        }
        engine.stop(m_state->stream);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE Reset() override {
        if (HRESULT fault = injectedFault("Reset", m_state->endpoint)) {
            return fault;
        }
        if (!m_state->initialized) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        AudioEngine& engine = AudioEngine::instance();
        if (engine.isRunning(m_state->stream)) {
            return AUDCLNT_E_NOT_STOPPED;
        }
        bool pending = engine.locked([&] {
            bool busy = m_state->render ? m_state->ring->pending() : m_state->queue->pending();
            if (!busy) {
                m_state->render ? m_state->ring->clear() : m_state->queue->clear();
            }
            return busy;
        });
        if (pending) {
            return AUDCLNT_E_BUFFER_OPERATION_PENDING;
        }
        engine.resetPosition(m_state->stream);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetEventHandle(HANDLE event) override {
        if (!event) {
            return E_INVALIDARG; // before the stream's own state is looked at
        }
        if (!m_state->initialized) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        if (!(m_state->flags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK)) {
            return AUDCLNT_E_EVENTHANDLE_NOT_EXPECTED;
        }
        m_state->event = event;
        AudioEngine::instance().setEvent(m_state->stream, event);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetService(REFIID iid, void** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (HRESULT fault = injectedFault("GetService", m_state->endpoint)) {
            return fault;
        }
        if (!m_state->initialized) {
            return AUDCLNT_E_NOT_INITIALIZED;
        }
        if (iid == IID_IAudioRenderClient && m_state->render) {
            *out = createRenderClient(m_state);
        } else if (iid == IID_IAudioCaptureClient && !m_state->render) {
            *out = createCaptureClient(m_state);
        } else {
            return E_NOINTERFACE;
        }
        return S_OK;
    }

private:
    HRESULT usable(const char* operation) const { return m_state->usable(operation); }

    HRESULT open(const EndpointStreamInfo& info, const SampleFormat& format,
                 const BufferLayout& layout, bool exclusive, DWORD flags) {
        ClientState& s = *m_state;
        s.render = info.flow == model::Flow::Render;
        s.format = format;
        s.layout = layout;
        s.exclusive = exclusive;
        s.flags = flags;
        s.defaultPeriod = info.traits.defaultPeriod;
        std::uint32_t packet = std::uint32_t(layout.period * format.rate / 10000000);
        if (s.render) {
            s.ring = std::make_shared<RenderRing>(format, layout.frames);
        } else {
            s.queue = std::make_shared<CaptureQueue>(format, layout.frames, packet, s.endpoint);
        }
        StreamSetup setup{s.endpoint,
                          s.render,
                          exclusive,
                          format,
                          layout.period,
                          nullptr,
                          info.traits.exclusivePriority};
        HRESULT opened = AudioEngine::instance().open(setup, s.ring, s.queue, s.stream);
        if (FAILED(opened)) {
            s.ring.reset();
            s.queue.reset();
            return opened;
        }
        s.initialized = true;
        return S_OK;
    }

    std::shared_ptr<ClientState> m_state;
    bool m_spent = false;
};

} // namespace

ClientState::~ClientState() {
    if (stream) {
        AudioEngine::instance().close(stream);
    }
}

HRESULT ClientState::usable(const char* operation) const {
    if (HRESULT fault = injectedFault(operation, endpoint)) {
        return fault;
    }
    if (!initialized) {
        return AUDCLNT_E_NOT_INITIALIZED;
    }
    return invalidated() ? AUDCLNT_E_DEVICE_INVALIDATED : S_OK;
}

// Gone, inactive, or cut off by an exclusive stream: each leaves the client unusable.
bool ClientState::invalidated() const {
    std::optional<EndpointStreamInfo> info = streamInfo(endpoint);
    return !info || !info->active || (stream && AudioEngine::instance().isPreempted(stream));
}

// The poller wakes a little after the period, as a thread does, not in step with the
// device: a client that refills only once its buffer reads empty has run dry by then.
void ClientState::pollWait() const {
    constexpr Hns kWakeUpLatency = 10000; // 1 ms
    Clock& clock = Clock::instance();
    if (clock.mode() == ClockMode::Virtual && AudioEngine::instance().isRunning(stream)) {
        clock.waitUntil(clock.now() + defaultPeriod + kWakeUpLatency);
    }
}

void setStreamStartLatency(Hns latency) {
    startLatency.store(latency);
}

std::vector<InitializeRequest> takeInitializeRequests() {
    std::lock_guard lock(requestsMutex);
    return std::exchange(requests(), {});
}

IAudioClient* createAudioClient(const std::string& endpointId) {
    return static_cast<IAudioClient*>(AudioClient::create(endpointId));
}

} // namespace sim
