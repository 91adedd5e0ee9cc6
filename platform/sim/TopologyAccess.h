// Locked access to the topology graph of the installed machine, shared by the topology
// objects, which keep only ids and look the model up again on every call.
#pragma once

#include "platform/sim/Runtime.h"
#include "platform/win32.h"

#include <optional>
#include <string>

namespace sim {

// Runs f(device, machine) under the platform's lock; E_NOTFOUND when the device is gone.
template <class F> HRESULT withDevice(const std::string& id, F&& f) {
    HRESULT result = E_NOTFOUND;
    withMachine([&](model::Machine& machine) {
        if (model::TopologyDevice* device = machine.findDevice(id)) {
            result = f(*device, machine);
        }
    });
    return result;
}

// Runs f(part, machine) under the platform's lock; E_NOTFOUND when the part is gone.
template <class F> HRESULT withPart(const model::PartRef& ref, F&& f) {
    HRESULT result = E_NOTFOUND;
    withMachine([&](model::Machine& machine) {
        if (model::Part* part = machine.findPart(ref)) {
            result = f(*part, machine);
        }
    });
    return result;
}

// The connector at the other end of a physical connection. Either side may name the
// connection, so that a description that records it once still reads the same both ways.
std::optional<model::PartRef> partnerOf(const model::Machine& machine,
                                        const model::PartRef& connector);

// True for a device of the topology graph that is no endpoint's own device: an adapter's
// filter, which GetDevice opens by its id.
bool isAdapterDevice(const model::Machine& machine, const std::string& deviceId);

// False for the device of an endpoint that is not active: Windows cannot reach the
// topology behind such an endpoint.
bool deviceIsActive(const model::Machine& machine, const std::string& deviceId);

} // namespace sim
