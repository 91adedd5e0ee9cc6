// Topology devices of a machine description: connectors, subunits, jacks, links.
#include "platform/model/JsonNames.h"
#include "platform/model/JsonObject.h"
#include "platform/model/JsonSections.h"

#include <charconv>
#include <map>

namespace model::json {

namespace {

constexpr std::uint32_t kStereo = SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT;
constexpr std::uint32_t kDefaultGeoLocation = 1; // eGeoLocRear
constexpr std::uint32_t kPartChannels = 2;

// A selector's input, kept as written until every part of the device is known.
struct PendingSelection {
    std::size_t part;
    const Json* value;
    Where where;
};

// Parts are referred to by local id or, more readably, by name.
class PartNames {
public:
    explicit PartNames(const TopologyDevice& device) {
        for (const Part& part : device.parts) {
            m_ids.emplace(part.name, part.localId);
        }
    }

    std::uint32_t resolve(const Json& value, const Where& where) const {
        if (!value.is_string()) {
            return asInteger(value, where, 0, UINT32_MAX);
        }
        std::string name = value.get<std::string>();
        switch (m_ids.count(name)) {
        case 0:
            where.fail("no part named " + inQuotes(name) + " in this device");
        case 1:
            return m_ids.find(name)->second;
        default:
            where.fail("several parts are named " + inQuotes(name) + "; use the local id");
        }
    }

private:
    std::multimap<std::string, std::uint32_t> m_ids;
};

std::uint32_t readColor(const Object& o) {
    const Json* v = o.find("color");
    if (!v || !v->is_string()) {
        return o.integer("color", 0, 0, 0xFFFFFF);
    }
    std::string text = v->get<std::string>();
    std::uint32_t rgb = 0;
    const char* end = text.data() + text.size();
    bool ok = text.size() == 7 && text[0] == '#' &&
              std::from_chars(text.data() + 1, end, rgb, 16).ptr == end;
    if (!ok) {
        o.at("color").fail("expected \"#RRGGBB\" or a number, got " + describe(*v));
    }
    return rgb;
}

Jack readJack(const Json& value, const Where& where) {
    Object o(value, where,
             {"channel_mapping", "color", "connection_type", "geo_location", "gen_location",
              "port_connection", "is_connected"});
    Jack jack;
    jack.channelMapping = o.integer("channel_mapping", kStereo);
    jack.color = readColor(o);
    jack.connectionType = o.choice("connection_type", 0, kConnectionTypes);
    jack.geoLocation = o.choice("geo_location", kDefaultGeoLocation, kGeoLocations);
    jack.genLocation = o.choice("gen_location", 0, kGenLocations);
    jack.portConnection = o.choice("port_connection", 0, kPortConnections);
    jack.isConnected = o.flag("is_connected", true);
    return jack;
}

void readConnectorFields(const Object& o, Part& part) {
    part.connectorType = ConnectorType(o.choice("type", 0, kConnectorTypes));
    part.connectorFlow = o.choice("flow", 0, kConnectorFlows);
    if (auto to = o.object("connected_to", {"device", "connector"})) {
        std::string why = "a connection names the device and the connector's local id";
        PartRef& ref = part.connectedTo.emplace();
        ref.device = to->requiredText("device", why);
        if (!to->find("connector")) {
            to->at("connector").fail("missing: " + why);
        }
        ref.localId = to->integer("connector", 0);
    }
    for (auto& [value, where] : o.elements("jacks")) {
        part.jacks.push_back(readJack(*value, where));
    }
}

Part readPart(const Object& o, PartKind kind, std::uint32_t defaultId) {
    Part part;
    part.kind = kind;
    part.localId = o.integer("id", defaultId);
    part.name = o.text("name");
    part.subType = o.nodeType("subtype");
    part.domain = SignalDomain(o.choice("domain", 0, kDomains));
    if (auto volume = o.object("volume", {"channels", "range", "levels_db"})) {
        part.volume = readVolumeControl(*volume, kPartChannels);
    }
    if (o.find("mute")) {
        part.mute = o.flag("mute", false);
    }
    if (kind == PartKind::Connector) {
        readConnectorFields(o, part);
    }
    return part;
}

void readParts(const Object& device, std::string_view key, PartKind kind, std::uint32_t firstId,
               TopologyDevice& d, std::vector<PendingSelection>& selections) {
    bool connector = kind == PartKind::Connector;
    std::uint32_t index = 0;
    for (auto& [value, where] : device.elements(key)) {
        Object o =
            connector
                ? Object(*value, where,
                         {"id", "name", "subtype", "domain", "volume", "mute", "selected_input",
                          "type", "flow", "connected_to", "jacks"})
                : Object(*value, where,
                         {"id", "name", "subtype", "domain", "volume", "mute", "selected_input"});
        d.parts.push_back(readPart(o, kind, firstId + index++));
        if (const Json* input = o.find("selected_input")) {
            selections.push_back({d.parts.size() - 1, input, o.at("selected_input")});
        }
    }
}

// {"from": a, "to": b}, or a chain [a, b, c] that links a to b and b to c.
void readLink(const Json& value, const Where& where, const PartNames& names,
              std::vector<Link>& links) {
    if (value.is_array()) {
        if (value.size() < 2) {
            where.fail("a chain of links needs at least two parts");
        }
        for (std::size_t i = 0; i + 1 < value.size(); ++i) {
            links.push_back(
                {names.resolve(value[i], where[i]), names.resolve(value[i + 1], where[i + 1])});
        }
        return;
    }
    Object o(value, where, {"from", "to"});
    if (!o.find("from") || !o.find("to")) {
        where.fail("a link needs from and to (or write it as an array of parts)");
    }
    links.push_back(
        {names.resolve(*o.find("from"), o.at("from")), names.resolve(*o.find("to"), o.at("to"))});
}

} // namespace

TopologyDevice readDevice(const Json& value, const Where& where) {
    Object o(value, where, {"id", "connectors", "subunits", "links"});
    TopologyDevice d;
    d.id = o.requiredText("id", "every topology device needs an id");
    std::vector<PendingSelection> selections;
    readParts(o, "connectors", PartKind::Connector, 0, d, selections);
    readParts(o, "subunits", PartKind::Subunit, kSubunitIdBase, d, selections);
    PartNames names(d);
    for (auto& [link, at] : o.elements("links")) {
        readLink(*link, at, names, d.links);
    }
    for (const PendingSelection& s : selections) {
        d.parts[s.part].selectedInput = names.resolve(*s.value, s.where);
    }
    return d;
}

} // namespace model::json
