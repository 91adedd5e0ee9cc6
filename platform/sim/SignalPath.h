// The search behind IDeviceTopology::GetSignalPath, over the model alone.
#pragma once

#include "platform/model/Machine.h"

#include <vector>

namespace sim {

// A shortest path along the signal from `from` to `to`, both included, in signal order;
// empty when there is none. The signal follows links inside a device and leaves a device
// through a connector whose data flow is Out to the connector it is connected to. With
// rejectMixed, paths through both an Analog and a Digital part do not count.
std::vector<model::PartRef> findSignalPath(const model::Machine& machine,
                                           const model::PartRef& from, const model::PartRef& to,
                                           bool rejectMixed);

} // namespace sim
