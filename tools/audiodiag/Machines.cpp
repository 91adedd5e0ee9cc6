#include "Machines.h"
#include "Report.h"

#ifndef _WIN32
#include "platform/model/Bundled.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/Runtime.h"
#endif

namespace audiodiag {

#ifndef _WIN32

bool useMachine(const std::string& nameOrPath) {
    try {
        sim::installMachine(model::loadMachine(nameOrPath));
        return true;
    } catch (const std::exception& error) {
        printError(error.what());
        return false;
    }
}

namespace {

int listMachines(const GlobalOptions& global) {
    nlohmann::ordered_json machines = nlohmann::ordered_json::array();
    for (const std::string& name : model::bundledMachineNames()) {
        model::Machine machine = model::loadMachine(name);
        machines.push_back({{"name", name},
                            {"description", machine.description},
                            {"adapters", machine.adapters.size()},
                            {"endpoints", machine.endpoints.size()}});
    }
    printReport({{"machines", machines}}, global.json);
    return EXIT_OK;
}

} // namespace

Action addMachinesCommand(CLI::App&, const GlobalOptions& global) {
    return [&global] {
        return listMachines(global);
    };
}

#else

bool useMachine(const std::string&) {
    printError("--machine chooses a simulated machine; this build uses the real one");
    return false;
}

Action addMachinesCommand(CLI::App&, const GlobalOptions&) {
    return [] {
        printError("there are no bundled machines on Windows: the machine is the real one");
        return int(EXIT_USAGE);
    };
}

#endif

} // namespace audiodiag
