// A part's identity, its neighbours inside its device and its way back to the device.
#include "platform/sim/TopologyPart.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyAccess.h"
#include "platform/sim/TopologyObjects.h"

#include <cstdio>

namespace sim {

std::string globalIdOf(const model::PartRef& ref) {
    char localId[16];
    std::snprintf(localId, sizeof localId, "%08x", unsigned(ref.localId));
    return ref.device + "/" + localId;
}

IPart* createPart(const model::PartRef& ref, model::PartKind kind) {
    return static_cast<IPart*>(TopologyPart::create(ref, kind));
}

std::optional<model::PartRef> partRefOf(IPart* part) {
    if (auto* ours = dynamic_cast<TopologyPart*>(part)) {
        return ours->ref();
    }
    return std::nullopt;
}

TopologyPart::TopologyPart(model::PartRef ref, model::PartKind kind)
    : m_ref(std::move(ref)), m_kind(kind), m_globalId(globalIdOf(m_ref)) {}

HRESULT TopologyPart::QueryInterface(REFIID iid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid == IID_IPart) {
        if (HRESULT fault = injectedFault("QueryInterface.IPart", m_globalId)) {
            return fault;
        }
    }
    bool connector = m_kind == model::PartKind::Connector;
    if ((iid == IID_IConnector && !connector) || (iid == IID_ISubunit && connector)) {
        return E_NOINTERFACE;
    }
    return ComObject::QueryInterface(iid, object);
}

HRESULT TopologyPart::GetName(LPWSTR* name) {
    if (!name) {
        return E_POINTER;
    }
    *name = nullptr;
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        *name = taskString(part.name);
        return *name ? S_OK : E_OUTOFMEMORY;
    });
}

HRESULT TopologyPart::GetLocalId(UINT* id) {
    if (!id) {
        return E_POINTER;
    }
    *id = m_ref.localId;
    return S_OK;
}

HRESULT TopologyPart::GetGlobalId(LPWSTR* id) {
    if (!id) {
        return E_POINTER;
    }
    *id = taskString(m_globalId);
    return *id ? S_OK : E_OUTOFMEMORY;
}

HRESULT TopologyPart::GetPartType(PartType* type) {
    if (!type) {
        return E_POINTER;
    }
    *type = m_kind == model::PartKind::Connector ? Connector : Subunit;
    return S_OK;
}

HRESULT TopologyPart::GetSubType(GUID* subType) {
    if (!subType) {
        return E_POINTER;
    }
    return withPart(m_ref, [&](const model::Part& part, const model::Machine&) {
        *subType = part.subType;
        return S_OK;
    });
}

HRESULT TopologyPart::EnumPartsIncoming(IPartsList** out) {
    return enumParts("EnumPartsIncoming", true, out);
}

HRESULT TopologyPart::EnumPartsOutgoing(IPartsList** out) {
    return enumParts("EnumPartsOutgoing", false, out);
}

// Only links count: Windows lists the parts of the same topology, never the connector
// across a physical connection.
HRESULT TopologyPart::enumParts(const char* operation, bool incoming, IPartsList** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = nullptr;
    if (HRESULT fault = injectedFault(operation, m_globalId)) {
        return fault;
    }
    return withDevice(
        m_ref.device, [&](const model::TopologyDevice& device, const model::Machine& machine) {
            if (!device.findPart(m_ref.localId)) {
                return E_NOTFOUND;
            }
            std::vector<model::PartRef> parts;
            for (const model::Link& link : device.links) {
                if ((incoming ? link.to : link.from) == m_ref.localId) {
                    parts.push_back({device.id, incoming ? link.from : link.to});
                }
            }
            if (parts.empty()) {
                return E_NOTFOUND; // as Windows answers for a part at the edge of its topology
            }
            *out = createPartsList(machine, parts);
            return S_OK;
        });
}

HRESULT TopologyPart::GetTopologyObject(IDeviceTopology** out) {
    if (!out) {
        return E_POINTER;
    }
    *out = nullptr;
    if (HRESULT fault = injectedFault("GetTopologyObject", m_globalId)) {
        return fault;
    }
    return withPart(m_ref, [&](const model::Part&, const model::Machine&) {
        *out = createDeviceTopology(m_ref.device);
        return *out ? S_OK : E_NOTFOUND;
    });
}

HRESULT TopologyPart::RegisterControlChangeCallback(REFGUID, IControlChangeNotify* notify) {
    return notify ? E_NOTIMPL : E_POINTER;
}

HRESULT TopologyPart::UnregisterControlChangeCallback(IControlChangeNotify* notify) {
    return notify ? E_NOTIMPL : E_POINTER;
}

} // namespace sim
