// Choosing the simulated machine (Linux only; on Windows the machine is the real one).
#pragma once

#include "Commands.h"

#include <string>

namespace audiodiag {

// Installs the machine named by --machine: a bundled name or a JSON file. Prints why and
// answers false when it cannot be loaded.
bool useMachine(const std::string& nameOrPath);

Action addMachinesCommand(CLI::App& app, const GlobalOptions& global);

} // namespace audiodiag
