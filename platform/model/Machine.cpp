#include "platform/model/Machine.h"

#include <algorithm>
#include <cstring>
#include <tuple>

namespace model {

namespace {

// Shared by the const and non-const lookups so that each search is written once.
template <class Items, class Key> auto findBy(Items& items, const Key& key) {
    auto it = std::find_if(items.begin(), items.end(), key);
    return it == items.end() ? nullptr : &*it;
}

int compareGuids(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID));
}

} // namespace

bool PropertyKey::operator<(const PropertyKey& other) const {
    int order = compareGuids(fmtid, other.fmtid);
    return order != 0 ? order < 0 : pid < other.pid;
}

bool PropertyKey::operator==(const PropertyKey& other) const {
    return compareGuids(fmtid, other.fmtid) == 0 && pid == other.pid;
}

bool Endpoint::operator==(const Endpoint& o) const {
    auto fields = [](const Endpoint& e) {
        return std::tie(e.id, e.flow, e.state, e.adapter, e.description, e.friendlyName,
                        e.formFactor, e.physicalSpeakers, e.eventDriven, e.directSoundGuid,
                        e.volume, e.muted, e.topologyDevice, e.propertyOverrides);
    };
    return fields(*this) == fields(o) && jackSubType == o.jackSubType &&
           std::memcmp(&deviceFormat, &o.deviceFormat, sizeof(deviceFormat)) == 0;
}

const Part* TopologyDevice::findPart(std::uint32_t localId) const {
    return findBy(parts, [&](const Part& p) { return p.localId == localId; });
}

Part* TopologyDevice::findPart(std::uint32_t localId) {
    return findBy(parts, [&](const Part& p) { return p.localId == localId; });
}

Endpoint* Machine::findEndpoint(const std::string& id) {
    return findBy(endpoints, [&](const Endpoint& e) { return e.id == id; });
}

const Endpoint* Machine::findEndpoint(const std::string& id) const {
    return findBy(endpoints, [&](const Endpoint& e) { return e.id == id; });
}

Adapter* Machine::findAdapter(const std::string& instanceId) {
    return findBy(adapters, [&](const Adapter& a) { return a.instanceId == instanceId; });
}

const Adapter* Machine::findAdapter(const std::string& instanceId) const {
    return findBy(adapters, [&](const Adapter& a) { return a.instanceId == instanceId; });
}

TopologyDevice* Machine::findDevice(const std::string& id) {
    return findBy(devices, [&](const TopologyDevice& d) { return d.id == id; });
}

const TopologyDevice* Machine::findDevice(const std::string& id) const {
    return findBy(devices, [&](const TopologyDevice& d) { return d.id == id; });
}

const Part* Machine::findPart(const PartRef& ref) const {
    const TopologyDevice* device = findDevice(ref.device);
    return device ? device->findPart(ref.localId) : nullptr;
}

Part* Machine::findPart(const PartRef& ref) {
    TopologyDevice* device = findDevice(ref.device);
    return device ? device->findPart(ref.localId) : nullptr;
}

} // namespace model
