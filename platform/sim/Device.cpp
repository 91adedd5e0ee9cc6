#include "platform/sim/ClientState.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/DeviceObjects.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyObjects.h"

#include <optional>

namespace sim {

namespace {

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
        if (mode != STGM_READ && mode != STGM_WRITE && mode != STGM_READWRITE) {
            return E_INVALIDARG;
        }
        if (HRESULT fault = injectedFault("OpenPropertyStore", m_id)) {
            return fault;
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

    static std::string interfaceName(REFIID iid) {
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

} // namespace

IMMDevice* createDevice(const std::string& endpointId) {
    return static_cast<IMMDevice*>(Device::create(endpointId));
}

} // namespace sim
