#include "platform/model/JsonLoader.h"

#include "platform/model/Bundled.h"
#include "platform/model/Finish.h"
#include "platform/model/JsonDocument.h"
#include "platform/model/JsonSections.h"

#include <fstream>
#include <sstream>

namespace model {

namespace {

using json::Json;
using json::Object;

constexpr json::Choice kTapers[] = {{"audio", std::uint32_t(VolumeTaper::Audio)},
                                    {"linear", std::uint32_t(VolumeTaper::Linear)}};

template <class Item, class Read>
std::vector<Item> readList(const Object& document, std::string_view key, Read read) {
    std::vector<Item> items;
    for (auto& [value, where] : document.elements(key)) {
        items.push_back(read(*value, where));
    }
    return items;
}

// "machines/laptop.json" is named "laptop" unless the description names itself.
std::string nameFromSource(const std::string& source) {
    std::string name = source.substr(source.find_last_of('/') + 1);
    if (name.ends_with(".json")) {
        name.resize(name.size() - 5);
    }
    return name;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw LoadError(path, "", "cannot open the file");
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool looksLikePath(const std::string& nameOrPath) {
    return nameOrPath.find('/') != std::string::npos || nameOrPath.ends_with(".json");
}

} // namespace

Machine loadMachineJson(const std::string& jsonText, const std::string& sourceName) {
    Json document = json::parseDocument(jsonText, sourceName);
    Object o(document, Where(sourceName),
             {"name", "description", "adapters", "endpoints", "devices", "routes", "defaults",
              "faults", "elevated", "volume_taper", "events"});
    Machine m;
    m.name = o.text("name", nameFromSource(sourceName));
    m.description = o.text("description");
    m.adapters = readList<Adapter>(o, "adapters", json::readAdapter);
    m.endpoints = readList<Endpoint>(o, "endpoints", json::readEndpoint);
    m.devices = readList<TopologyDevice>(o, "devices", json::readDevice);
    m.routes = readList<Route>(o, "routes", json::readRoute);
    m.faults = readList<Fault>(o, "faults", json::readFault);
    m.elevated = o.flag("elevated", m.elevated);
    m.volumeTaper = VolumeTaper(o.choice("volume_taper", std::uint32_t(m.volumeTaper), kTapers));
    const Json* defaults = o.find("defaults");
    RoleRequests roles =
        defaults ? json::readDefaults(*defaults, o.at("defaults")) : RoleRequests{};
    std::vector<std::pair<ScriptedEvent, Where>> events;
    for (auto& [value, where] : o.elements("events")) {
        events.emplace_back(json::readEvent(*value, where), where);
    }
    finishMachine(m, roles, sourceName);
    m.events = json::orderEvents(events, m);
    return m;
}

Machine loadMachine(const std::string& nameOrPath) {
    if (!looksLikePath(nameOrPath)) {
        if (std::optional<std::string> text = bundledMachineJson(nameOrPath)) {
            return loadMachineJson(*text, nameOrPath + ".json");
        }
        std::string known;
        for (const std::string& name : bundledMachineNames()) {
            known += (known.empty() ? "" : ", ") + name;
        }
        throw LoadError(nameOrPath, "",
                        "no bundled machine of that name (bundled: " + known +
                            "); a file path needs a '/' or the ending .json");
    }
    return loadMachineJson(readFile(nameOrPath), nameOrPath);
}

} // namespace model
