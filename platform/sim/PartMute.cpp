// IAudioMute over a part's mute switch in the model.
#include "platform/sim/ComObject.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

namespace sim {

namespace {

class Mute final : public ComObject<Mute, IAudioMute> {
public:
    explicit Mute(model::PartRef ref) : m_ref(std::move(ref)) {}

    HRESULT STDMETHODCALLTYPE SetMute(BOOL mute, LPCGUID) override {
        return withMute([&](bool& muted) {
            muted = mute != FALSE;
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE GetMute(BOOL* mute) override {
        if (!mute) {
            return E_POINTER;
        }
        return withMute([&](bool& muted) {
            *mute = muted ? TRUE : FALSE;
            return S_OK;
        });
    }

private:
    template <class F> HRESULT withMute(F&& f) {
        return withPart(m_ref, [&](model::Part& part, model::Machine&) {
            return part.mute ? f(*part.mute) : E_NOTFOUND;
        });
    }

    const model::PartRef m_ref;
};

} // namespace

IAudioMute* createMute(const model::PartRef& ref) {
    return Mute::create(ref);
}

} // namespace sim
