#include "platform/sim/MachineEvents.h"
#include "platform/sim/ComObject.h"
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

} // namespace

bool setEndpointState(const std::string& endpointId, std::uint32_t state) {
    bool changed = false;
    bool found = false;
    withMachine([&](model::Machine& m) {
        if (model::Endpoint* e = m.findEndpoint(endpointId)) {
            found = true;
            changed = e->state != state;
            e->state = state;
        }
    });
    if (changed) {
        announce(endpointId, [state](IMMNotificationClient* c, LPCWSTR id) {
            c->OnDeviceStateChanged(id, state);
        });
    }
    return found;
}

bool addEndpoint(const model::Endpoint& endpoint,
                 const std::optional<model::TopologyDevice>& device) {
    bool added = false;
    withMachine([&](model::Machine& m) {
        if (m.findEndpoint(endpoint.id) || !m.findAdapter(endpoint.adapter) ||
            (device && m.findDevice(device->id))) {
            return;
        }
        m.endpoints.push_back(endpoint);
        if (device) {
            m.devices.push_back(*device);
        }
        added = true;
    });
    if (added) {
        announce(endpoint.id, [](IMMNotificationClient* c, LPCWSTR id) { c->OnDeviceAdded(id); });
    }
    return added;
}

bool removeEndpoint(const std::string& endpointId) {
    bool removed = false;
    withMachine([&](model::Machine& m) {
        auto it = std::find_if(m.endpoints.begin(), m.endpoints.end(),
                               [&](const model::Endpoint& e) { return e.id == endpointId; });
        if (it == m.endpoints.end()) {
            return;
        }
        m.endpoints.erase(it);
        for (std::string* role : {m.defaultRender, m.defaultCapture}) {
            for (int r = 0; r < 3; ++r) {
                if (role[r] == endpointId) {
                    role[r].clear();
                }
            }
        }
        removed = true;
    });
    if (removed) {
        announce(endpointId, [](IMMNotificationClient* c, LPCWSTR id) { c->OnDeviceRemoved(id); });
    }
    return removed;
}

bool setDefaultEndpoint(model::Flow flow, ERole role, const std::string& endpointId) {
    if (role < eConsole || role > eCommunications) {
        return false;
    }
    bool set = false;
    withMachine([&](model::Machine& m) {
        const model::Endpoint* e = m.findEndpoint(endpointId);
        if (!e || e->flow != flow || e->state != model::STATE_ACTIVE) {
            return;
        }
        (flow == model::Flow::Render ? m.defaultRender : m.defaultCapture)[role] = endpointId;
        set = true;
    });
    if (set) {
        EDataFlow dataFlow = flow == model::Flow::Render ? eRender : eCapture;
        announce(endpointId, [dataFlow, role](IMMNotificationClient* c, LPCWSTR id) {
            c->OnDefaultDeviceChanged(dataFlow, role, id);
        });
    }
    return set;
}

} // namespace sim
