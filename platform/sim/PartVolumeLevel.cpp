// IAudioVolumeLevel over a part's volume control in the model: a level per channel in dB,
// each within its channel's range. Levels are kept as set, not rounded to steps.
#include "platform/sim/ComObject.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

namespace sim {

namespace {

model::VolumeRange rangeOf(const model::VolumeControl& volume, UINT channel) {
    if (volume.ranges.empty()) {
        return {};
    }
    return channel < volume.ranges.size() ? volume.ranges[channel] : volume.ranges.front();
}

bool inRange(const model::VolumeControl& volume, UINT channel, float db) {
    model::VolumeRange range = rangeOf(volume, channel);
    return db >= range.minDb && db <= range.maxDb; // false for NaN too
}

// A level set in dB makes the remembered scalars stale; they are derived again.
void setLevel(model::VolumeControl& volume, UINT channel, float db) {
    volume.levelsDb[channel] = db;
    volume.scalars.clear();
}

class VolumeLevel final : public ComObject<VolumeLevel, IAudioVolumeLevel> {
public:
    explicit VolumeLevel(model::PartRef ref) : m_ref(std::move(ref)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == IID_IPerChannelDbLevel && object) {
            *object = static_cast<IPerChannelDbLevel*>(this);
            AddRef();
            return S_OK;
        }
        return ComObject::QueryInterface(iid, object);
    }

    HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* count) override {
        if (!count) {
            return E_POINTER;
        }
        return withVolume([&](model::VolumeControl& volume) {
            *count = volume.channels();
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE GetLevelRange(UINT channel, float* minDb, float* maxDb,
                                            float* stepDb) override {
        if (!minDb || !maxDb || !stepDb) {
            return E_POINTER;
        }
        return withChannel(channel, [&](model::VolumeControl& volume) {
            model::VolumeRange range = rangeOf(volume, channel);
            *minDb = range.minDb;
            *maxDb = range.maxDb;
            *stepDb = range.stepDb;
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE GetLevel(UINT channel, float* db) override {
        if (!db) {
            return E_POINTER;
        }
        return withChannel(channel, [&](model::VolumeControl& volume) {
            *db = volume.levelsDb[channel];
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE SetLevel(UINT channel, float db, LPCGUID) override {
        return withChannel(channel, [&](model::VolumeControl& volume) {
            if (!inRange(volume, channel, db)) {
                return E_INVALIDARG;
            }
            setLevel(volume, channel, db);
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE SetLevelUniform(float db, LPCGUID) override {
        return withVolume([&](model::VolumeControl& volume) {
            for (UINT channel = 0; channel < volume.channels(); ++channel) {
                if (!inRange(volume, channel, db)) {
                    return E_INVALIDARG;
                }
            }
            for (UINT channel = 0; channel < volume.channels(); ++channel) {
                setLevel(volume, channel, db);
            }
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE SetLevelAllChannels(float* levels, ULONG count, LPCGUID) override {
        if (!levels) {
            return E_POINTER;
        }
        return withVolume([&](model::VolumeControl& volume) {
            if (count != volume.channels()) {
                return E_INVALIDARG;
            }
            for (UINT channel = 0; channel < count; ++channel) {
                if (!inRange(volume, channel, levels[channel])) {
                    return E_INVALIDARG;
                }
            }
            for (UINT channel = 0; channel < count; ++channel) {
                setLevel(volume, channel, levels[channel]);
            }
            return S_OK;
        });
    }

private:
    // Runs f on the part's volume control under the lock; nothing is changed on failure.
    template <class F> HRESULT withVolume(F&& f) {
        return withPart(m_ref, [&](model::Part& part, model::Machine&) {
            return part.volume ? f(*part.volume) : E_NOTFOUND;
        });
    }

    template <class F> HRESULT withChannel(UINT channel, F&& f) {
        return withVolume([&](model::VolumeControl& volume) {
            return channel < volume.channels() ? f(volume) : E_INVALIDARG;
        });
    }

    const model::PartRef m_ref;
};

} // namespace

IAudioVolumeLevel* createVolumeLevel(const model::PartRef& ref) {
    return VolumeLevel::create(ref);
}

} // namespace sim
