// IKsJackDescription over the jacks of a connector in the model.
#include "platform/sim/ComObject.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

namespace sim {

namespace {

KSJACK_DESCRIPTION describe(const model::Jack& jack) {
    KSJACK_DESCRIPTION description{};
    description.ChannelMapping = jack.channelMapping;
    description.Color = jack.color;
    description.ConnectionType = EPcxConnectionType(jack.connectionType);
    description.GeoLocation = EPcxGeoLocation(jack.geoLocation);
    description.GenLocation = EPcxGenLocation(jack.genLocation);
    description.PortConnection = EPxcPortConnection(jack.portConnection);
    description.IsConnected = jack.isConnected ? TRUE : FALSE;
    return description;
}

class JackDescription final : public ComObject<JackDescription, IKsJackDescription> {
public:
    explicit JackDescription(model::PartRef ref) : m_ref(std::move(ref)) {}

    HRESULT STDMETHODCALLTYPE GetJackCount(UINT* count) override {
        if (!count) {
            return E_POINTER;
        }
        return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
            *count = UINT(part.jacks.size());
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE GetJackDescription(UINT index,
                                                 KSJACK_DESCRIPTION* description) override {
        if (!description) {
            return E_POINTER;
        }
        return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
            if (index >= part.jacks.size()) {
                return E_INVALIDARG;
            }
            *description = describe(part.jacks[index]);
            return S_OK;
        });
    }

private:
    const model::PartRef m_ref;
};

} // namespace

IKsJackDescription* createJackDescription(const model::PartRef& ref) {
    return JackDescription::create(ref);
}

} // namespace sim
