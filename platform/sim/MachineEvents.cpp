#include "platform/sim/MachineEvents.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/DefaultEndpoints.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"

#include <algorithm>

namespace sim {

namespace {

void announce(const std::string& id, std::function<void(IMMNotificationClient*, LPCWSTR)> f) {
    notifyEndpointClients([id, f = std::move(f)](IMMNotificationClient* client) {
        std::u16string wide = toUtf16(id);
        f(client, wide.c_str());
    });
}

// Runs a change of the machine and returns whether it happened, with every role's default
// before and after it, so that the roles it moves can be announced after the change itself.
struct Change {
    bool done = false;
    Defaults before, after;
};

Change change(const std::function<bool(model::Machine&)>& f) {
    Change c;
    withMachine([&](model::Machine& m) {
        c.before = defaultsOf(m);
        c.done = f(m);
        c.after = defaultsOf(m);
    });
    return c;
}

} // namespace

bool setEndpointState(const std::string& endpointId, std::uint32_t state) {
    bool found = false;
    Change c = change([&](model::Machine& m) {
        model::Endpoint* e = m.findEndpoint(endpointId);
        found = e != nullptr;
        if (!e || e->state == state) {
            return false;
        }
        e->state = state;
        return true;
    });
    if (c.done) {
        announce(endpointId, [state](IMMNotificationClient* client, LPCWSTR id) {
            client->OnDeviceStateChanged(id, state);
        });
        announceDefaultChanges(c.before, c.after);
    }
    return found;
}

bool addEndpoint(const model::Endpoint& endpoint,
                 const std::optional<model::TopologyDevice>& device) {
    Change c = change([&](model::Machine& m) {
        if (m.findEndpoint(endpoint.id) || !m.findAdapter(endpoint.adapter) ||
            (device && m.findDevice(device->id))) {
            return false;
        }
        m.endpoints.push_back(endpoint);
        if (device) {
            m.devices.push_back(*device);
        }
        return true;
    });
    if (c.done) {
        announce(endpoint.id,
                 [](IMMNotificationClient* client, LPCWSTR id) { client->OnDeviceAdded(id); });
        announceDefaultChanges(c.before, c.after);
    }
    return c.done;
}

bool removeEndpoint(const std::string& endpointId) {
    Change c = change([&](model::Machine& m) {
        auto it = std::find_if(m.endpoints.begin(), m.endpoints.end(),
                               [&](const model::Endpoint& e) { return e.id == endpointId; });
        if (it == m.endpoints.end()) {
            return false;
        }
        // The endpoint's own topology leaves with it, unless another endpoint shares it.
        std::string device = it->topologyDevice;
        m.endpoints.erase(it);
        bool shared =
            std::any_of(m.endpoints.begin(), m.endpoints.end(),
                        [&](const model::Endpoint& e) { return e.topologyDevice == device; });
        if (!device.empty() && !shared) {
            std::erase_if(m.devices,
                          [&](const model::TopologyDevice& d) { return d.id == device; });
        }
        // A removed endpoint's settings go with it, its place as the user's default too.
        for (std::string* role : {m.defaultRender, m.defaultCapture}) {
            for (int r = 0; r < 3; ++r) {
                if (role[r] == endpointId) {
                    role[r].clear();
                }
            }
        }
        return true;
    });
    if (c.done) {
        announce(endpointId,
                 [](IMMNotificationClient* client, LPCWSTR id) { client->OnDeviceRemoved(id); });
        announceDefaultChanges(c.before, c.after);
    }
    return c.done;
}

bool setDefaultEndpoint(model::Flow flow, ERole role, const std::string& endpointId) {
    if (role < eConsole || role > eCommunications) {
        return false;
    }
    Change c = change([&](model::Machine& m) {
        const model::Endpoint* e = m.findEndpoint(endpointId);
        if (!e || e->flow != flow || e->state != model::STATE_ACTIVE) {
            return false;
        }
        (flow == model::Flow::Render ? m.defaultRender : m.defaultCapture)[role] = endpointId;
        return true;
    });
    if (c.done) {
        announceDefaultChanges(c.before, c.after);
    }
    return c.done;
}

} // namespace sim
