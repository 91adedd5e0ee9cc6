// Legacy waveform-audio devices over the simulated engine. A device is a shared-mode
// stream of its endpoint in the format it was opened with; headers queue blocks that the
// engine plays or fills, and it marks them done.
//
// Injected faults (operation, target endpoint id): waveOutOpen, waveInOpen, waveOutWrite,
// waveInAddBuffer, waveInStart, waveOutReset, waveInStop, waveInReset; the code injected is
// returned as the MMRESULT.
#include "platform/sim/WaveDevices.h"
#include "platform/sim/AudioEngine.h"
#include "platform/sim/DefaultEndpoints.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/StreamRules.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <vector>

namespace sim {

namespace {

DWORD headerFlags(WAVEHDR* header) {
    return std::atomic_ref<DWORD>(header->dwFlags).load();
}

// What the device has recorded into a block; the program reads it while the engine writes.
std::atomic_ref<DWORD> bytesRecorded(WAVEHDR* header) {
    return std::atomic_ref<DWORD>(header->dwBytesRecorded);
}

// Flags of a header are read by the program's threads while the engine writes them.
void changeFlags(WAVEHDR* header, DWORD set, DWORD clear) {
    std::atomic_ref<DWORD> flags(header->dwFlags);
    DWORD old = flags.load();
    while (!flags.compare_exchange_weak(old, (old & ~clear) | set)) {
    }
}

// The blocks queued on one device, oldest first.
class HeaderQueue {
public:
    void add(WAVEHDR* header) { m_headers.push_back(header); }
    bool empty() const { return m_headers.empty(); }
    bool holds(const WAVEHDR* header) const {
        for (const WAVEHDR* h : m_headers) {
            if (h == header) {
                return true;
            }
        }
        return false;
    }
    WAVEHDR* front() const { return m_headers.front(); }
    // The oldest block is finished: the device hands it back.
    void finishFront() {
        changeFlags(m_headers.front(), WHDR_DONE, WHDR_INQUEUE);
        m_headers.pop_front();
    }
    void finishAll() {
        while (!m_headers.empty()) {
            finishFront();
        }
    }

private:
    std::deque<WAVEHDR*> m_headers;
};

class WaveOutFeed final : public RenderFeed {
public:
    explicit WaveOutFeed(const SampleFormat& format) : m_format(format) {}

    std::uint32_t pull(std::uint32_t frames, float* out) override {
        std::uint32_t done = 0;
        while (done < frames && !queue.empty()) {
            WAVEHDR* h = queue.front();
            std::uint32_t left = (h->dwBufferLength - m_offset) / m_format.blockAlign;
            if (m_offset == 0 && left == 0) {
                // Not one whole frame: nothing to play, however often it loops.
                queue.finishFront();
                if (!queue.empty()) {
                    startBlock(queue.front());
                }
                continue;
            }
            std::uint32_t run = std::min(frames - done, left);
            decodeFrames(m_format, reinterpret_cast<const std::uint8_t*>(h->lpData) + m_offset, run,
                         out + std::size_t(done) * m_format.channels);
            done += run;
            m_offset += run * m_format.blockAlign;
            if (run == left) {
                endOfBlock(h);
            }
        }
        return done;
    }
    bool active() const override { return !queue.empty(); }

    void begin(WAVEHDR* h) {
        if (queue.empty()) {
            startBlock(h);
        }
        queue.add(h);
    }
    void reset() {
        queue.finishAll();
        m_offset = 0;
    }

    HeaderQueue queue;

private:
    void startBlock(const WAVEHDR* h) {
        m_offset = 0;
        bool looped =
            (h->dwFlags & (WHDR_BEGINLOOP | WHDR_ENDLOOP)) == (WHDR_BEGINLOOP | WHDR_ENDLOOP);
        m_playsLeft = looped ? std::max<DWORD>(1, h->dwLoops) : 1;
    }
    void endOfBlock(WAVEHDR* h) {
        m_offset = 0;
        if (m_playsLeft == 0xFFFFFFFF || --m_playsLeft > 0) {
            return; // a loop without end, or another round
        }
        (void)h;
        queue.finishFront();
        if (!queue.empty()) {
            startBlock(queue.front());
        }
    }

    SampleFormat m_format;
    std::uint32_t m_offset = 0;
    DWORD m_playsLeft = 1;
};

class WaveInFeed final : public CaptureFeed {
public:
    explicit WaveInFeed(const SampleFormat& format) : m_format(format) {}

    void push(const float* samples, std::uint32_t frames, std::uint64_t, Hns, bool) override {
        std::vector<std::uint8_t> bytes(std::size_t(frames) * m_format.blockAlign);
        encodeFrames(m_format, samples, frames, bytes.data());
        std::size_t taken = 0;
        while (taken < bytes.size() && !queue.empty()) {
            WAVEHDR* h = queue.front();
            const DWORD recorded = bytesRecorded(h).load();
            std::size_t room =
                (h->dwBufferLength - recorded) / m_format.blockAlign * m_format.blockAlign;
            std::size_t run = std::min(room, bytes.size() - taken);
            std::memcpy(h->lpData + recorded, &bytes[taken], run);
            bytesRecorded(h).store(recorded + DWORD(run));
            taken += run;
            if (h->dwBufferLength - (recorded + run) < m_format.blockAlign) {
                queue.finishFront();
            }
        }
        // With no block queued the sound is lost, as on a real device.
    }
    bool active() const override { return !queue.empty(); }

    HeaderQueue queue;

private:
    SampleFormat m_format;
};

struct OpenDevice {
    std::string endpoint;
    bool render = true;
    SampleFormat format;
    StreamId stream = 0;
    std::shared_ptr<WaveOutFeed> out;
    std::shared_ptr<WaveInFeed> in;
};

// Open devices by handle; a handle is the address of its entry.
std::map<const void*, std::unique_ptr<OpenDevice>>& openDevices() {
    static auto* devices = new std::map<const void*, std::unique_ptr<OpenDevice>>;
    return *devices;
}

OpenDevice* find(const void* handle) {
    auto& devices = openDevices();
    auto it = devices.find(handle);
    return it == devices.end() ? nullptr : it->second.get();
}

MMRESULT openDevice(bool render, void** handle, UINT deviceId, const WAVEFORMATEX* format,
                    DWORD flags) {
    if ((flags & 0x00070000) != CALLBACK_NULL) {
        return MMSYSERR_NOTSUPPORTED; // only polling of the headers' flags is simulated
    }
    std::optional<std::string> endpoint = waveEndpoint(render, deviceId);
    if (!endpoint) {
        return MMSYSERR_BADDEVICEID;
    }
    if (HRESULT fault = injectedFault(render ? "waveOutOpen" : "waveInOpen", *endpoint)) {
        return MMRESULT(fault);
    }
    std::optional<SampleFormat> sample = SampleFormat::from(format);
    if (!sample) {
        return WAVERR_BADFORMAT;
    }
    if (flags & WAVE_FORMAT_QUERY) {
        return MMSYSERR_NOERROR;
    }
    if (!handle) {
        return MMSYSERR_INVALPARAM;
    }
    auto device = std::make_unique<OpenDevice>();
    device->endpoint = *endpoint;
    device->render = render;
    device->format = *sample;
    if (render) {
        device->out = std::make_shared<WaveOutFeed>(*sample);
    } else {
        device->in = std::make_shared<WaveInFeed>(*sample);
    }
    StreamSetup setup{*endpoint, render, false, *sample, 100000, nullptr};
    AudioEngine& engine = AudioEngine::instance();
    if (FAILED(engine.open(setup, device->out, device->in, device->stream))) {
        return MMSYSERR_ALLOCATED; // held exclusively by an audio client
    }
    engine.locked([&] {
        *handle = device.get();
        openDevices()[device.get()] = std::move(device);
    });
    return MMSYSERR_NOERROR;
}

HeaderQueue& queueOf(OpenDevice& d) {
    return d.render ? d.out->queue : d.in->queue;
}

MMRESULT closeDevice(const void* handle) {
    AudioEngine& engine = AudioEngine::instance();
    StreamId stream = 0;
    MMRESULT result = engine.locked([&]() -> MMRESULT {
        OpenDevice* d = find(handle);
        if (!d) {
            return MMSYSERR_INVALHANDLE;
        }
        if (!queueOf(*d).empty()) {
            return WAVERR_STILLPLAYING;
        }
        stream = d->stream;
        openDevices().erase(handle);
        return MMSYSERR_NOERROR;
    });
    if (stream) {
        engine.close(stream);
    }
    return result;
}

MMRESULT prepare(const void* handle, WAVEHDR* header, UINT size, bool prepared) {
    return AudioEngine::instance().locked([&]() -> MMRESULT {
        OpenDevice* d = find(handle);
        if (!d) {
            return MMSYSERR_INVALHANDLE;
        }
        if (!header || size < sizeof(WAVEHDR) || (prepared && !header->lpData)) {
            return MMSYSERR_INVALPARAM;
        }
        if (!prepared && queueOf(*d).holds(header)) {
            return WAVERR_STILLPLAYING;
        }
        changeFlags(header, prepared ? WHDR_PREPARED : 0, prepared ? 0 : WHDR_PREPARED);
        return MMSYSERR_NOERROR;
    });
}

// Queues a prepared block; starts a wave-out device, which plays as soon as it has one.
MMRESULT queueBlock(const void* handle, WAVEHDR* header, UINT size) {
    AudioEngine& engine = AudioEngine::instance();
    engine.catchUp();
    StreamId toStart = 0;
    MMRESULT result = engine.locked([&]() -> MMRESULT {
        OpenDevice* d = find(handle);
        if (!d) {
            return MMSYSERR_INVALHANDLE;
        }
        if (!header || size < sizeof(WAVEHDR)) {
            return MMSYSERR_INVALPARAM;
        }
        if (!(headerFlags(header) & WHDR_PREPARED)) {
            return WAVERR_UNPREPARED;
        }
        if (queueOf(*d).holds(header)) {
            return WAVERR_STILLPLAYING;
        }
        if (HRESULT fault =
                injectedFault(d->render ? "waveOutWrite" : "waveInAddBuffer", d->endpoint)) {
            return MMRESULT(fault);
        }
        changeFlags(header, WHDR_INQUEUE, WHDR_DONE);
        if (d->render) {
            d->out->begin(header);
            toStart = d->stream;
        } else {
            bytesRecorded(header).store(0);
            d->in->queue.add(header);
        }
        return MMSYSERR_NOERROR;
    });
    if (toStart) {
        engine.start(toStart); // the thread that writes is the one that waits for the block
    }
    return result;
}

// Stops a device; reset also hands back every queued block and rewinds the position.
MMRESULT halt(const void* handle, bool reset) {
    AudioEngine& engine = AudioEngine::instance();
    engine.catchUp();
    StreamId stream = 0;
    MMRESULT result = engine.locked([&]() -> MMRESULT {
        OpenDevice* d = find(handle);
        if (!d) {
            return MMSYSERR_INVALHANDLE;
        }
        const char* operation = d->render ? "waveOutReset" : reset ? "waveInReset" : "waveInStop";
        if (HRESULT fault = injectedFault(operation, d->endpoint)) {
            return MMRESULT(fault);
        }
        stream = d->stream;
        if (d->render) {
            d->out->reset();
        } else if (reset) {
            d->in->queue.finishAll();
        } else if (!d->in->queue.empty() && bytesRecorded(d->in->queue.front()).load() > 0) {
            d->in->queue.finishFront(); // the block being filled comes back with what it has
        }
        return MMSYSERR_NOERROR;
    });
    if (stream) {
        engine.stop(stream);
        if (reset) {
            engine.resetPosition(stream);
        }
    }
    return result;
}

MMRESULT startRecording(const void* handle) {
    StreamId stream = AudioEngine::instance().locked([&]() -> StreamId {
        OpenDevice* d = find(handle);
        return d && !d->render ? d->stream : 0;
    });
    if (!stream) {
        return MMSYSERR_INVALHANDLE;
    }
    std::optional<std::string> endpoint = openWaveEndpoint(handle);
    if (HRESULT fault = injectedFault("waveInStart", endpoint.value_or(""))) {
        return MMRESULT(fault);
    }
    AudioEngine::instance().start(stream);
    return MMSYSERR_NOERROR;
}

} // namespace

std::optional<std::string> openWaveEndpoint(const void* handle) {
    return AudioEngine::instance().locked([&]() -> std::optional<std::string> {
        OpenDevice* d = find(handle);
        return d ? std::optional<std::string>(d->endpoint) : std::nullopt;
    });
}

std::optional<std::string> waveEndpoint(bool render, unsigned int deviceId) {
    std::optional<std::string> found;
    model::Flow flow = render ? model::Flow::Render : model::Flow::Capture;
    withMachine([&](model::Machine& m) {
        unsigned int index = 0;
        for (const model::Endpoint& e : m.endpoints) {
            if (e.flow == flow && e.state == model::STATE_ACTIVE && index++ == deviceId) {
                found = e.id;
                return;
            }
        }
        // The mapper plays on the console default as it is now, not as the user chose it.
        if (deviceId == WAVE_MAPPER) {
            std::string current = defaultEndpointOf(m, flow, 0);
            if (!current.empty()) {
                found = current;
            }
        }
    });
    return found;
}

} // namespace sim

extern "C" {

MMRESULT waveOutOpen(LPHWAVEOUT device, UINT deviceId, LPCWAVEFORMATEX format, DWORD_PTR, DWORD_PTR,
                     DWORD flags) {
    return sim::openDevice(true, reinterpret_cast<void**>(device), deviceId, format, flags);
}

MMRESULT waveOutClose(HWAVEOUT device) {
    return sim::closeDevice(device);
}

MMRESULT waveOutPrepareHeader(HWAVEOUT device, LPWAVEHDR header, UINT size) {
    return sim::prepare(device, header, size, true);
}

MMRESULT waveOutUnprepareHeader(HWAVEOUT device, LPWAVEHDR header, UINT size) {
    return sim::prepare(device, header, size, false);
}

MMRESULT waveOutWrite(HWAVEOUT device, LPWAVEHDR header, UINT size) {
    return sim::queueBlock(device, header, size);
}

MMRESULT waveOutReset(HWAVEOUT device) {
    return sim::halt(device, true);
}

MMRESULT waveInOpen(LPHWAVEIN device, UINT deviceId, LPCWAVEFORMATEX format, DWORD_PTR, DWORD_PTR,
                    DWORD flags) {
    return sim::openDevice(false, reinterpret_cast<void**>(device), deviceId, format, flags);
}

MMRESULT waveInClose(HWAVEIN device) {
    return sim::closeDevice(device);
}

MMRESULT waveInPrepareHeader(HWAVEIN device, LPWAVEHDR header, UINT size) {
    return sim::prepare(device, header, size, true);
}

MMRESULT waveInUnprepareHeader(HWAVEIN device, LPWAVEHDR header, UINT size) {
    return sim::prepare(device, header, size, false);
}

MMRESULT waveInAddBuffer(HWAVEIN device, LPWAVEHDR header, UINT size) {
    return sim::queueBlock(device, header, size);
}

MMRESULT waveInStart(HWAVEIN device) {
    return sim::startRecording(device);
}

MMRESULT waveInStop(HWAVEIN device) {
    return sim::halt(device, false);
}

MMRESULT waveInReset(HWAVEIN device) {
    return sim::halt(device, true);
}
}
