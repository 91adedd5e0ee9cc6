// Windows ranks the active endpoints of a flow by factors in priority order (Microsoft's
// "Default Audio Endpoint Selection" for Windows 10): jack detection, form factor, pin
// category, bus, general location, geometric location, with exceptions that keep
// communication devices from the console role and prefer them for communications. The
// model has no jack-detection capability of its own: USB and Bluetooth endpoints count as
// detecting, as Windows treats them, and so does an endpoint whose jack is a real jack.
#include "platform/sim/DefaultEndpoints.h"
#include "platform/sim/ComObject.h"
#include "platform/model/NodeTypes.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/TopologyAccess.h"

#include <algorithm>
#include <initializer_list>

namespace sim {

namespace {

constexpr int kCommunications = 2; // eCommunications; console and multimedia rank alike
constexpr std::uint32_t kPortJack = 0;
constexpr std::uint32_t kGenPrimaryBox = 0, kGenInternal = 1, kGenSeparate = 2;
constexpr std::uint32_t kGeoRear = 1, kGeoFront = 2, kGeoLeft = 3, kGeoRight = 4, kGeoTop = 5,
                        kGeoBottom = 6, kGeoRearPanel = 7, kGeoInsideLid = 9, kGeoOutsideLid = 12;

bool isNodeType(const GUID& subType, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(), [&](const char* name) {
        std::optional<GUID> known = model::nodeTypeByName(name);
        return known && *known == subType;
    });
}

// The jack of the pin the endpoint's topology leads to; none without a topology.
const model::Jack* jackOf(const model::Machine& m, const model::Endpoint& e) {
    const model::TopologyDevice* device = m.findDevice(e.topologyDevice);
    if (!device) {
        return nullptr;
    }
    for (const model::Part& part : device->parts) {
        if (part.kind != model::PartKind::Connector) {
            continue;
        }
        std::optional<model::PartRef> pin = partnerOf(m, {device->id, part.localId});
        const model::Part* other = pin ? m.findPart(*pin) : nullptr;
        if (other) {
            return other->jacks.empty() ? nullptr : &other->jacks.front();
        }
    }
    return nullptr;
}

int formFactorRank(model::Flow flow, bool communications, std::uint32_t formFactor) {
    auto rank = [&](std::initializer_list<std::initializer_list<std::uint32_t>> order) {
        int value = int(order.size());
        for (auto group : order) {
            if (std::find(group.begin(), group.end(), formFactor) != group.end()) {
                return value;
            }
            --value;
        }
        return 0;
    };
    if (flow == model::Flow::Render) {
        return communications ? rank({{model::Headset},
                                      {model::Handset},
                                      {model::Headphones},
                                      {model::Speakers},
                                      {model::LineLevel},
                                      {model::DigitalAudioDisplayDevice},
                                      {model::SPDIF}})
                              : rank({{model::Headphones, model::Headset},
                                      {model::Speakers},
                                      {model::LineLevel},
                                      {model::DigitalAudioDisplayDevice},
                                      {model::SPDIF}});
    }
    return communications
               ? rank({{model::Headset}, {model::Handset}, {model::Microphone}, {model::LineLevel}})
               : rank({{model::Headset}, {model::Microphone}, {model::LineLevel}});
}

int busRank(const std::string& bus) {
    if (bus == "USB") {
        return 5;
    }
    if (bus == "HDAUDIO" || bus.empty()) {
        return 4;
    }
    return bus == "PCI" ? 3 : bus == "BTHENUM" ? 2 : bus == "BTHHFENUM" ? 1 : 0;
}

// The exceptions: +1 prefers, -1 avoids, whatever the other factors say.
int exceptionRank(const GUID& subType, bool usb, bool communications) {
    bool phone = isNodeType(
        subType, {"HANDSET", "SPEAKERPHONE_NO_ECHO_REDUCTION", "ECHO_SUPPRESSING_SPEAKERPHONE",
                  "ECHO_CANCELING_SPEAKERPHONE", "PHONE_LINE", "TELEPHONE", "DOWN_LINE_PHONE"});
    bool personal =
        isNodeType(subType, {"PERSONAL_MICROPHONE", "COMMUNICATION_SPEAKER", "HEADSET"});
    if (communications) {
        return phone || personal ? 1 : 0;
    }
    return phone || (personal && !usb) ? -1 : 0;
}

using Rank = std::array<int, 7>;

Rank rankOf(const model::Machine& m, const model::Endpoint& e, bool communications) {
    const model::Adapter* adapter = m.findAdapter(e.adapter);
    const std::string bus = adapter ? adapter->enumerator : std::string();
    const model::Jack* jack = jackOf(m, e);
    bool usb = bus == "USB";
    bool detects = usb || bus == "BTHENUM" || bus == "BTHHFENUM" ||
                   (jack && jack->portConnection == kPortJack);
    int subType = isNodeType(e.jackSubType, {"PROCESSING_MICROPHONE_ARRAY"})   ? 3
                  : isNodeType(e.jackSubType, {"MICROPHONE_ARRAY"})            ? 2
                  : isNodeType(e.jackSubType, {"OMNI_DIRECTIONAL_MICROPHONE"}) ? 1
                                                                               : 0;
    int genLoc = 0, geoLoc = 0;
    if (jack) {
        std::uint32_t gen = jack->genLocation, geo = jack->geoLocation;
        if (communications) {
            genLoc = gen == kGenSeparate     ? 3
                     : gen == kGenPrimaryBox ? 2
                     : gen == kGenInternal   ? 1
                                             : 0;
            geoLoc = geo == kGeoFront || geo == kGeoInsideLid ? 1 : 0;
        } else {
            genLoc = gen == kGenPrimaryBox || gen == kGenInternal ? 1 : 0;
            bool side = geo == kGeoBottom || geo == kGeoLeft || geo == kGeoOutsideLid ||
                        geo == kGeoRear || geo == kGeoRight || geo == kGeoTop;
            geoLoc = geo == kGeoFront || geo == kGeoInsideLid ? 3
                     : side                                   ? 2
                     : geo == kGeoRearPanel                   ? 1
                                                              : 0;
        }
    }
    return {exceptionRank(e.jackSubType, usb, communications),
            detects ? 1 : 0,
            formFactorRank(e.flow, communications, e.formFactor),
            subType,
            busRank(bus),
            genLoc,
            geoLoc};
}

bool isActiveOf(const model::Endpoint* e, model::Flow flow) {
    return e && e->flow == flow && e->state == model::STATE_ACTIVE;
}

void announceDefault(EDataFlow flow, ERole role, const std::string& id) {
    notifyEndpointClients([flow, role, id](IMMNotificationClient* client) {
        std::u16string wide = toUtf16(id);
        client->OnDefaultDeviceChanged(flow, role, id.empty() ? nullptr : wide.c_str());
    });
}

} // namespace

std::string defaultEndpointOf(const model::Machine& m, model::Flow flow, int role) {
    if (role < 0 || role > kCommunications) {
        return {};
    }
    const std::string& chosen =
        (flow == model::Flow::Render ? m.defaultRender : m.defaultCapture)[role];
    if (isActiveOf(m.findEndpoint(chosen), flow)) {
        return chosen;
    }
    const model::Endpoint* best = nullptr;
    Rank bestRank{};
    for (const model::Endpoint& e : m.endpoints) {
        if (!isActiveOf(&e, flow)) {
            continue;
        }
        Rank rank = rankOf(m, e, role == kCommunications);
        if (!best || rank > bestRank) { // ties keep the earlier endpoint
            best = &e;
            bestRank = rank;
        }
    }
    return best ? best->id : std::string();
}

Defaults defaultsOf(const model::Machine& m) {
    Defaults all;
    for (int role = 0; role < 3; ++role) {
        all[role] = defaultEndpointOf(m, model::Flow::Render, role);
        all[3 + role] = defaultEndpointOf(m, model::Flow::Capture, role);
    }
    return all;
}

void announceDefaultChanges(const Defaults& before, const Defaults& after) {
    for (int i = 0; i < 6; ++i) {
        if (before[i] != after[i]) {
            announceDefault(i < 3 ? eRender : eCapture, ERole(i % 3), after[i]);
        }
    }
}

} // namespace sim
