// The machine descriptions of machines/*.json, compiled into the library so that the
// default machine works without the source tree.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace model {

// Sorted names, without ".json".
std::vector<std::string> bundledMachineNames();

std::optional<std::string> bundledMachineJson(const std::string& name);

} // namespace model
