#include "platform/sim/Runtime.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/ScriptedEvents.h"
#include "platform/sim/devicetree.h"

#include <cstdio>
#include <cstdlib>
#include <optional>

namespace sim {

namespace {

struct Installed {
    std::recursive_mutex mutex;
    std::optional<model::Machine> machine;
};

Installed& installed() {
    static Installed* state = new Installed; // used until the very end of the process
    return *state;
}

void publishDeviceTree(const model::Machine& machine) {
    clearDeviceTree();
    for (const model::Adapter& adapter : machine.adapters) {
        if (!adapter.parentInstanceId.empty()) {
            addDeviceNode(adapter.parentInstanceId, "");
        }
    }
    for (const model::Adapter& adapter : machine.adapters) {
        addDeviceNode(adapter.instanceId, adapter.parentInstanceId);
    }
}

model::Machine machineFromEnvironment() {
    const char* chosen = std::getenv("LIBAUDIO_MACHINE");
    return model::loadMachine(chosen && *chosen ? chosen : "laptop");
}

// Platform calls must not throw: a machine that cannot be loaded leaves a machine without
// audio, and says why once.
model::Machine machineFromEnvironmentOrEmpty() {
    try {
        return machineFromEnvironment();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "libAudio simulated platform: %s; no audio devices\n", error.what());
        model::Machine empty;
        empty.name = "none";
        return empty;
    }
}

// Consumes one result of a fault; a sticky fault keeps its last result for ever.
bool takeResult(model::Fault& fault, HRESULT& code) {
    if (fault.results.empty()) {
        return false;
    }
    code = fault.results.front();
    if (!(fault.sticky && fault.results.size() == 1)) {
        fault.results.erase(fault.results.begin());
    }
    return true;
}

const std::string anyTarget;

} // namespace

void installMachine(model::Machine machine) {
    Installed& state = installed();
    std::lock_guard lock(state.mutex);
    publishDeviceTree(machine);
    state.machine = std::move(machine);
    playScriptedEvents(*state.machine);
}

void installMachineFromEnvironment() {
    installMachine(machineFromEnvironment());
}

std::string installedMachineName() {
    return readMachine<std::string>([](const model::Machine& m) { return m.name; });
}

void withMachine(const std::function<void(model::Machine&)>& f) {
    Installed& state = installed();
    std::lock_guard lock(state.mutex);
    if (!state.machine) {
        model::Machine machine = machineFromEnvironmentOrEmpty();
        publishDeviceTree(machine);
        state.machine = std::move(machine);
        playScriptedEvents(*state.machine);
    }
    f(*state.machine);
}

HRESULT injectedFault(const std::string& operation, const std::string& target) {
    HRESULT code = S_OK;
    withMachine([&](model::Machine& m) {
        for (const std::string* wanted : {&target, &anyTarget}) {
            for (auto it = m.faults.begin(); it != m.faults.end(); ++it) {
                if (it->operation == operation && it->target == *wanted) {
                    bool found = takeResult(*it, code);
                    if (it->results.empty()) {
                        m.faults.erase(it);
                    }
                    if (found) {
                        return;
                    }
                    break;
                }
            }
        }
    });
    return code;
}

void addFault(model::Fault fault) {
    withMachine([&](model::Machine& m) { m.faults.push_back(std::move(fault)); });
}

void clearFaults() {
    withMachine([](model::Machine& m) { m.faults.clear(); });
}

} // namespace sim
