// IDeviceTopology over one topology device of the model, named by its id.
#include "platform/CComPtr.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/SignalPath.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

#include <algorithm>

namespace sim {

namespace {

class DeviceTopology final : public ComObject<DeviceTopology, IDeviceTopology> {
public:
    explicit DeviceTopology(std::string id) : m_id(std::move(id)) {}

    HRESULT STDMETHODCALLTYPE GetConnectorCount(UINT* count) override {
        return countOf(model::PartKind::Connector, count);
    }

    HRESULT STDMETHODCALLTYPE GetConnector(UINT index, IConnector** out) override {
        return nthPart("GetConnector", model::PartKind::Connector, index, out);
    }

    HRESULT STDMETHODCALLTYPE GetSubunitCount(UINT* count) override {
        return countOf(model::PartKind::Subunit, count);
    }

    HRESULT STDMETHODCALLTYPE GetSubunit(UINT index, ISubunit** out) override {
        return nthPart("GetSubunit", model::PartKind::Subunit, index, out);
    }

    HRESULT STDMETHODCALLTYPE GetPartById(UINT id, IPart** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        return withDevice(m_id, [&](const model::TopologyDevice& device, const model::Machine&) {
            const model::Part* part = device.findPart(id);
            if (!part) {
                return E_INVALIDARG;
            }
            *out = createPart({m_id, id}, part->kind);
            return S_OK;
        });
    }

    HRESULT STDMETHODCALLTYPE GetDeviceId(LPWSTR* id) override {
        if (!id) {
            return E_POINTER;
        }
        *id = nullptr;
        if (HRESULT fault = injectedFault("GetDeviceId", m_id)) {
            return fault;
        }
        return withDevice(m_id, [&](const model::TopologyDevice&, const model::Machine&) {
            *id = taskString(m_id);
            return *id ? S_OK : E_OUTOFMEMORY;
        });
    }

    HRESULT STDMETHODCALLTYPE GetSignalPath(IPart* from, IPart* to, BOOL rejectMixed,
                                            IPartsList** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (!from || !to) {
            return E_POINTER;
        }
        if (HRESULT fault = injectedFault("GetSignalPath", m_id)) {
            return fault;
        }
        std::optional<model::PartRef> start = partRefOf(from);
        std::optional<model::PartRef> end = partRefOf(to);
        if (!start || !end) {
            return E_NOINTERFACE; // not a part of this platform, as Windows answers
        }
        return withDevice(m_id, [&](const model::TopologyDevice&, const model::Machine& machine) {
            std::vector<model::PartRef> path =
                findSignalPath(machine, *start, *end, rejectMixed != FALSE);
            if (path.empty()) {
                return E_NOTFOUND;
            }
            std::reverse(path.begin(), path.end()); // Windows lists "to" first
            *out = createPartsList(machine, path);
            return S_OK;
        });
    }

private:
    HRESULT countOf(model::PartKind kind, UINT* count) {
        if (!count) {
            return E_POINTER;
        }
        return withDevice(m_id, [&](const model::TopologyDevice& device, const model::Machine&) {
            *count = UINT(std::count_if(device.parts.begin(), device.parts.end(),
                                        [&](const model::Part& p) { return p.kind == kind; }));
            return S_OK;
        });
    }

    // The part of this kind at this index, in model order, as its connector or subunit.
    template <class I>
    HRESULT nthPart(const char* operation, model::PartKind kind, UINT index, I** out) {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (HRESULT fault = injectedFault(operation, m_id)) {
            return fault;
        }
        return withDevice(m_id, [&](const model::TopologyDevice& device, const model::Machine&) {
            for (const model::Part& part : device.parts) {
                if (part.kind == kind && index-- == 0) {
                    CComPtr<IPart> made;
                    made.Attach(createPart({m_id, part.localId}, kind));
                    return made.QueryInterface(out);
                }
            }
            return E_INVALIDARG;
        });
    }

    const std::string m_id;
};

} // namespace

IDeviceTopology* createDeviceTopology(const std::string& deviceId) {
    bool present = readMachine<bool>(
        [&](const model::Machine& machine) { return machine.findDevice(deviceId) != nullptr; });
    return present ? DeviceTopology::create(deviceId) : nullptr;
}

} // namespace sim
