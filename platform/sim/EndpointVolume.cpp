// Endpoint volume over the model: a level per channel within one dB range, the scalar
// last set per channel, and mute. The master level is the loudest channel; moving the
// master moves every channel by the same number of dB, keeping the balance. Scalars and
// levels convert along the machine's volume taper.
//
// Behaviour chosen where Windows leaves room: SetMute answers S_FALSE when the state does
// not change (documented); the level setters answer S_OK even then, as Windows does.
#include "platform/sim/ComObject.h"
#include "platform/sim/DeviceObjects.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/VolumeTaper.h"

#include <algorithm>
#include <functional>

namespace sim {

namespace {

model::VolumeRange rangeOf(const model::VolumeControl& v) {
    return v.ranges.empty() ? model::VolumeRange{} : v.ranges.front();
}

float scalarOf(const model::VolumeControl& v, UINT channel, model::VolumeTaper taper) {
    return channel < v.scalars.size() ? v.scalars[channel]
                                      : scalarFromDb(v.levelsDb[channel], rangeOf(v), taper);
}

UINT loudestChannel(const model::VolumeControl& v) {
    return UINT(std::max_element(v.levelsDb.begin(), v.levelsDb.end()) - v.levelsDb.begin());
}

void setChannel(model::VolumeControl& v, UINT channel, float db, float scalar,
                model::VolumeTaper taper) {
    if (v.scalars.size() != v.levelsDb.size()) {
        v.scalars.clear();
        for (float level : v.levelsDb) {
            v.scalars.push_back(scalarFromDb(level, rangeOf(v), taper));
        }
    }
    v.levelsDb[channel] = db;
    v.scalars[channel] = scalar;
}

bool inRange(float db, const model::VolumeRange& r) {
    return db >= r.minDb && db <= r.maxDb;
}

class EndpointVolume final : public ComObject<EndpointVolume, IAudioEndpointVolume> {
public:
    explicit EndpointVolume(std::string id) : m_id(std::move(id)) {}

    HRESULT STDMETHODCALLTYPE
    RegisterControlChangeNotify(IAudioEndpointVolumeCallback* cb) override {
        if (HRESULT fault = injectedFault("RegisterControlChangeNotify", m_id)) {
            return fault;
        }
        return cb ? registerVolumeCallback(m_id, cb) : E_POINTER;
    }
    HRESULT STDMETHODCALLTYPE
    UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* cb) override {
        if (HRESULT refused = refuseInsideCallback("UnregisterControlChangeNotify")) {
            return refused;
        }
        if (HRESULT fault = injectedFault("UnregisterControlChangeNotify", m_id)) {
            return fault;
        }
        return cb ? unregisterVolumeCallback(m_id, cb) : E_POINTER;
    }
    HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* count) override {
        return read("GetChannelCount", count, [&](const model::Endpoint& e, Taper) {
            *count = e.volume.channels();
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float db, LPCGUID context) override {
        return write("SetMasterVolumeLevel", context, [&](model::Endpoint& e, Taper taper) {
            if (!inRange(db, rangeOf(e.volume))) {
                return E_INVALIDARG;
            }
            moveMaster(e.volume, db, scalarFromDb(db, rangeOf(e.volume), taper), taper);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float scalar, LPCGUID context) override {
        return write("SetMasterVolumeLevelScalar", context, [&](model::Endpoint& e, Taper taper) {
            if (!(scalar >= 0.0f && scalar <= 1.0f)) {
                return E_INVALIDARG;
            }
            moveMaster(e.volume, dbFromScalar(scalar, rangeOf(e.volume), taper), scalar, taper);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float* db) override {
        return read("GetMasterVolumeLevel", db, [&](const model::Endpoint& e, Taper) {
            *db = e.volume.levelsDb[loudestChannel(e.volume)];
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* scalar) override {
        return read("GetMasterVolumeLevelScalar", scalar, [&](const model::Endpoint& e, Taper t) {
            *scalar = scalarOf(e.volume, loudestChannel(e.volume), t);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT channel, float db,
                                                    LPCGUID context) override {
        return write("SetChannelVolumeLevel", context, [&](model::Endpoint& e, Taper taper) {
            if (channel >= e.volume.channels() || !inRange(db, rangeOf(e.volume))) {
                return E_INVALIDARG;
            }
            setChannel(e.volume, channel, db, scalarFromDb(db, rangeOf(e.volume), taper), taper);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT channel, float scalar,
                                                          LPCGUID context) override {
        return write("SetChannelVolumeLevelScalar", context, [&](model::Endpoint& e, Taper t) {
            if (channel >= e.volume.channels() || !(scalar >= 0.0f && scalar <= 1.0f)) {
                return E_INVALIDARG;
            }
            setChannel(e.volume, channel, dbFromScalar(scalar, rangeOf(e.volume), t), scalar, t);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT channel, float* db) override {
        return read("GetChannelVolumeLevel", db, [&](const model::Endpoint& e, Taper) {
            if (channel >= e.volume.channels()) {
                return E_INVALIDARG;
            }
            *db = e.volume.levelsDb[channel];
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT channel, float* scalar) override {
        return read("GetChannelVolumeLevelScalar", scalar, [&](const model::Endpoint& e, Taper t) {
            if (channel >= e.volume.channels()) {
                return E_INVALIDARG;
            }
            *scalar = scalarOf(e.volume, channel, t);
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE SetMute(BOOL mute, LPCGUID context) override {
        return write("SetMute", context, [&](model::Endpoint& e, Taper) {
            bool wanted = mute != FALSE;
            if (e.muted == wanted) {
                return S_FALSE;
            }
            e.muted = wanted;
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetMute(BOOL* mute) override {
        return read("GetMute", mute, [&](const model::Endpoint& e, Taper) {
            *mute = e.muted ? TRUE : FALSE;
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT* step, UINT* count) override {
        if (!count) {
            return E_POINTER;
        }
        return read("GetVolumeStepInfo", step, [&](const model::Endpoint& e, Taper) {
            model::VolumeRange r = rangeOf(e.volume);
            *count = r.stepDb > 0 ? UINT((r.maxDb - r.minDb) / r.stepDb + 1.5f) : 1;
            float master = e.volume.levelsDb[loudestChannel(e.volume)];
            *step = r.stepDb > 0 ? UINT((master - r.minDb) / r.stepDb + 0.5f) : 0;
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID context) override { return step(+1, context); }
    HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID context) override { return step(-1, context); }
    HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* mask) override {
        return read("QueryHardwareSupport", mask, [&](const model::Endpoint&, Taper) {
            *mask = ENDPOINT_HARDWARE_SUPPORT_VOLUME | ENDPOINT_HARDWARE_SUPPORT_MUTE;
            return S_OK;
        });
    }
    HRESULT STDMETHODCALLTYPE GetVolumeRange(float* minDb, float* maxDb, float* stepDb) override {
        if (!maxDb || !stepDb) {
            return E_POINTER;
        }
        return read("GetVolumeRange", minDb, [&](const model::Endpoint& e, Taper) {
            model::VolumeRange r = rangeOf(e.volume);
            *minDb = r.minDb;
            *maxDb = r.maxDb;
            *stepDb = r.stepDb;
            return S_OK;
        });
    }

private:
    using Taper = model::VolumeTaper;

    static void moveMaster(model::VolumeControl& v, float db, float scalar, Taper taper) {
        if (v.levelsDb.empty()) {
            return;
        }
        UINT loudest = loudestChannel(v);
        float delta = db - v.levelsDb[loudest];
        model::VolumeRange r = rangeOf(v);
        for (UINT c = 0; c < v.channels(); ++c) {
            float level = std::clamp(v.levelsDb[c] + delta, r.minDb, r.maxDb);
            setChannel(v, c, level, c == loudest ? scalar : scalarFromDb(level, r, taper), taper);
        }
    }

    HRESULT step(int direction, LPCGUID context) {
        return write(direction > 0 ? "VolumeStepUp" : "VolumeStepDown", context,
                     [&](model::Endpoint& e, Taper taper) {
                         model::VolumeRange r = rangeOf(e.volume);
                         float master = e.volume.levelsDb.empty()
                                            ? r.maxDb
                                            : e.volume.levelsDb[loudestChannel(e.volume)];
                         float db = std::clamp(master + direction * r.stepDb, r.minDb, r.maxDb);
                         moveMaster(e.volume, db, scalarFromDb(db, r, taper), taper);
                         return S_OK;
                     });
    }

    template <class T>
    HRESULT read(const char* operation, T* out,
                 const std::function<HRESULT(const model::Endpoint&, Taper)>& get) {
        if (!out) {
            return E_POINTER;
        }
        if (HRESULT fault = injectedFault(operation, m_id)) {
            return fault;
        }
        HRESULT hr = DEVICE_INVALIDATED;
        withMachine([&](model::Machine& m) {
            if (const model::Endpoint* e = m.findEndpoint(m_id)) {
                hr = e->volume.channels() || !needsChannels(operation) ? get(*e, m.volumeTaper)
                                                                       : E_UNEXPECTED;
            }
        });
        return hr;
    }

    static bool needsChannels(const char* operation) {
        return std::string(operation).find("Level") != std::string::npos ||
               std::string(operation) == "GetVolumeStepInfo";
    }

    // Applies a change and tells the registered callbacks when something really changed.
    HRESULT write(const char* operation, LPCGUID context,
                  const std::function<HRESULT(model::Endpoint&, Taper)>& change) {
        if (HRESULT fault = injectedFault(operation, m_id)) {
            return fault;
        }
        HRESULT hr = DEVICE_INVALIDATED;
        bool changed = false;
        model::Endpoint after;
        Taper taper = Taper::Audio;
        withMachine([&](model::Machine& m) {
            if (model::Endpoint* e = m.findEndpoint(m_id)) {
                model::Endpoint before = *e;
                taper = m.volumeTaper;
                hr = change(*e, taper);
                changed = SUCCEEDED(hr) && (before.volume.levelsDb != e->volume.levelsDb ||
                                            before.muted != e->muted);
                after = *e;
            }
        });
        if (changed) {
            announce(after, taper, context ? *context : GUID{});
        }
        return hr;
    }

    void announce(const model::Endpoint& e, Taper taper, const GUID& context) const {
        std::vector<float> scalars;
        for (UINT c = 0; c < e.volume.channels(); ++c) {
            scalars.push_back(scalarOf(e.volume, c, taper));
        }
        float master = scalars.empty() ? 0.0f : scalarOf(e.volume, loudestChannel(e.volume), taper);
        notifyVolumeCallbacks(m_id, context, e.muted, master, scalars);
    }

    const std::string m_id;
};

} // namespace

IAudioEndpointVolume* createEndpointVolume(const std::string& endpointId) {
    return EndpointVolume::create(endpointId);
}

} // namespace sim
