// A connector's kind, direction and physical connection to a connector of another device.
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"
#include "platform/sim/TopologyPart.h"

namespace sim {

namespace {

// HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND): the device across the connection is not active.
constexpr HRESULT PATH_NOT_FOUND = HRESULT(0x80070003L);

} // namespace

HRESULT TopologyPart::GetType(ConnectorType* type) {
    if (!type) {
        return E_POINTER;
    }
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        *type = ConnectorType(part.connectorType);
        return S_OK;
    });
}

HRESULT TopologyPart::GetDataFlow(DataFlow* flow) {
    if (!flow) {
        return E_POINTER;
    }
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        *flow = part.connectorFlow == DWORD(Out) ? Out : In;
        return S_OK;
    });
}

HRESULT TopologyPart::ConnectTo(IConnector* other) {
    return other ? E_NOTIMPL : E_POINTER;
}

HRESULT TopologyPart::Disconnect() {
    return E_NOTIMPL;
}

HRESULT TopologyPart::IsConnected(BOOL* connected) {
    if (!connected) {
        return E_POINTER;
    }
    std::optional<model::PartRef> other;
    if (HRESULT found = partner(other); FAILED(found)) {
        return found;
    }
    *connected = other ? TRUE : FALSE;
    return S_OK;
}

HRESULT TopologyPart::GetConnectedTo(IConnector** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = nullptr;
    if (HRESULT fault = injectedFault("GetConnectedTo", m_globalId)) {
        return fault;
    }
    return withPart(m_ref, [&](const model::Part&, const model::Machine& machine) {
        std::optional<model::PartRef> other = partnerOf(machine, m_ref);
        if (!other) {
            return E_NOTFOUND;
        }
        if (!deviceIsActive(machine, other->device)) {
            return PATH_NOT_FOUND;
        }
        *out = static_cast<IConnector*>(TopologyPart::create(*other, model::PartKind::Connector));
        return S_OK;
    });
}

HRESULT TopologyPart::GetConnectorIdConnectedTo(LPWSTR* id) {
    if (!id) {
        return E_POINTER;
    }
    *id = nullptr;
    std::optional<model::PartRef> other;
    if (HRESULT found = partner(other); FAILED(found) || !other) {
        return FAILED(found) ? found : E_NOTFOUND;
    }
    *id = taskString(globalIdOf(*other));
    return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT TopologyPart::GetDeviceIdConnectedTo(LPWSTR* id) {
    if (!id) {
        return E_POINTER;
    }
    *id = nullptr;
    std::optional<model::PartRef> other;
    if (HRESULT found = partner(other); FAILED(found) || !other) {
        return FAILED(found) ? found : E_NOTFOUND;
    }
    *id = taskString(other->device);
    return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT TopologyPart::partner(std::optional<model::PartRef>& other) {
    return withPart(m_ref, [&](const model::Part&, const model::Machine& machine) {
        other = partnerOf(machine, m_ref);
        return S_OK;
    });
}

} // namespace sim
