#include "platform/sim/EndpointProperties.h"

#include "platform/sim/TopologyAccess.h"

#include <cstdio>
#include <cstring>
#include <deque>
#include <set>

namespace sim {

namespace {

// The adapter's device instance path, its name and its driver live under these keys.
constexpr PROPERTYKEY kInstancePath = {
    {0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}}, 2};
constexpr PROPERTYKEY kAdapterName = {
    {0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}}, 6};
constexpr PROPERTYKEY kDriverNodeStrongName = {
    {0x83DA6326, 0x97A6, 0x4088, {0x94, 0x53, 0xA1, 0x92, 0x3F, 0x57, 0x3B, 0x29}}, 3};

// DEVPKEY_Device_InstanceId: the PnP instance id of the device the store belongs to.
constexpr PROPERTYKEY kDeviceInstanceId = {
    {0x78C34FC8, 0x104A, 0x4ACA, {0x9E, 0xA4, 0x52, 0x4D, 0x52, 0x99, 0x6E, 0x57}}, 256};

model::PropertyValue text(const std::string& value) {
    model::PropertyValue v;
    v.type = model::PropertyValue::Type::String;
    v.text = value;
    return v;
}

model::PropertyValue number(std::uint32_t value) {
    model::PropertyValue v;
    v.type = model::PropertyValue::Type::UInt32;
    v.number = value;
    return v;
}

model::PropertyValue blob(const void* data, std::size_t size) {
    model::PropertyValue v;
    v.type = model::PropertyValue::Type::Blob;
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    v.blob.assign(bytes, bytes + size);
    return v;
}

void putAdapterProperties(PropertyMap& p, const model::Adapter& adapter) {
    p[toModelKey(kInstancePath)] = text("{1}." + adapter.instanceId);
    p[toModelKey(kAdapterName)] = text(adapter.friendlyName);
    p[toModelKey(PKEY_DeviceInterface_FriendlyName)] = text(adapter.friendlyName);
    p[toModelKey(PKEY_Device_EnumeratorName)] = text(adapter.enumerator);
    if (!adapter.driverNodeStrongName.empty()) {
        p[toModelKey(kDriverNodeStrongName)] = text(adapter.driverNodeStrongName);
    }
}

// The adapter of the first endpoint reached by following physical connections from a
// topology device, nearest first.
const model::Adapter* adapterReachedFrom(const model::Machine& m, const std::string& deviceId) {
    std::deque<std::string> queue{deviceId};
    std::set<std::string> seen{deviceId};
    while (!queue.empty()) {
        const model::TopologyDevice* device = m.findDevice(queue.front());
        queue.pop_front();
        if (!device) {
            continue;
        }
        for (const model::Endpoint& e : m.endpoints) {
            if (e.topologyDevice == device->id) {
                return m.findAdapter(e.adapter);
            }
        }
        for (const model::Part& part : device->parts) {
            std::optional<model::PartRef> other = partnerOf(m, {device->id, part.localId});
            if (other && seen.insert(other->device).second) {
                queue.push_back(other->device);
            }
        }
    }
    return nullptr;
}

} // namespace

model::PropertyKey toModelKey(const PROPERTYKEY& key) {
    return {key.fmtid, key.pid};
}

PROPERTYKEY toPlatformKey(const model::PropertyKey& key) {
    return {key.fmtid, key.pid};
}

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case. Written digit by digit: every read
// of a property store formats a GUID or two, and a formatted print costs more than the rest
// of the read.
std::string guidText(const GUID& g) {
    static const char digits[] = "0123456789ABCDEF";
    std::string out = "{00000000-0000-0000-0000-000000000000}";
    auto put = [&](std::size_t at, unsigned long value, int count) {
        for (int i = count - 1; i >= 0; --i, value >>= 4) {
            out[at + std::size_t(i)] = digits[value & 0xF];
        }
    };
    put(1, g.Data1, 8);
    put(10, g.Data2, 4);
    put(15, g.Data3, 4);
    put(20, g.Data4[0], 2);
    put(22, g.Data4[1], 2);
    for (std::size_t i = 2; i < 8; ++i) {
        put(25 + (i - 2) * 2, g.Data4[i], 2);
    }
    return out;
}

std::string keyText(const PROPERTYKEY& key) {
    return guidText(key.fmtid) + "," + std::to_string(key.pid);
}

PropertyMap endpointProperties(const model::Machine& machine, const model::Endpoint& e) {
    PropertyMap p;
    p[toModelKey(PKEY_Device_DeviceDesc)] = text(e.description);
    p[toModelKey(PKEY_Device_FriendlyName)] = text(e.friendlyName);
    p[toModelKey(PKEY_AudioEndpoint_FormFactor)] = number(e.formFactor);
    p[toModelKey(PKEY_AudioEndpoint_PhysicalSpeakers)] = number(e.physicalSpeakers);
    p[toModelKey(PKEY_AudioEndpoint_Supports_EventDriven_Mode)] = number(e.eventDriven ? 1 : 0);
    p[toModelKey(PKEY_AudioEndpoint_JackSubType)] = text(guidText(e.jackSubType));
    p[toModelKey(PKEY_AudioEngine_DeviceFormat)] = blob(&e.deviceFormat, sizeof e.deviceFormat);
    if (!e.directSoundGuid.empty()) {
        p[toModelKey(PKEY_AudioEndpoint_GUID)] = text(e.directSoundGuid);
    }
    if (const model::Adapter* adapter = machine.findAdapter(e.adapter)) {
        putAdapterProperties(p, *adapter);
    }
    for (const auto& [key, value] : e.propertyOverrides) {
        if (value) {
            p[key] = *value;
        } else {
            p.erase(key);
        }
    }
    return p;
}

PropertyMap adapterDeviceProperties(const model::Machine& machine, const std::string& deviceId) {
    PropertyMap p;
    if (const model::Adapter* adapter = adapterReachedFrom(machine, deviceId)) {
        p[toModelKey(PKEY_Device_FriendlyName)] = text(adapter->friendlyName);
        p[toModelKey(PKEY_Device_DeviceDesc)] = text(adapter->friendlyName);
        p[toModelKey(PKEY_DeviceInterface_FriendlyName)] = text(adapter->friendlyName);
        p[toModelKey(PKEY_Device_EnumeratorName)] = text(adapter->enumerator);
        p[toModelKey(kDeviceInstanceId)] = text(adapter->instanceId);
    }
    return p;
}

} // namespace sim
