// audiodiag cards, volume-path ENDPOINT and input-selectors CARD.
#include "CardCatalog.h"
#include "Commands.h"
#include "Report.h"

#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>

namespace audiodiag {

namespace {

// ---- cards

void printEndpointLines(const char* title, const nlohmann::ordered_json& rows) {
    std::printf("  %s\n", title);
    if (rows.empty()) {
        std::printf("    (none)\n");
    }
    for (const auto& row : rows) {
        std::printf("    %s  %s\n", row["name"].get<std::string>().c_str(),
                    row["id"].get<std::string>().c_str());
        std::printf("      %s, %s: %s\n", row["state"].get<std::string>().c_str(),
                    row["node_type"].get<std::string>().c_str(),
                    classificationWords(row["classification"]).c_str());
    }
}

void printCard(const nlohmann::ordered_json& card) {
    auto textOf = [](const nlohmann::ordered_json& value) {
        return value.is_string() ? value.get<std::string>() : std::string("(none)");
    };
    std::printf("%s\n", card["name"].get<std::string>().c_str());
    std::printf("  id           %s\n", textOf(card["id"]).c_str());
    std::printf("  instance id  %s\n", textOf(card["instance_id"]).c_str());
    std::printf("  parent id    %s\n", textOf(card["parent_id"]).c_str());
    std::printf("  enumerator   %s\n", textOf(card["enumerator"]).c_str());
    printEndpointLines("playback", card["playback"]);
    printEndpointLines("record", card["record"]);
    std::printf("  internal devices\n");
    if (card["internal_devices"].empty()) {
        std::printf("    (none)\n");
    }
    for (const auto& id : card["internal_devices"]) {
        std::printf("    %s\n", id.get<std::string>().c_str());
    }
}

int listCards(const GlobalOptions& global) {
    // Cards are grouped and named by what the endpoints' properties say.
    if (int code = requireAdministrator(EndpointCatalog()); code != EXIT_OK) {
        return code;
    }
    CardCatalog catalog;
    nlohmann::ordered_json cards = nlohmann::ordered_json::array();
    for (const SoundCard& card : catalog.cards()) {
        cards.push_back(cardReport(card));
    }
    if (global.json) {
        printReport({{"cards", cards}}, true);
        return EXIT_OK;
    }
    if (cards.empty()) {
        std::printf("no sound cards\n");
    }
    for (std::size_t i = 0; i < cards.size(); ++i) {
        std::printf("%s", i ? "\n" : "");
        printCard(cards[i]);
    }
    return EXIT_OK;
}

// ---- volume-path

struct VolumePathOptions {
    std::string endpoint;
    std::optional<unsigned int> node;
    std::optional<float> decibel;
    bool mute = false;
    bool unmute = false;
};

nlohmann::ordered_json nodeReport(unsigned int index, const SoundCard::VolumeController& node) {
    ::VolumeController<RegularVolumeController> control(
        RegularVolumeController{node.volume, node.mute, node.subtype, node.name});
    nlohmann::ordered_json channels = nlohmann::ordered_json::array();
    for (unsigned int c = 0; c < control.numChannel(); ++c) {
        VolumeControllerInterface::DbVolumeRange range{};
        nlohmann::ordered_json channel = {{"channel", c},
                                          {"level_db", control.volumeLevelDecibel(c)}};
        if (control.volumeRangeDecibel(c, range)) {
            channel["min_db"] = range.minDb;
            channel["max_db"] = range.maxDb;
            channel["step_db"] = range.stepDb;
        } else {
            channel["min_db"] = channel["max_db"] = channel["step_db"] = nullptr;
        }
        channels.push_back(channel);
    }
    const bool hasMute = control.hasMuteControl();
    return {{"node", index},
            {"volume_node", text(node.volumeNode.name())},
            {"connector", text(node.name)},
            {"connector_type", partTypeName(node.subtype)},
            {"mute_node", hasMute ? nlohmann::ordered_json(text(node.muteNode.name()))
                                  : nlohmann::ordered_json(nullptr)},
            {"muted",
             hasMute ? nlohmann::ordered_json(control.isMuted()) : nlohmann::ordered_json(nullptr)},
            {"channels", channels}};
}

std::string decibels(const nlohmann::ordered_json& value) {
    if (!value.is_number()) {
        return "?";
    }
    char out[32];
    std::snprintf(out, sizeof out, "%g", value.get<double>());
    return out;
}

void printVolumePath(const nlohmann::ordered_json& report) {
    const auto& nodes = report["nodes"];
    std::printf("%s on %s: ", report["endpoint"]["name"].get<std::string>().c_str(),
                report["card"]["name"].get<std::string>().c_str());
    if (nodes.empty()) {
        std::printf("no hardware volume node on its signal paths\n");
        return;
    }
    std::printf("%s, nearest first\n", counted(nodes.size(), "hardware volume node").c_str());
    for (const auto& node : nodes) {
        std::printf("node %u: %s, beside connector %s (%s)\n", node["node"].get<unsigned int>(),
                    node["volume_node"].get<std::string>().c_str(),
                    node["connector"].get<std::string>().c_str(),
                    node["connector_type"].get<std::string>().c_str());
        if (node["mute_node"].is_string()) {
            std::printf("  mute: %s, %s\n", node["mute_node"].get<std::string>().c_str(),
                        node["muted"].get<bool>() ? "muted" : "not muted");
        } else {
            std::printf("  mute: none\n");
        }
        for (const auto& c : node["channels"]) {
            std::printf("  channel %u: %s dB (range %s to %s dB, step %s dB)\n",
                        c["channel"].get<unsigned int>(), decibels(c["level_db"]).c_str(),
                        decibels(c["min_db"]).c_str(), decibels(c["max_db"]).c_str(),
                        decibels(c["step_db"]).c_str());
        }
    }
}

// Sets what the options ask on one node. EXIT_OK, or the code and why.
int applyToNode(const VolumePathOptions& o, const SoundCard::VolumeController& node,
                std::string& why) {
    ::VolumeController<RegularVolumeController> control(
        RegularVolumeController{node.volume, node.mute, node.subtype, node.name});
    if ((o.mute || o.unmute) && !control.hasMuteControl()) {
        why = "node " + std::to_string(*o.node) + " (" + text(node.volumeNode.name()) +
              ") has no mute";
        return EXIT_FAILED;
    }
    if (o.decibel && !control.setMasterVolumeLevelDecibel(*o.decibel)) {
        why = "node " + std::to_string(*o.node) + " (" + text(node.volumeNode.name()) +
              ") refused " + decibels(*o.decibel) + " dB (outside its range?)";
        return EXIT_FAILED;
    }
    if ((o.mute || o.unmute) && !control.setMute(o.mute)) {
        why = "node " + std::to_string(*o.node) + " refused the mute change";
        return EXIT_FAILED;
    }
    return EXIT_OK;
}

int volumePath(VolumePathOptions o, const GlobalOptions& global) {
    const bool changes = o.decibel || o.mute || o.unmute;
    if (o.decibel && !std::isfinite(*o.decibel)) {
        printError("--set-db needs a finite number of decibels");
        return EXIT_USAGE;
    }
    if (o.node && !changes) {
        printError("--node chooses the node that --set-db, --mute or --unmute changes");
        return EXIT_USAGE;
    }
    EndpointCatalog endpoints;
    if (int code = requireAdministrator(endpoints); code != EXIT_OK) {
        return code;
    }
    std::string why;
    const EndpointEntry* entry = endpoints.find(o.endpoint, why);
    if (!entry) {
        printError(why);
        return EXIT_USAGE;
    }
    CardCatalog cards;
    const SoundCard* card = cards.cardOf(entry->device);
    if (!card) {
        printError(displayName(entry->device) + " belongs to no sound card");
        return EXIT_FAILED;
    }
    qel::Array<SoundCard::VolumeController> nodes;
    card->volumeController(entry->device, nodes);
    if (changes) {
        if (nodes.empty()) {
            printError(displayName(entry->device) +
                       " has no hardware volume node on its signal paths");
            return EXIT_FAILED;
        }
        if (!o.node && nodes.size() > 1) {
            printError("the path has " + std::to_string(nodes.size()) +
                       " volume nodes: choose one with --node 0-" +
                       std::to_string(nodes.size() - 1) + " (audiodiag volume-path lists them)");
            return EXIT_USAGE;
        }
        o.node = o.node.value_or(0);
        if (*o.node >= nodes.size()) {
            printError(
                "there is no node " + std::to_string(*o.node) + ": the path has " +
                counted(nodes.size(), "volume node") +
                (nodes.size() == 1 ? " (0)" : " (0-" + std::to_string(nodes.size() - 1) + ")"));
            return EXIT_USAGE;
        }
        int code = applyToNode(o, nodes[*o.node], why);
        if (code != EXIT_OK) {
            printError(why);
            return code;
        }
    }
    nlohmann::ordered_json report = {{"endpoint",
                                      {{"id", text(entry->device.deviceProperty().deviceId)},
                                       {"name", displayName(entry->device)}}},
                                     {"card", cardIdentity(*card)},
                                     {"nodes", nlohmann::ordered_json::array()}};
    for (qel::Uint32 i = 0; i < nodes.size(); ++i) {
        report["nodes"].push_back(nodeReport(i, nodes[i]));
    }
    if (global.json) {
        printReport(report, true);
    } else {
        printVolumePath(report);
    }
    return EXIT_OK;
}

// ---- input-selectors

struct SelectorOptions {
    std::string card;
    std::optional<unsigned int> selector;
    std::optional<std::string> select;
};

// The input a person names: its place in the list, its name or a unique prefix of it.
std::optional<qel::Uint32> findInput(const SoundCard::InputSelector& selector,
                                     const std::string& wanted, std::string& why) {
    const qel::Array<AudioPart>& inputs = selector.inputs;
    if (!wanted.empty() && wanted.find_first_not_of("0123456789") == std::string::npos) {
        unsigned long index = std::strtoul(wanted.c_str(), nullptr, 10);
        if (index < inputs.size()) {
            return qel::Uint32(index);
        }
        why = "there is no input " + wanted + ": " + text(selector.part.name()) + " has " +
              counted(inputs.size(), "input");
        return std::nullopt;
    }
    const std::string key = lowered(wanted);
    std::vector<qel::Uint32> exact, prefixed;
    for (qel::Uint32 i = 0; i < inputs.size(); ++i) {
        const std::string name = lowered(text(inputs[i].name()));
        if (!key.empty() && name == key) {
            exact.push_back(i);
        } else if (!key.empty() && name.starts_with(key)) {
            prefixed.push_back(i);
        }
    }
    const std::vector<qel::Uint32>& found = exact.empty() ? prefixed : exact;
    if (found.size() == 1) {
        return found[0];
    }
    if (found.empty()) {
        why = "no input of " + text(selector.part.name()) + " is \"" + wanted + "\"";
    } else {
        why = "\"" + wanted + "\" could be any of:";
        for (qel::Uint32 i : found) {
            why += "\n  " + std::to_string(i) + "  " + text(inputs[i].name());
        }
    }
    return std::nullopt;
}

nlohmann::ordered_json selectorReport(unsigned int index, const SoundCard::InputSelector& s) {
    nlohmann::ordered_json inputs = nlohmann::ordered_json::array();
    for (qel::Uint32 i = 0; i < s.inputs.size(); ++i) {
        inputs.push_back({{"input", i},
                          {"name", text(s.inputs[i].name())},
                          {"node_type", partTypeName(s.inputs[i].subType())},
                          {"selected", std::int32_t(i) == s.selected}});
    }
    return {{"selector", index},
            {"name", text(s.part.name())},
            {"device", text(s.deviceId)},
            {"global_id", text(s.part.globalId())},
            {"inputs", inputs},
            {"selected", s.selected >= 0 ? nlohmann::ordered_json(s.selected)
                                         : nlohmann::ordered_json(nullptr)}};
}

void printSelectors(const nlohmann::ordered_json& report) {
    const auto& selectors = report["selectors"];
    std::printf("%s: ", report["card"]["name"].get<std::string>().c_str());
    if (selectors.empty()) {
        std::printf("no input selectors\n");
        return;
    }
    std::printf("%s\n", counted(selectors.size(), "input selector").c_str());
    for (const auto& s : selectors) {
        std::printf("selector %u: %s on %s\n", s["selector"].get<unsigned int>(),
                    s["name"].get<std::string>().c_str(), s["device"].get<std::string>().c_str());
        for (const auto& input : s["inputs"]) {
            std::printf("  %s %u  %s (%s)\n", input["selected"].get<bool>() ? "*" : " ",
                        input["input"].get<unsigned int>(),
                        input["name"].get<std::string>().c_str(),
                        input["node_type"].get<std::string>().c_str());
        }
        if (s["selected"].is_null()) {
            std::printf("  (the selection names none of these inputs)\n");
        }
    }
}

int inputSelectors(const SelectorOptions& o, const GlobalOptions& global) {
    if (o.selector && !o.select) {
        printError("--selector chooses the selector that --select changes");
        return EXIT_USAGE;
    }
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
    qel::Array<SoundCard::InputSelector> selectors;
    card->inputSelectors(selectors);
    if (o.select) {
        if (selectors.empty()) {
            printError(cardName(*card) + " has no input selector");
            return EXIT_FAILED;
        }
        if (!o.selector && selectors.size() > 1) {
            printError(cardName(*card) + " has " + std::to_string(selectors.size()) +
                       " input selectors: choose one with --selector 0-" +
                       std::to_string(selectors.size() - 1));
            return EXIT_USAGE;
        }
        const unsigned int which = o.selector.value_or(0);
        if (which >= selectors.size()) {
            printError("there is no selector " + std::to_string(which) + ": " + cardName(*card) +
                       " has " + counted(selectors.size(), "input selector"));
            return EXIT_USAGE;
        }
        std::optional<qel::Uint32> input = findInput(selectors[which], *o.select, why);
        if (!input) {
            printError(why);
            return EXIT_USAGE;
        }
        if (!SoundCard::selectInput(selectors[which], *input)) {
            printError(text(selectors[which].part.name()) + " refused input " +
                       text(selectors[which].inputs[*input].name()));
            return EXIT_FAILED;
        }
        // Read back: the report shows what the platform now holds.
        selectors.clear();
        card->inputSelectors(selectors);
    }
    nlohmann::ordered_json report = {{"card", cardIdentity(*card)},
                                     {"selectors", nlohmann::ordered_json::array()}};
    for (qel::Uint32 i = 0; i < selectors.size(); ++i) {
        report["selectors"].push_back(selectorReport(i, selectors[i]));
    }
    if (global.json) {
        printReport(report, true);
    } else {
        printSelectors(report);
    }
    return EXIT_OK;
}

} // namespace

Action addCardsCommand(CLI::App&, const GlobalOptions& global) {
    return [&global] {
        return listCards(global);
    };
}

Action addVolumePathCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<VolumePathOptions>();
    app.add_option("endpoint", o->endpoint, "Endpoint id, a unique prefix of it, or its name")
        ->required();
    app.add_option("--set-db", o->decibel, "Set the chosen node's level in dB, every channel");
    auto* mute = app.add_flag("--mute", o->mute, "Mute the chosen node");
    app.add_flag("--unmute", o->unmute, "Unmute the chosen node")->excludes(mute);
    app.add_option("--node", o->node, "The node to change, by its number in the list")
        ->type_name("N");
    return [o, &global] {
        return volumePath(*o, global);
    };
}

Action addInputSelectorsCommand(CLI::App& app, const GlobalOptions& global) {
    auto o = std::make_shared<SelectorOptions>();
    app.add_option("card", o->card,
                   "Card id, instance id, parent id, adapter name, or a unique prefix of one")
        ->required();
    app.add_option("--select", o->select, "Select this input: its number or its name")
        ->type_name("INPUT");
    app.add_option("--selector", o->selector, "The selector to change, by its number")
        ->type_name("N");
    return [o, &global] {
        return inputSelectors(*o, global);
    };
}

} // namespace audiodiag
