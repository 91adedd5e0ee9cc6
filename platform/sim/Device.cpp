#include "platform/sim/ClientState.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/DeviceObjects.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

#include <cctype>
#include <cstdlib>
#include <optional>

namespace sim {

namespace {

// LIBAUDIO_ELEVATED=0 (or false, no, off) runs the process as a user without administrator
// rights, whatever the machine says.
bool environmentDeniesElevation() {
    const char* value = std::getenv("LIBAUDIO_ELEVATED");
    if (!value) {
        return false;
    }
    std::string text(value);
    for (char& c : text) {
        c = char(std::tolower(static_cast<unsigned char>(c)));
    }
    return text == "0" || text == "false" || text == "no" || text == "off";
}

bool validStoreMode(DWORD mode) {
    return mode == STGM_READ || mode == STGM_WRITE || mode == STGM_READWRITE;
}

std::string interfaceName(REFIID iid) {
    if (iid == IID_IAudioEndpointVolume) {
        return "IAudioEndpointVolume";
    }
    if (iid == IID_IDeviceTopology) {
        return "IDeviceTopology";
    }
    if (iid == IID_IBaseFilter) {
        return "IBaseFilter";
    }
    if (iid == IID_IAudioClient) {
        return "IAudioClient";
    }
    return "other";
}

// A filter object with nothing behind it but its identity.
class BaseFilter final : public ComObject<BaseFilter, IBaseFilter> {};

class Device final : public ComObject<Device, IMMDevice, IMMEndpoint> {
public:
    explicit Device(std::string id) : m_id(std::move(id)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (iid == IID_IMMEndpoint && object) {
            *object = nullptr;
            if (HRESULT fault = injectedFault("QueryInterface.IMMEndpoint", m_id)) {
                return fault;
            }
        }
        return ComObject::QueryInterface(iid, object);
    }

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD, PROPVARIANT*, void** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (HRESULT fault = injectedFault("Activate." + interfaceName(iid), m_id)) {
            return fault;
        }
        std::optional<model::Endpoint> endpoint = snapshot();
        if (!endpoint) {
            return DEVICE_INVALIDATED;
        }
        return activate(iid, *endpoint, out);
    }

    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD mode, IPropertyStore** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (!validStoreMode(mode)) {
            return E_INVALIDARG;
        }
        if (HRESULT fault = injectedFault("OpenPropertyStore", m_id)) {
            return fault;
        }
        if (HRESULT denied = propertyStoreAccess(mode)) {
            return denied;
        }
        *out = createPropertyStore(m_id, mode);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (HRESULT fault = injectedFault("GetId", m_id)) {
            return fault;
        }
        *out = taskString(m_id);
        return *out ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
        if (!state) {
            return E_POINTER;
        }
        if (HRESULT fault = injectedFault("GetState", m_id)) {
            return fault;
        }
        std::optional<model::Endpoint> endpoint = snapshot();
        *state = endpoint ? endpoint->state : DWORD(DEVICE_STATE_NOTPRESENT);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* flow) override {
        if (!flow) {
            return E_POINTER;
        }
        if (HRESULT fault = injectedFault("GetDataFlow", m_id)) {
            return fault;
        }
        std::optional<model::Endpoint> endpoint = snapshot();
        if (!endpoint) {
            return DEVICE_INVALIDATED;
        }
        *flow = endpoint->flow == model::Flow::Render ? eRender : eCapture;
        return S_OK;
    }

private:
    std::optional<model::Endpoint> snapshot() const {
        std::optional<model::Endpoint> copy;
        withMachine([&](model::Machine& m) {
            if (const model::Endpoint* e = m.findEndpoint(m_id)) {
                copy = *e;
            }
        });
        return copy;
    }

    HRESULT activate(REFIID iid, const model::Endpoint& endpoint, void** out) {
        if (iid == IID_IAudioEndpointVolume) {
            *out = createEndpointVolume(m_id);
            return S_OK;
        }
        if (iid == IID_IDeviceTopology) {
            *out = endpoint.topologyDevice.empty() ? nullptr
                                                   : createDeviceTopology(endpoint.topologyDevice);
            return *out ? S_OK : E_NOINTERFACE;
        }
        if (iid == IID_IAudioClient) {
            if (endpoint.state != model::STATE_ACTIVE) {
                return DEVICE_INVALIDATED;
            }
            *out = createAudioClient(m_id);
            return S_OK;
        }
        if (iid == IID_IBaseFilter) {
            if (endpoint.state != model::STATE_ACTIVE) {
                return DEVICE_INVALIDATED;
            }
            *out = static_cast<IBaseFilter*>(BaseFilter::create());
            return S_OK;
        }
        return E_NOINTERFACE;
    }

    const std::string m_id;
};

// The device of an adapter, opened by the id of its topology filter: what a client reaches
// to walk on from a subunit to the adapter's own interfaces.
class AdapterDevice final : public ComObject<AdapterDevice, IMMDevice> {
public:
    explicit AdapterDevice(std::string id) : m_id(std::move(id)) {}

    HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD, PROPVARIANT*, void** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (HRESULT fault = injectedFault("Activate." + interfaceName(iid), m_id)) {
            return fault;
        }
        if (!present()) {
            return DEVICE_INVALIDATED;
        }
        if (iid != IID_IDeviceTopology) {
            return E_NOINTERFACE;
        }
        *out = createDeviceTopology(m_id);
        return *out ? S_OK : DEVICE_INVALIDATED;
    }

    HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD mode, IPropertyStore** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (!validStoreMode(mode)) {
            return E_INVALIDARG;
        }
        if (HRESULT fault = injectedFault("OpenPropertyStore", m_id)) {
            return fault;
        }
        if (HRESULT denied = propertyStoreAccess(mode)) {
            return denied;
        }
        *out = createAdapterPropertyStore(m_id, mode);
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE GetId(LPWSTR* out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (HRESULT fault = injectedFault("GetId", m_id)) {
            return fault;
        }
        *out = taskString(m_id);
        return *out ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT STDMETHODCALLTYPE GetState(DWORD* state) override {
        if (!state) {
            return E_POINTER;
        }
        if (HRESULT fault = injectedFault("GetState", m_id)) {
            return fault;
        }
        *state = present() ? DWORD(DEVICE_STATE_ACTIVE) : DWORD(DEVICE_STATE_NOTPRESENT);
        return S_OK;
    }

private:
    bool present() const {
        return readMachine<bool>(
            [&](const model::Machine& m) { return m.findDevice(m_id) != nullptr; });
    }

    const std::string m_id;
};

} // namespace

bool processElevated() {
    return readMachine<bool>([](const model::Machine& m) { return m.elevated; }) &&
           !environmentDeniesElevation();
}

HRESULT propertyStoreAccess(DWORD mode) {
    return mode != STGM_READ && !processElevated() ? E_ACCESSDENIED : S_OK;
}

IMMDevice* createDevice(const std::string& endpointId) {
    return static_cast<IMMDevice*>(Device::create(endpointId));
}

IMMDevice* createAdapterDevice(const std::string& deviceId) {
    return AdapterDevice::create(deviceId);
}

} // namespace sim
