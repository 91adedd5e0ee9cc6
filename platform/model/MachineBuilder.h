// A fluent builder for the exact machine a test needs. Each add call (adapter, endpoint,
// device, connector, subunit) makes a new item current; the setters after it change the
// current item. build() completes and checks the machine as the JSON loader does (same
// defaults, same errors). machines/README.md shows a machine built both ways:
//
//   std::string speakers = generatedEndpointId(Flow::Render, 0);
//   Machine m = MachineBuilder("small")
//       .adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
//       .endpoint(Flow::Render, "Speakers", Speakers).endpointDevice()
//       .device("filter")
//       .connector("Speaker", KSNODETYPE_SPEAKER, ConnectorType::PhysicalInternal, 1)
//       .subunit("Volume", KSNODETYPE_VOLUME).link("Volume", "Speaker")
//       .connect({speakers, 0}, {"filter", 0})
//       .build();
#pragma once

#include "platform/model/Finish.h"
#include "platform/model/Machine.h"

#include <initializer_list>
#include <string_view>

namespace model {

class MachineBuilder {
public:
    explicit MachineBuilder(std::string name = "built");

    MachineBuilder& description(std::string text);
    // Later endpoints belong to the last adapter added.
    MachineBuilder& adapter(std::string instanceId, std::string friendlyName = {},
                            std::string parentInstanceId = {});

    // An endpoint with the generated id "{0.0.F.00000000}.{...}" of its place in the list.
    MachineBuilder& endpoint(Flow flow, std::string description = {},
                             std::uint32_t formFactor = UnknownFormFactor);
    MachineBuilder& id(std::string endpointId);
    MachineBuilder& state(std::uint32_t state);
    MachineBuilder& format(std::uint32_t channels, std::uint32_t rate = 48000,
                           std::uint32_t bits = 16);
    MachineBuilder& volume(std::vector<float> levelsDb, VolumeRange range = {});
    MachineBuilder& muted(bool muted = true);
    // The endpoint's exclusive-mode settings: whether applications may take it exclusively,
    // and whether they then cut off the shared streams playing on it.
    MachineBuilder& exclusiveMode(bool allowed, bool priority = true);
    // nullopt makes the property missing.
    MachineBuilder& property(const PropertyKey& key, std::optional<PropertyValue> value);
    // The endpoint's own topology device: its id, one SoftwareFixed connector (local id 0).
    MachineBuilder& endpointDevice();

    MachineBuilder& device(std::string id);
    // Local ids as Windows numbers them: connectors from 0, subunits from 0x10000.
    MachineBuilder& connector(std::string name, GUID subType, ConnectorType type,
                              std::uint32_t flow);
    // Controls follow the subtype: VOLUME, MUTE and MUX nodes get theirs at build().
    MachineBuilder& subunit(std::string name, GUID subType);
    MachineBuilder& jack(const Jack& jack);
    MachineBuilder& partVolume(std::vector<float> levelsDb, VolumeRange range = {});
    MachineBuilder& link(std::uint32_t from, std::uint32_t to);
    // Parts of the current device by name; a chain links each to the next.
    MachineBuilder& link(std::string_view from, std::string_view to);
    MachineBuilder& chain(std::initializer_list<std::string_view> partNames);
    MachineBuilder& select(std::string_view inputName);
    // Both sides of a physical connection.
    MachineBuilder& connect(const PartRef& a, const PartRef& b);

    MachineBuilder& route(std::string render, std::string capture, double gainDb = 0,
                          double delayMs = 0, double noiseDb = -120);
    // The last route's channel mix: row c weighs the render channels heard in capture channel c.
    MachineBuilder& routeMix(std::vector<std::vector<double>> channelMix);
    // role: 0 console, 1 multimedia, 2 communications, -1 all; "" leaves it empty.
    MachineBuilder& defaultEndpoint(Flow flow, std::string id, int role = -1);
    MachineBuilder& fault(std::string operation, std::string target, std::vector<HRESULT> results,
                          bool sticky = false);

    // Direct access for anything the setters do not cover.
    Machine& machine() { return m_machine; }
    Endpoint& lastEndpoint();
    TopologyDevice& lastDevice();
    Part& lastPart();
    std::uint32_t partId(std::string_view name);

    // Throws LoadError for a machine whose references do not hold.
    Machine build() const;

private:
    Machine m_machine;
    RoleRequests m_roles;
};

} // namespace model
