// The scripted events of a machine description: endpoints that change state, leave and come
// back while the process runs.
#include "platform/model/JsonNames.h"
#include "platform/model/JsonObject.h"
#include "platform/model/JsonSections.h"

#include <algorithm>
#include <set>

namespace model::json {

namespace {

// A day: far beyond any test, and a bound that keeps the milliseconds exact in 100-ns units.
constexpr std::uint32_t kLatestEventMs = 24u * 3600u * 1000u;

const char* fieldOf(ScriptedEvent::Kind kind) {
    switch (kind) {
    case ScriptedEvent::Kind::State:
        return "endpoint";
    case ScriptedEvent::Kind::Remove:
        return "remove";
    case ScriptedEvent::Kind::Add:
        break;
    }
    return "add";
}

} // namespace

ScriptedEvent readEvent(const Json& value, const Where& where) {
    Object o(value, where, {"at_ms", "endpoint", "state", "remove", "add"});
    ScriptedEvent event;
    if (!o.find("at_ms")) {
        o.at("at_ms").fail("missing: an event says when it happens, in milliseconds after the "
                           "machine is installed");
    }
    event.atMs = o.integer("at_ms", 0, 0, kLatestEventMs);
    int actions = 0;
    for (ScriptedEvent::Kind kind :
         {ScriptedEvent::Kind::State, ScriptedEvent::Kind::Remove, ScriptedEvent::Kind::Add}) {
        if (o.find(fieldOf(kind))) {
            ++actions;
            event.kind = kind;
            event.endpoint = o.requiredText(fieldOf(kind), "the id of an endpoint");
        }
    }
    if (actions != 1) {
        where.fail("an event has exactly one of \"endpoint\" (with \"state\"), \"remove\" and "
                   "\"add\", got " +
                   std::to_string(actions));
    }
    const bool isState = event.kind == ScriptedEvent::Kind::State;
    if (isState && !o.find("state")) {
        o.at("state").fail("missing: the state the endpoint takes");
    }
    if (!isState && o.find("state")) {
        o.at("state").fail("only an \"endpoint\" event takes a state");
    }
    event.state = o.choice("state", STATE_ACTIVE, kStates);
    return event;
}

std::vector<ScriptedEvent> orderEvents(const std::vector<std::pair<ScriptedEvent, Where>>& events,
                                       Machine& m) {
    std::vector<std::size_t> order(events.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        order[i] = i;
    }
    // Events of the same time keep the order in which the description lists them.
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return events[a].first.atMs < events[b].first.atMs;
    });
    // An endpoint whose story begins with its arrival is not there before.
    std::set<std::string> present, mentioned, late;
    for (const Endpoint& e : m.endpoints) {
        present.insert(e.id);
    }
    for (std::size_t i : order) {
        const ScriptedEvent& event = events[i].first;
        if (mentioned.insert(event.endpoint).second && event.kind == ScriptedEvent::Kind::Add) {
            present.erase(event.endpoint);
            late.insert(event.endpoint);
        }
    }
    // Played over in time order, each event must find its endpoint as it expects it.
    std::vector<ScriptedEvent> ordered;
    for (std::size_t i : order) {
        ScriptedEvent event = events[i].first;
        const Where at = events[i].second[fieldOf(event.kind)];
        const std::string when = " at " + std::to_string(event.atMs) + " ms";
        if (!m.findEndpoint(event.endpoint)) {
            at.fail("no endpoint has the id " + inQuotes(event.endpoint));
        }
        const bool isPresent = present.count(event.endpoint) != 0;
        if (event.kind == ScriptedEvent::Kind::Add) {
            if (isPresent) {
                at.fail("endpoint " + inQuotes(event.endpoint) + " is present" + when +
                        ": only an endpoint that is not there can be added");
            }
            present.insert(event.endpoint);
        } else if (!isPresent) {
            at.fail("endpoint " + inQuotes(event.endpoint) + " is not there" + when +
                    " (removed, or not yet added)");
        } else if (event.kind == ScriptedEvent::Kind::Remove) {
            present.erase(event.endpoint);
        }
        ordered.push_back(event);
    }
    // The late endpoints leave the machine for their first event.
    for (ScriptedEvent& event : ordered) {
        if (event.kind != ScriptedEvent::Kind::Add || !late.erase(event.endpoint)) {
            continue;
        }
        auto e = std::find_if(m.endpoints.begin(), m.endpoints.end(),
                              [&](const Endpoint& x) { return x.id == event.endpoint; });
        event.arriving = *e;
        m.endpoints.erase(e);
        const std::string& own = event.arriving->topologyDevice;
        const bool shared = std::any_of(m.endpoints.begin(), m.endpoints.end(),
                                        [&](const Endpoint& x) { return x.topologyDevice == own; });
        auto d = std::find_if(m.devices.begin(), m.devices.end(),
                              [&](const TopologyDevice& x) { return x.id == own; });
        if (!own.empty() && !shared && d != m.devices.end()) {
            event.arrivingDevice = *d;
            m.devices.erase(d);
        }
        // Not there, so nobody's choice of default yet.
        for (std::string* roles : {m.defaultRender, m.defaultCapture}) {
            for (int r = 0; r < 3; ++r) {
                if (roles[r] == event.endpoint) {
                    roles[r].clear();
                }
            }
        }
    }
    return ordered;
}

} // namespace model::json
