#include "platform/model/Machine.h"

#include <algorithm>
#include <cstring>
#include <tuple>
#include <unordered_map>

namespace model {

namespace {

// Shared by the const and non-const lookups so that each search is written once.
template <class Items, class Key> auto findBy(Items& items, const Key& key) {
    auto it = std::find_if(items.begin(), items.end(), key);
    return it == items.end() ? nullptr : &*it;
}

// The platform looks an endpoint or device up by id on nearly every call, so a search from
// the start of the list would make a session over n endpoints cost n squared. Each thread
// remembers where an id of a kind of list (Tag) was last found; the hint is checked before
// it is used, so the lists may change and machines may be swapped freely.
template <class Tag, class Items, class Id>
auto findById(Items& items, const std::string& id, Id idOf) -> decltype(&items[0]) {
    thread_local std::unordered_map<std::string, std::size_t> hints;
    auto hint = hints.find(id);
    if (hint != hints.end() && hint->second < items.size() && idOf(items[hint->second]) == id) {
        return &items[hint->second];
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (idOf(items[i]) == id) {
            if (hints.size() > 65536) {
                hints.clear(); // ids of machines long gone
            }
            hints[id] = i;
            return &items[i];
        }
    }
    return nullptr;
}

struct EndpointIds;
struct AdapterIds;
struct DeviceIds;
const auto endpointId = [](const Endpoint& e) -> const std::string& {
    return e.id;
};
const auto adapterId = [](const Adapter& a) -> const std::string& {
    return a.instanceId;
};
const auto deviceId = [](const TopologyDevice& d) -> const std::string& {
    return d.id;
};

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
    return findById<EndpointIds>(endpoints, id, endpointId);
}

const Endpoint* Machine::findEndpoint(const std::string& id) const {
    return findById<EndpointIds>(endpoints, id, endpointId);
}

Adapter* Machine::findAdapter(const std::string& instanceId) {
    return findById<AdapterIds>(adapters, instanceId, adapterId);
}

const Adapter* Machine::findAdapter(const std::string& instanceId) const {
    return findById<AdapterIds>(adapters, instanceId, adapterId);
}

TopologyDevice* Machine::findDevice(const std::string& id) {
    return findById<DeviceIds>(devices, id, deviceId);
}

const TopologyDevice* Machine::findDevice(const std::string& id) const {
    return findById<DeviceIds>(devices, id, deviceId);
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
