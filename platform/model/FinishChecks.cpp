// References and values that must hold in every machine, however it was made.
#include "platform/model/FinishSteps.h"
#include "platform/model/Guid.h"

#include <set>
#include <sstream>

namespace model::finish {

namespace {

constexpr std::uint32_t kMaxChannels = 32;
// Bounds that keep the audio engine's arithmetic and delay buffers finite.
constexpr double kMaxDecibels = 1000;
constexpr double kMaxDelayMs = 10000;

std::string number(double value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string flowName(Flow flow) {
    return flow == Flow::Render ? "render" : "capture";
}

// Refuses the second of two items whose keys are equal.
template <class Items, class Key>
void requireUnique(const Items& items, Key key, const Where& list, const char* field,
                   const char* what) {
    std::set<decltype(key(items.front()))> seen;
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!seen.insert(key(items[i])).second) {
            list[i][field].fail("another " + std::string(what) + " has the same " + field + " " +
                                inQuotes(key(items[i])));
        }
    }
}

void checkWithin(double value, double min, double max, const char* unit, const Where& where) {
    if (!(value >= min && value <= max)) {
        where.fail("must be from " + number(min) + " to " + number(max) + unit + ", got " +
                   number(value));
    }
}

void checkDecibels(double value, const Where& where) {
    checkWithin(value, -kMaxDecibels, kMaxDecibels, " dB", where);
}

// A weight above 1 would hide a gain that belongs in gain_db; a negative one is a
// reversed polarity.
void checkChannelMix(const std::vector<std::vector<double>>& mix, const Where& where) {
    if (mix.size() > kMaxChannels) {
        where.fail("must have from 1 to " + std::to_string(kMaxChannels) + " rows");
    }
    for (std::size_t c = 0; c < mix.size(); ++c) {
        if (mix[c].empty() || mix[c].size() > kMaxChannels) {
            where[c].fail("must have from 1 to " + std::to_string(kMaxChannels) + " weights");
        }
        for (std::size_t r = 0; r < mix[c].size(); ++r) {
            checkWithin(mix[c][r], -1, 1, "", where[c][r]);
        }
    }
}

void checkVolume(const VolumeControl& v, const Where& where) {
    if (v.levelsDb.empty() || v.levelsDb.size() > kMaxChannels) {
        where["channels"].fail("must be from 1 to " + std::to_string(kMaxChannels));
    }
    if (v.ranges.size() != v.levelsDb.size()) {
        where["range"].fail("needs one range per channel");
    }
    for (std::size_t i = 0; i < v.levelsDb.size(); ++i) {
        const VolumeRange& r = v.ranges[i];
        checkDecibels(r.minDb, where["range"]["min_db"]);
        checkDecibels(r.maxDb, where["range"]["max_db"]);
        if (r.minDb > r.maxDb) {
            where["range"].fail("min_db " + number(r.minDb) + " is above max_db " +
                                number(r.maxDb));
        }
        if (!(r.stepDb > 0)) {
            where["range"]["step_db"].fail("must be above 0, got " + number(r.stepDb));
        }
        if (v.levelsDb[i] < r.minDb || v.levelsDb[i] > r.maxDb) {
            where["levels_db"][i].fail(number(v.levelsDb[i]) + " dB is outside the range " +
                                       number(r.minDb) + " to " + number(r.maxDb) + " dB");
        }
    }
}

void checkFormat(const WAVEFORMATEXTENSIBLE& f, const Where& where) {
    const WAVEFORMATEX& x = f.Format;
    if (x.wFormatTag != WAVE_FORMAT_EXTENSIBLE || x.cbSize != 22) {
        where.fail("must be WAVE_FORMAT_EXTENSIBLE with cbSize 22");
    }
    if (x.nChannels == 0 || x.nChannels > kMaxChannels) {
        where["channels"].fail("must be from 1 to " + std::to_string(kMaxChannels));
    }
    if (x.wBitsPerSample % 8 != 0 || x.wBitsPerSample == 0 || x.wBitsPerSample > 32) {
        where["bits"].fail("must be 8, 16, 24 or 32, got " + std::to_string(x.wBitsPerSample));
    }
    if (f.Samples.wValidBitsPerSample == 0 || f.Samples.wValidBitsPerSample > x.wBitsPerSample) {
        where["valid_bits"].fail("must be from 1 to bits (" + std::to_string(x.wBitsPerSample) +
                                 ")");
    }
    if (x.nSamplesPerSec == 0 || x.nBlockAlign != x.nChannels * x.wBitsPerSample / 8 ||
        x.nAvgBytesPerSec != x.nSamplesPerSec * x.nBlockAlign) {
        where.fail("block align and byte rate must follow from channels, rate and bits");
    }
}

void checkEndpointId(const Endpoint& e, const Where& where) {
    std::string prefix = e.flow == Flow::Render ? "{0.0.0.00000000}." : "{0.0.1.00000000}.";
    if (!e.id.starts_with(prefix) || !parseGuid(e.id.substr(prefix.size()))) {
        where.fail("expected " + inQuotes(prefix + "{GUID}") + " for a " + flowName(e.flow) +
                   " endpoint, got " + inQuotes(e.id));
    }
}

void checkEndpoint(const Machine& m, const Endpoint& e, const Where& where) {
    checkEndpointId(e, where["id"]);
    if (!m.findAdapter(e.adapter) && !(e.adapter.empty() && m.adapters.empty())) {
        where["adapter"].fail("no adapter has the instance id " + inQuotes(e.adapter));
    }
    if (!e.topologyDevice.empty() && !m.findDevice(e.topologyDevice)) {
        where["topology_device"].fail("no topology device has the id " +
                                      inQuotes(e.topologyDevice));
    }
    if (!parseGuid(e.directSoundGuid)) {
        where["direct_sound_guid"].fail("expected a GUID in braces, got " +
                                        inQuotes(e.directSoundGuid));
    }
    checkFormat(e.deviceFormat, where["format"]);
    checkVolume(e.volume, where["volume"]);
}

bool linksInto(const TopologyDevice& d, std::uint32_t from, std::uint32_t to) {
    for (const Link& link : d.links) {
        if (link.from == from && link.to == to) {
            return true;
        }
    }
    return false;
}

void checkLinks(const TopologyDevice& d, const Where& where) {
    for (std::size_t i = 0; i < d.links.size(); ++i) {
        const Link& link = d.links[i];
        for (auto [end, id] : {std::pair{"from", link.from}, std::pair{"to", link.to}}) {
            if (!d.findPart(id)) {
                where[i][end].fail("no part of this device has the local id " + std::to_string(id));
            }
        }
        if (link.from == link.to) {
            where[i].fail("a part cannot link to itself");
        }
    }
}

void checkPart(const TopologyDevice& d, const Part& p, const Where& where) {
    if (p.volume) {
        checkVolume(*p.volume, where["volume"]);
    }
    if (p.selectedInput && !linksInto(d, *p.selectedInput, p.localId)) {
        where["selected_input"].fail("part " + std::to_string(*p.selectedInput) +
                                     " does not link into this selector");
    }
    if (p.kind == PartKind::Subunit && (p.connectedTo || !p.jacks.empty())) {
        where.fail("only connectors have connections and jacks");
    }
}

void checkEndpointRef(const Machine& m, const std::string& id, Flow flow, const Where& where) {
    const Endpoint* e = m.findEndpoint(id);
    if (!e || e->flow != flow) {
        where.fail(inQuotes(id) + " is not a " + flowName(flow) + " endpoint");
    }
}

} // namespace

Where partWhere(const Where& root, const Machine& m, std::size_t d, std::size_t p) {
    const std::vector<Part>& parts = m.devices[d].parts;
    std::size_t sameKindBefore = 0;
    for (std::size_t i = 0; i < p; ++i) {
        sameKindBefore += parts[i].kind == parts[p].kind;
    }
    const char* list = parts[p].kind == PartKind::Connector ? "connectors" : "subunits";
    return root["devices"][d][list][sameKindBefore];
}

void checkUniqueIds(const Machine& m, const Where& root) {
    requireUnique(
        m.adapters, [](const Adapter& a) { return a.instanceId; }, root["adapters"], "instance_id",
        "adapter");
    requireUnique(
        m.endpoints, [](const Endpoint& e) { return e.id; }, root["endpoints"], "id", "endpoint");
    requireUnique(
        m.devices, [](const TopologyDevice& d) { return d.id; }, root["devices"], "id",
        "topology device");
    for (std::size_t d = 0; d < m.devices.size(); ++d) {
        std::set<std::uint32_t> seen;
        for (std::size_t p = 0; p < m.devices[d].parts.size(); ++p) {
            std::uint32_t id = m.devices[d].parts[p].localId;
            if (!seen.insert(id).second) {
                partWhere(root, m, d, p)["id"].fail(
                    "another part of this device has the local id " + std::to_string(id));
            }
        }
    }
}

void checkEndpoints(const Machine& m, const Where& root) {
    for (std::size_t i = 0; i < m.endpoints.size(); ++i) {
        checkEndpoint(m, m.endpoints[i], root["endpoints"][i]);
    }
}

void checkDevices(const Machine& m, const Where& root) {
    for (std::size_t d = 0; d < m.devices.size(); ++d) {
        const TopologyDevice& device = m.devices[d];
        checkLinks(device, root["devices"][d]["links"]);
        for (std::size_t p = 0; p < device.parts.size(); ++p) {
            checkPart(device, device.parts[p], partWhere(root, m, d, p));
        }
    }
}

void checkRoutesAndFaults(const Machine& m, const Where& root) {
    for (std::size_t i = 0; i < m.routes.size(); ++i) {
        const Route& r = m.routes[i];
        checkEndpointRef(m, r.render, Flow::Render, root["routes"][i]["render"]);
        checkEndpointRef(m, r.capture, Flow::Capture, root["routes"][i]["capture"]);
        checkDecibels(r.gainDb, root["routes"][i]["gain_db"]);
        checkDecibels(r.noiseDb, root["routes"][i]["noise_db"]);
        checkWithin(r.delayMs, 0, kMaxDelayMs, " ms", root["routes"][i]["delay_ms"]);
        checkChannelMix(r.channelMix, root["routes"][i]["channel_mix"]);
    }
    for (std::size_t i = 0; i < m.faults.size(); ++i) {
        if (m.faults[i].operation.empty()) {
            root["faults"][i]["operation"].fail("must name the operation that fails");
        }
    }
}

} // namespace model::finish
