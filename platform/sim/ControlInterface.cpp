// The description of one control a part offers: a name and the interface to activate.
#include "platform/sim/ComObject.h"
#include "platform/sim/TopologyObjects.h"

namespace sim {

namespace {

class ControlInterface final : public ComObject<ControlInterface, IControlInterface> {
public:
    ControlInterface(std::string name, const IID& iid) : m_name(std::move(name)), m_iid(iid) {}

    HRESULT STDMETHODCALLTYPE GetName(LPWSTR* name) override {
        if (!name) {
            return E_POINTER;
        }
        *name = taskString(m_name);
        return *name ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetIID(GUID* iid) override {
        if (!iid) {
            return E_POINTER;
        }
        *iid = m_iid;
        return S_OK;
    }

private:
    const std::string m_name;
    const IID m_iid;
};

} // namespace

IControlInterface* createControlInterface(const std::string& name, const IID& iid) {
    return ControlInterface::create(name, iid);
}

} // namespace sim
