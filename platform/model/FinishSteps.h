// The steps of finishMachine, in the order in which it runs them. Paths in messages are
// the JSON paths of the description's fields.
#pragma once

#include "platform/model/Finish.h"
#include "platform/model/Where.h"

namespace model::finish {

// Derived defaults.
void fillAdapterDefaults(Machine& m);
void fillEndpointDefaults(Machine& m);
void fillPartControls(Machine& m);
void deriveJackSubtypes(Machine& m);
void resolveRoles(Machine& m, const RoleRequests& roles, const Where& root);

// Consistency.
void checkUniqueIds(const Machine& m, const Where& root);
void checkEndpoints(const Machine& m, const Where& root);
void checkDevices(const Machine& m, const Where& root);
void checkRoutesAndFaults(const Machine& m, const Where& root);
// Makes each connection symmetric: the partner of a connector written on one side
// points back to it.
void pairConnections(Machine& m, const Where& root);

// devices[d].connectors[k] or devices[d].subunits[k] for the part at index p.
Where partWhere(const Where& root, const Machine& m, std::size_t d, std::size_t p);

} // namespace model::finish
