// IAudioInputSelector over a part's selected input in the model. An input is named by the
// local id of a part linked into the selector.
#include "platform/sim/ComObject.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

#include <algorithm>

namespace sim {

namespace {

bool isInputOf(const model::TopologyDevice& device, std::uint32_t selector, UINT input) {
    return std::any_of(device.links.begin(), device.links.end(), [&](const model::Link& link) {
        return link.to == selector && link.from == input;
    });
}

class InputSelector final : public ComObject<InputSelector, IAudioInputSelector> {
public:
    explicit InputSelector(model::PartRef ref) : m_ref(std::move(ref)) {}

    HRESULT STDMETHODCALLTYPE GetSelection(UINT* id) override {
        if (!id) {
            return E_POINTER;
        }
        return withPart(m_ref, [&](model::Part& part, model::Machine&) {
            if (!part.selectedInput) {
                return E_NOTFOUND;
            }
            *id = *part.selectedInput;
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE SetSelection(UINT id, LPCGUID) override {
        return withPart(m_ref, [&](model::Part& part, model::Machine& machine) {
            if (!part.selectedInput) {
                return E_NOTFOUND;
            }
            if (!isInputOf(*machine.findDevice(m_ref.device), m_ref.localId, id)) {
                return E_INVALIDARG;
            }
            part.selectedInput = id;
            return S_OK;
        });
    }

private:
    const model::PartRef m_ref;
};

} // namespace

IAudioInputSelector* createInputSelector(const model::PartRef& ref) {
    return InputSelector::create(ref);
}

} // namespace sim
