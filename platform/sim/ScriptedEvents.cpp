#include "platform/sim/ScriptedEvents.h"
#include "platform/sim/Clock.h"
#include "platform/sim/MachineEvents.h"
#include "platform/sim/Runtime.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <optional>
#include <thread>

namespace sim {

namespace {

// Counts the machines installed; the events of one play while it is the current one.
std::atomic<std::uint64_t> installations{0};

std::uint64_t currentInstallation() {
    return installations.load();
}

// How often a player waiting for its next event looks whether its machine is still there.
constexpr Hns kPatience = 20 * 10000; // 20 ms

// What an endpoint was when an event removed it, so that a later event puts it back alike.
struct Departed {
    model::Endpoint endpoint;
    std::optional<model::TopologyDevice> device;
};

// Runs f under the platform's lock if the machine is still the one the events belong to:
// a replaced machine must not receive its predecessor's events.
bool whileInstalled(std::uint64_t installation, const std::function<void(model::Machine&)>& f) {
    bool current = false;
    withMachine([&](model::Machine& m) {
        current = currentInstallation() == installation;
        if (current) {
            f(m);
        }
    });
    return current;
}

bool play(const model::ScriptedEvent& event, std::uint64_t installation,
          std::map<std::string, Departed>& departed) {
    return whileInstalled(installation, [&](model::Machine& m) {
        switch (event.kind) {
        case model::ScriptedEvent::Kind::State:
            setEndpointState(event.endpoint, event.state);
            break;
        case model::ScriptedEvent::Kind::Remove:
            if (const model::Endpoint* e = m.findEndpoint(event.endpoint)) {
                Departed d{*e, std::nullopt};
                if (const model::TopologyDevice* own = m.findDevice(e->topologyDevice)) {
                    d.device = *own;
                }
                departed[event.endpoint] = d;
                removeEndpoint(event.endpoint);
            }
            break;
        case model::ScriptedEvent::Kind::Add: {
            if (event.arriving) {
                addEndpoint(*event.arriving, event.arrivingDevice);
                break;
            }
            auto it = departed.find(event.endpoint);
            if (it != departed.end()) {
                // The own topology comes back only if it left with the endpoint.
                const bool deviceLeft = it->second.device && !m.findDevice(it->second.device->id);
                addEndpoint(it->second.endpoint, deviceLeft
                                                     ? it->second.device
                                                     : std::optional<model::TopologyDevice>());
                departed.erase(it);
            }
            break;
        }
        }
    });
}

void player(std::vector<model::ScriptedEvent> events, std::uint64_t installation, Hns start) {
    Clock& clock = Clock::instance();
    std::map<std::string, Departed> departed;
    for (const model::ScriptedEvent& event : events) {
        const Hns due = start + Hns(event.atMs) * 10000;
        while (clock.now() < due) {
            if (currentInstallation() != installation) {
                return;
            }
            clock.waitUntil(std::min(due, clock.now() + kPatience));
        }
        if (!play(event, installation, departed)) {
            return;
        }
    }
}

} // namespace

void playScriptedEvents(const model::Machine& machine) {
    const std::uint64_t installation = ++installations;
    if (machine.events.empty()) {
        return;
    }
    // Detached: it ends at its last event, or at the first look after its machine is gone.
    std::thread(player, machine.events, installation, Clock::instance().now()).detach();
}

} // namespace sim
