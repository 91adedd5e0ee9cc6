#include "platform/sim/TopologyAccess.h"

namespace sim {

std::optional<model::PartRef> partnerOf(const model::Machine& machine,
                                        const model::PartRef& connector) {
    const model::Part* part = machine.findPart(connector);
    if (!part || part->kind != model::PartKind::Connector) {
        return std::nullopt;
    }
    if (part->connectedTo) {
        const model::Part* other = machine.findPart(*part->connectedTo);
        if (other && other->kind == model::PartKind::Connector) {
            return part->connectedTo;
        }
        return std::nullopt;
    }
    // The number first: most connectors of a large machine differ in it, and ids are long.
    for (const model::TopologyDevice& device : machine.devices) {
        for (const model::Part& other : device.parts) {
            if (other.kind == model::PartKind::Connector && other.connectedTo &&
                other.connectedTo->localId == connector.localId &&
                other.connectedTo->device == connector.device) {
                return model::PartRef{device.id, other.localId};
            }
        }
    }
    return std::nullopt;
}

bool isAdapterDevice(const model::Machine& machine, const std::string& deviceId) {
    if (!machine.findDevice(deviceId)) {
        return false;
    }
    for (const model::Endpoint& endpoint : machine.endpoints) {
        if (endpoint.topologyDevice == deviceId) {
            return false;
        }
    }
    return true;
}

bool deviceIsActive(const model::Machine& machine, const std::string& deviceId) {
    for (const model::Endpoint& endpoint : machine.endpoints) {
        if (endpoint.topologyDevice == deviceId && endpoint.state != model::STATE_ACTIVE) {
            return false;
        }
    }
    return true;
}

} // namespace sim
