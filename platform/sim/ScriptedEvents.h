// The machine's scripted events (model::Machine::events) played on the platform's clock,
// from the moment the machine is installed: each becomes the change a user would make, and
// is announced to the notification clients as that change is (MachineEvents.h).
#pragma once

#include "platform/model/Machine.h"

namespace sim {

// Starts playing the events of a machine just installed; called with the platform's lock
// held, at every installation. A player whose machine has been replaced since stops
// before its next event.
void playScriptedEvents(const model::Machine& machine);

} // namespace sim
