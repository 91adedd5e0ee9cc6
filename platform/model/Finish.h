// Completes a machine as a description may leave it (derived defaults, the partner side of
// each connection) and refuses one whose references do not hold. The JSON loader and the
// builder share it, so both make the same machine from the same facts.
#pragma once

#include "platform/model/Machine.h"

#include <array>
#include <optional>
#include <string>

namespace model {

// The default endpoint of each ERole (console, multimedia, communications):
// nullopt picks the first active endpoint of the flow, "" leaves the role without one.
struct RoleRequests {
    std::array<std::optional<std::string>, 3> render;
    std::array<std::optional<std::string>, 3> capture;
};

// Throws LoadError naming `source` and the JSON path of the offending field.
void finishMachine(Machine& machine, const RoleRequests& roles, const std::string& source);

// The id of an endpoint that a description leaves without one: stable, from its index in
// the machine's endpoint list.
std::string generatedEndpointId(Flow flow, std::size_t index);

// A control whose channels share one range.
VolumeControl makeVolumeControl(std::vector<float> levelsDb, const VolumeRange& range);

// Local ids as Windows numbers parts: connectors from 0, subunits from 0x10000.
constexpr std::uint32_t kSubunitIdBase = 0x10000;

} // namespace model
