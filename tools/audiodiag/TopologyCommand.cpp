// audiodiag topology CARD [--dot FILE]: a card's connector map as the library built it,
// as text, JSON or a Graphviz graph.
#include "CardCatalog.h"
#include "Commands.h"
#include "Report.h"

#include <cstdio>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>

namespace audiodiag {

namespace {

struct TopologyOptions {
    std::string card;
    std::string dotPath;
};

// What a device of the map is to the card: one of its endpoints, an internal device (an
// adapter filter the map reached), or a topology known only through its connectors.
nlohmann::ordered_json deviceRows(const SoundCard& card) {
    std::vector<std::string> owners;
    for (const SoundCard::ConnectorEntry& entry : card.connectorMap()) {
        const std::string owner = text(entry.owner);
        if (std::find(owners.begin(), owners.end(), owner) == owners.end()) {
            owners.push_back(owner);
        }
    }
    std::map<std::string, std::pair<std::string, std::string>> known; // id: kind, name
    for (EDataFlow flow : {eRender, eCapture}) {
        for (const AudioDevice& device : cardEndpoints(card, flow)) {
            known[lowered(text(device.deviceProperty().deviceId))] = {"endpoint",
                                                                      displayName(device)};
        }
    }
    qel::Array<AudioDevice> internal;
    card.internalDevices(internal);
    for (const AudioDevice& device : internal) {
        known.emplace(lowered(text(device.deviceProperty().deviceId)),
                      std::pair<std::string, std::string>{"internal", ""});
    }
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const std::string& owner : owners) {
        auto it = known.find(lowered(owner));
        const std::string kind = it == known.end() ? "other" : it->second.first;
        rows.push_back({{"id", owner},
                        {"kind", kind},
                        {"name", it == known.end() || it->second.second.empty()
                                     ? nlohmann::ordered_json(nullptr)
                                     : nlohmann::ordered_json(it->second.second)}});
    }
    return rows;
}

nlohmann::ordered_json connectorRows(const SoundCard& card) {
    const qel::Array<SoundCard::ConnectorEntry>& map = card.connectorMap();
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (qel::Uint32 i = 0; i < map.size(); ++i) {
        const SoundCard::ConnectorEntry& entry = map[i];
        const AudioPart& part = entry.connector.part();
        nlohmann::ordered_json internal = nlohmann::ordered_json::array();
        // The first link of a physically connected entry is the physical one.
        for (qel::Uint32 l = entry.hasPhysicalLink ? 1 : 0; l < entry.links.size(); ++l) {
            internal.push_back(entry.links[l]);
        }
        nlohmann::ordered_json physical = nullptr;
        if (entry.hasPhysicalLink && !entry.links.empty() && entry.links[0] >= 0) {
            physical = entry.links[0];
        }
        rows.push_back({{"index", i},
                        {"name", text(part.name())},
                        {"node_type", partTypeName(part.subType())},
                        {"global_id", text(part.globalId())},
                        {"device", text(entry.owner)},
                        {"connected", entry.hasPhysicalLink},
                        {"physical_link", physical},
                        {"internal_links", internal}});
    }
    return rows;
}

std::string linkList(const nlohmann::ordered_json& links) {
    std::string out;
    for (const auto& link : links) {
        out += (out.empty() ? "#" : " #") + std::to_string(link.get<int>());
    }
    return out;
}

void printTopology(const nlohmann::ordered_json& report) {
    const auto& connectors = report["connectors"];
    const auto& devices = report["devices"];
    std::printf("%s: %s on %s\n", report["card"]["name"].get<std::string>().c_str(),
                counted(connectors.size(), "connector").c_str(),
                counted(devices.size(), "device").c_str());
    for (const auto& device : devices) {
        const std::string kind = device["kind"].get<std::string>();
        std::printf("%s %s", kind.c_str(), device["id"].get<std::string>().c_str());
        if (device["name"].is_string()) {
            std::printf("  %s", device["name"].get<std::string>().c_str());
        }
        std::printf("\n");
        for (const auto& c : connectors) {
            if (c["device"] != device["id"]) {
                continue;
            }
            const std::string name = c["name"].get<std::string>();
            std::printf("  #%-3d %-24s %-22s", c["index"].get<int>(),
                        name.empty() ? "(unnamed)" : name.c_str(),
                        c["node_type"].get<std::string>().c_str());
            if (c["physical_link"].is_number()) {
                std::printf("  physical #%d", c["physical_link"].get<int>());
            } else if (c["connected"].get<bool>()) {
                std::printf("  physical: a connector outside the map");
            }
            if (!c["internal_links"].empty()) {
                std::printf("  internal %s", linkList(c["internal_links"]).c_str());
            }
            std::printf("\n       %s\n", c["global_id"].get<std::string>().c_str());
        }
    }
}

// A string as a Graphviz quoted string: the quote and the backslash escaped, so that ids
// such as "{2}.\\?\hdaudio#..." keep their backslashes.
std::string dotQuoted(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + "\"";
}

// Lines of a label joined by Graphviz's centred line break.
std::string dotLabel(std::initializer_list<std::string> lines) {
    std::string joined;
    for (const std::string& line : lines) {
        std::string quoted = dotQuoted(line);
        joined += (joined.empty() ? "" : "\\n") + quoted.substr(1, quoted.size() - 2);
    }
    return "\"" + joined + "\"";
}

std::string dotGraph(const nlohmann::ordered_json& report) {
    std::ostringstream dot;
    dot << "graph connector_map {\n"
        << "  label="
        << dotLabel(
               {report["card"]["name"].get<std::string>(), report["card"]["id"].get<std::string>()})
        << ";\n  labelloc=t;\n  fontname=\"Helvetica\";\n"
        << "  node [shape=box, style=rounded, fontname=\"Helvetica\", fontsize=10];\n";
    int cluster = 0;
    for (const auto& device : report["devices"]) {
        std::string title = device["kind"].get<std::string>() + ": " +
                            (device["name"].is_string() ? device["name"].get<std::string>()
                                                        : device["id"].get<std::string>());
        dot << "  subgraph cluster_" << cluster++ << " {\n"
            << "    label=" << dotLabel({title}) << ";\n    style=dashed;\n";
        for (const auto& c : report["connectors"]) {
            if (c["device"] == device["id"]) {
                const std::string name = c["name"].get<std::string>();
                dot << "    c" << c["index"].get<int>() << " [label="
                    << dotLabel({"#" + std::to_string(c["index"].get<int>()) + " " +
                                     (name.empty() ? "(unnamed)" : name),
                                 c["node_type"].get<std::string>()})
                    << "];\n";
            }
        }
        dot << "  }\n";
    }
    // Both ends of a physical connection report it; internal links are stored on both.
    std::set<std::pair<int, int>> drawn;
    int outside = 0;
    for (const auto& c : report["connectors"]) {
        const int from = c["index"].get<int>();
        if (c["physical_link"].is_number()) {
            const int to = c["physical_link"].get<int>();
            if (drawn.insert({std::min(from, to), std::max(from, to)}).second) {
                dot << "  c" << from << " -- c" << to << " [penwidth=2];\n";
            }
        } else if (c["connected"].get<bool>()) {
            dot << "  outside" << outside << " [label=\"not in the map\", shape=plaintext];\n"
                << "  c" << from << " -- outside" << outside << " [style=dotted];\n";
            ++outside;
        }
        for (const auto& link : c["internal_links"]) {
            const int to = link.get<int>();
            if (to >= 0 && drawn.insert({std::min(from, to), std::max(from, to)}).second) {
                dot << "  c" << from << " -- c" << to << " [style=dashed];\n";
            }
        }
    }
    dot << "}\n";
    return dot.str();
}

int topology(const TopologyOptions& o, const GlobalOptions& global) {
    if (int code = requireAdministrator(EndpointCatalog()); code != EXIT_OK) {
        return code;
    }
    CardCatalog cards;
    std::string why;
    const SoundCard* card = cards.find(o.card, why);
    if (!card) {
        printError(why);
        return EXIT_USAGE;
    }
    nlohmann::ordered_json report = {{"card", cardIdentity(*card)},
                                     {"devices", deviceRows(*card)},
                                     {"connectors", connectorRows(*card)}};
    if (o.dotPath == "-") {
        std::cout << dotGraph(report);
        return EXIT_OK;
    }
    if (!o.dotPath.empty()) {
        std::ofstream file(o.dotPath, std::ios::binary | std::ios::trunc);
        file << dotGraph(report);
        file.close();
        if (!file) {
            printError("cannot write " + o.dotPath);
            return EXIT_FAILED;
        }
        report["dot_file"] = o.dotPath;
    }
    if (global.json) {
        printReport(report, true);
        return EXIT_OK;
    }
    printTopology(report);
    if (!o.dotPath.empty()) {
        std::printf("Graphviz graph written to %s\n", o.dotPath.c_str());
    }
    return EXIT_OK;
}

} // namespace

Action addTopologyCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<TopologyOptions>();
    app.add_option("card", o->card,
                   "Card id, instance id, parent id, adapter name, or a unique prefix of one")
        ->required();
    app.add_option("--dot", o->dotPath, "Also write the map as a Graphviz graph (- for stdout)")
        ->type_name("FILE");
    return [o, &global] {
        return topology(*o, global);
    };
}

} // namespace audiodiag
