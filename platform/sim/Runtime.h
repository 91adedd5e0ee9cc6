// The simulated platform's state: the installed machine, guarded by one lock.
#pragma once

#include "platform/model/Machine.h"

#include <functional>
#include <mutex>
#include <string>

namespace sim {

// Installs a machine for the whole process, replacing the current one. Objects handed out
// before keep answering from the new machine by id, as handles to a live system do.
LIBAUDIO_PLATFORM_API void installMachine(model::Machine machine);
// Installs the machine named by LIBAUDIO_MACHINE (a bundled name or a JSON file), or the
// bundled "laptop" when unset. Throws model::LoadError on a malformed description.
LIBAUDIO_PLATFORM_API void installMachineFromEnvironment();
LIBAUDIO_PLATFORM_API std::string installedMachineName();

// Runs f with the installed machine under the platform's lock. The first use installs the
// machine from the environment.
LIBAUDIO_PLATFORM_API void withMachine(const std::function<void(model::Machine&)>& f);

template <class R> R readMachine(const std::function<R(const model::Machine&)>& f) {
    R result{};
    withMachine([&](model::Machine& m) { result = f(m); });
    return result;
}

// The code of an injected fault for this call, consuming it; S_OK when none. Looks for
// (operation, target) and then (operation, "").
LIBAUDIO_PLATFORM_API HRESULT injectedFault(const std::string& operation,
                                            const std::string& target);
LIBAUDIO_PLATFORM_API void addFault(model::Fault fault);
LIBAUDIO_PLATFORM_API void clearFaults();

} // namespace sim
