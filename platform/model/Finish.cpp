#include "platform/model/Finish.h"

#include "platform/model/FinishSteps.h"

#include <cstdio>

namespace model {

std::string generatedEndpointId(Flow flow, std::size_t index) {
    char id[64];
    std::snprintf(id, sizeof id, "{0.0.%u.00000000}.{00000000-0000-0000-0000-%012zx}",
                  unsigned(flow), index + 1);
    return id;
}

VolumeControl makeVolumeControl(std::vector<float> levelsDb, const VolumeRange& range) {
    VolumeControl control;
    control.ranges.assign(levelsDb.size(), range);
    control.levelsDb = std::move(levelsDb);
    return control;
}

void finishMachine(Machine& machine, const RoleRequests& roles, const std::string& source) {
    Where root(source);
    finish::fillAdapterDefaults(machine);
    finish::fillEndpointDefaults(machine);
    finish::fillPartControls(machine);
    finish::checkUniqueIds(machine, root);
    finish::checkEndpoints(machine, root);
    finish::checkDevices(machine, root);
    finish::pairConnections(machine, root);
    finish::deriveJackSubtypes(machine);
    finish::resolveRoles(machine, roles, root);
    finish::checkRoutesAndFaults(machine, root);
}

} // namespace model
