#include "platform/model/MachineBuilder.h"

#include "platform/model/DeviceFormat.h"

#include <algorithm>
#include <stdexcept>

namespace model {

namespace {

template <class Items> auto& last(Items& items, const char* what) {
    if (items.empty()) {
        throw std::logic_error(std::string("MachineBuilder: no ") + what + " added yet");
    }
    return items.back();
}

std::uint32_t nextLocalId(const TopologyDevice& d, PartKind kind) {
    auto count = std::count_if(d.parts.begin(), d.parts.end(),
                               [&](const Part& p) { return p.kind == kind; });
    return (kind == PartKind::Subunit ? kSubunitIdBase : 0) + std::uint32_t(count);
}

} // namespace

MachineBuilder::MachineBuilder(std::string name) {
    m_machine.name = std::move(name);
}

MachineBuilder& MachineBuilder::description(std::string text) {
    m_machine.description = std::move(text);
    return *this;
}

MachineBuilder& MachineBuilder::adapter(std::string instanceId, std::string friendlyName,
                                        std::string parentInstanceId) {
    Adapter& a = m_machine.adapters.emplace_back();
    a.instanceId = std::move(instanceId);
    a.parentInstanceId = std::move(parentInstanceId);
    a.friendlyName = std::move(friendlyName);
    return *this;
}

MachineBuilder& MachineBuilder::endpoint(Flow flow, std::string description,
                                         std::uint32_t formFactor) {
    Endpoint e;
    e.id = generatedEndpointId(flow, m_machine.endpoints.size());
    e.flow = flow;
    e.description = std::move(description);
    e.formFactor = formFactor;
    e.adapter = m_machine.adapters.empty() ? "" : m_machine.adapters.back().instanceId;
    e.deviceFormat = makeDeviceFormat(FormatFields{});
    m_machine.endpoints.push_back(std::move(e));
    return *this;
}

MachineBuilder& MachineBuilder::id(std::string endpointId) {
    lastEndpoint().id = std::move(endpointId);
    return *this;
}

MachineBuilder& MachineBuilder::state(std::uint32_t state) {
    lastEndpoint().state = state;
    return *this;
}

MachineBuilder& MachineBuilder::format(std::uint32_t channels, std::uint32_t rate,
                                       std::uint32_t bits) {
    FormatFields fields;
    fields.channels = channels;
    fields.rate = rate;
    fields.bits = bits;
    lastEndpoint().deviceFormat = makeDeviceFormat(fields);
    return *this;
}

MachineBuilder& MachineBuilder::volume(std::vector<float> levelsDb, VolumeRange range) {
    lastEndpoint().volume = makeVolumeControl(std::move(levelsDb), range);
    return *this;
}

MachineBuilder& MachineBuilder::muted(bool muted) {
    lastEndpoint().muted = muted;
    return *this;
}

MachineBuilder& MachineBuilder::exclusiveMode(bool allowed, bool priority) {
    lastEndpoint().stream.exclusiveAllowed = allowed;
    lastEndpoint().stream.exclusivePriority = priority;
    return *this;
}

MachineBuilder& MachineBuilder::property(const PropertyKey& key,
                                         std::optional<PropertyValue> value) {
    lastEndpoint().propertyOverrides[key] = std::move(value);
    return *this;
}

MachineBuilder& MachineBuilder::endpointDevice() {
    const Endpoint& e = lastEndpoint();
    std::uint32_t flow = e.flow == Flow::Render ? 0 : 1; // into a speaker, out of a microphone
    std::string id = e.id;
    lastEndpoint().topologyDevice = id;
    return device(id).connector({}, GUID{}, ConnectorType::SoftwareFixed, flow);
}

MachineBuilder& MachineBuilder::device(std::string id) {
    m_machine.devices.emplace_back().id = std::move(id);
    return *this;
}

MachineBuilder& MachineBuilder::connector(std::string name, GUID subType, ConnectorType type,
                                          std::uint32_t flow) {
    TopologyDevice& d = lastDevice();
    Part p;
    p.kind = PartKind::Connector;
    p.localId = nextLocalId(d, PartKind::Connector);
    p.name = std::move(name);
    p.subType = subType;
    p.connectorType = type;
    p.connectorFlow = flow;
    d.parts.push_back(std::move(p));
    return *this;
}

MachineBuilder& MachineBuilder::subunit(std::string name, GUID subType) {
    TopologyDevice& d = lastDevice();
    Part p;
    p.localId = nextLocalId(d, PartKind::Subunit);
    p.name = std::move(name);
    p.subType = subType;
    d.parts.push_back(std::move(p));
    return *this;
}

MachineBuilder& MachineBuilder::jack(const Jack& jack) {
    lastPart().jacks.push_back(jack);
    return *this;
}

MachineBuilder& MachineBuilder::partVolume(std::vector<float> levelsDb, VolumeRange range) {
    lastPart().volume = makeVolumeControl(std::move(levelsDb), range);
    return *this;
}

MachineBuilder& MachineBuilder::link(std::uint32_t from, std::uint32_t to) {
    Link& l = lastDevice().links.emplace_back();
    l.from = from;
    l.to = to;
    return *this;
}

MachineBuilder& MachineBuilder::link(std::string_view from, std::string_view to) {
    return link(partId(from), partId(to));
}

MachineBuilder& MachineBuilder::chain(std::initializer_list<std::string_view> partNames) {
    for (auto it = partNames.begin(); it + 1 < partNames.end(); ++it) {
        link(it[0], it[1]);
    }
    return *this;
}

MachineBuilder& MachineBuilder::select(std::string_view inputName) {
    std::uint32_t input = partId(inputName);
    lastPart().selectedInput = input;
    return *this;
}

MachineBuilder& MachineBuilder::connect(const PartRef& a, const PartRef& b) {
    Part* first = m_machine.findPart(a);
    Part* second = m_machine.findPart(b);
    if (!first || !second) {
        throw std::logic_error("MachineBuilder: connect names a part that is not there");
    }
    first->connectedTo = b;
    second->connectedTo = a;
    return *this;
}

MachineBuilder& MachineBuilder::route(std::string render, std::string capture, double gainDb,
                                      double delayMs, double noiseDb) {
    Route& r = m_machine.routes.emplace_back();
    r.render = std::move(render);
    r.capture = std::move(capture);
    r.gainDb = gainDb;
    r.delayMs = delayMs;
    r.noiseDb = noiseDb;
    return *this;
}

MachineBuilder& MachineBuilder::routeMix(std::vector<std::vector<double>> channelMix) {
    if (!m_machine.routes.empty()) {
        m_machine.routes.back().channelMix = std::move(channelMix);
    }
    return *this;
}

MachineBuilder& MachineBuilder::defaultEndpoint(Flow flow, std::string id, int role) {
    auto& roles = flow == Flow::Render ? m_roles.render : m_roles.capture;
    for (int r = 0; r < 3; ++r) {
        if (role < 0 || role == r) {
            roles[r] = id;
        }
    }
    return *this;
}

MachineBuilder& MachineBuilder::fault(std::string operation, std::string target,
                                      std::vector<HRESULT> results, bool sticky) {
    Fault& f = m_machine.faults.emplace_back();
    f.operation = std::move(operation);
    f.target = std::move(target);
    f.results = std::move(results);
    f.sticky = sticky;
    return *this;
}

Endpoint& MachineBuilder::lastEndpoint() {
    return last(m_machine.endpoints, "endpoint");
}

TopologyDevice& MachineBuilder::lastDevice() {
    return last(m_machine.devices, "topology device");
}

Part& MachineBuilder::lastPart() {
    return last(lastDevice().parts, "part");
}

std::uint32_t MachineBuilder::partId(std::string_view name) {
    for (const Part& p : lastDevice().parts) {
        if (p.name == name) {
            return p.localId;
        }
    }
    throw std::logic_error("MachineBuilder: no part named \"" + std::string(name) + "\"");
}

Machine MachineBuilder::build() const {
    Machine machine = m_machine;
    finishMachine(machine, m_roles, "machine \"" + m_machine.name + "\" (builder)");
    return machine;
}

} // namespace model
