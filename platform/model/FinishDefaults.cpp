// Values that a description may leave out and that follow from the rest of the machine.
#include "platform/model/DeviceFormat.h"
#include "platform/model/FinishSteps.h"
#include "platform/model/Guid.h"
#include "platform/model/NodeTypes.h"

#include <cctype>
#include <cstdio>

namespace model::finish {

namespace {

constexpr std::size_t kEndpointIdPrefixLength = 17; // "{0.0.0.00000000}."
constexpr std::uint32_t kNodeVolumeChannels = 2;

std::string enumeratorOf(const std::string& instanceId) {
    std::string bus = instanceId.substr(0, instanceId.find('\\'));
    for (char& c : bus) {
        c = char(std::toupper(static_cast<unsigned char>(c)));
    }
    return bus;
}

std::string generatedAdapterId(std::size_t index) {
    char id[32];
    std::snprintf(id, sizeof id, "ROOT\\MEDIA\\%04zu", index);
    return id;
}

VolumeControl fullVolume(std::uint32_t channels) {
    VolumeRange range;
    return makeVolumeControl(std::vector<float>(channels, range.maxDb), range);
}

std::string composedFriendlyName(const Machine& m, const Endpoint& e) {
    const Adapter* adapter = m.findAdapter(e.adapter);
    return adapter ? e.description + " (" + adapter->friendlyName + ")" : e.description;
}

std::string directSoundGuidOf(const std::string& endpointId) {
    std::optional<GUID> guid = endpointId.size() > kEndpointIdPrefixLength
                                   ? parseGuid(endpointId.substr(kEndpointIdPrefixLength))
                                   : std::nullopt;
    return guid ? formatGuid(*guid) : std::string();
}

void fillNames(const Machine& m, Endpoint& e, std::size_t index) {
    if (e.id.empty()) {
        e.id = generatedEndpointId(e.flow, index);
    }
    if (e.adapter.empty() && !m.adapters.empty()) {
        e.adapter = m.adapters.front().instanceId;
    }
    if (e.description.empty()) {
        e.description = e.flow == Flow::Render ? "Speakers" : "Microphone";
    }
    if (e.friendlyName.empty()) {
        e.friendlyName = composedFriendlyName(m, e);
    }
    if (e.directSoundGuid.empty()) {
        e.directSoundGuid = directSoundGuidOf(e.id);
    }
    if (e.topologyDevice.empty() && m.findDevice(e.id)) {
        e.topologyDevice = e.id;
    }
}

void fillAudio(Endpoint& e) {
    if (e.deviceFormat.Format.wFormatTag == 0) {
        e.deviceFormat = makeDeviceFormat(FormatFields{});
    }
    if (e.volume.levelsDb.empty()) {
        e.volume = fullVolume(e.deviceFormat.Format.nChannels);
    }
    if (e.physicalSpeakers == 0 && e.flow == Flow::Render) {
        e.physicalSpeakers = e.deviceFormat.dwChannelMask;
    }
}

std::optional<std::uint32_t> firstInput(const TopologyDevice& d, std::uint32_t localId) {
    for (const Link& link : d.links) {
        if (link.to == localId) {
            return link.from;
        }
    }
    return std::nullopt;
}

std::string firstActive(const Machine& m, Flow flow) {
    for (const Endpoint& e : m.endpoints) {
        if (e.flow == flow && e.state == STATE_ACTIVE) {
            return e.id;
        }
    }
    return {};
}

void resolveFlowRoles(const Machine& m, Flow flow,
                      const std::array<std::optional<std::string>, 3>& requests,
                      std::string (&roles)[3], const Where& where) {
    const char* names[] = {"console", "multimedia", "communications"};
    for (int role = 0; role < 3; ++role) {
        roles[role] = requests[role] ? *requests[role] : firstActive(m, flow);
        const Endpoint* e = m.findEndpoint(roles[role]);
        if (!roles[role].empty() && (!e || e->flow != flow)) {
            where[names[role]].fail(inQuotes(roles[role]) + " is not a " +
                                    (flow == Flow::Render ? "render" : "capture") + " endpoint");
        }
    }
}

} // namespace

void fillAdapterDefaults(Machine& m) {
    for (std::size_t i = 0; i < m.adapters.size(); ++i) {
        Adapter& a = m.adapters[i];
        if (a.instanceId.empty()) {
            a.instanceId = generatedAdapterId(i);
        }
        if (a.enumerator.empty()) {
            a.enumerator = enumeratorOf(a.instanceId);
        }
        if (a.friendlyName.empty()) {
            a.friendlyName = "Audio Device";
        }
    }
}

void fillEndpointDefaults(Machine& m) {
    for (std::size_t i = 0; i < m.endpoints.size(); ++i) {
        fillNames(m, m.endpoints[i], i);
        fillAudio(m.endpoints[i]);
    }
}

void fillPartControls(Machine& m) {
    static const GUID volume = *nodeTypeByName("VOLUME");
    static const GUID mute = *nodeTypeByName("MUTE");
    static const GUID mux = *nodeTypeByName("MUX");
    for (TopologyDevice& d : m.devices) {
        for (Part& p : d.parts) {
            if (p.subType == volume && !p.volume) {
                p.volume = fullVolume(kNodeVolumeChannels);
            }
            if (p.subType == mute && !p.mute) {
                p.mute = false;
            }
            if (p.subType == mux && !p.selectedInput) {
                p.selectedInput = firstInput(d, p.localId);
            }
        }
    }
}

void deriveJackSubtypes(Machine& m) {
    for (Endpoint& e : m.endpoints) {
        const TopologyDevice* d = m.findDevice(e.topologyDevice);
        if (!isNullGuid(e.jackSubType) || !d) {
            continue;
        }
        for (const Part& p : d->parts) {
            const Part* partner = p.connectedTo ? m.findPart(*p.connectedTo) : nullptr;
            if (p.kind == PartKind::Connector && partner) {
                e.jackSubType = partner->subType;
                break;
            }
        }
    }
}

void resolveRoles(Machine& m, const RoleRequests& roles, const Where& root) {
    resolveFlowRoles(m, Flow::Render, roles.render, m.defaultRender, root["defaults"]["render"]);
    resolveFlowRoles(m, Flow::Capture, roles.capture, m.defaultCapture,
                     root["defaults"]["capture"]);
}

} // namespace model::finish
