// The simulated configuration manager's device tree: device instance ids and their
// parents. The machine model fills it; tests may add nodes directly.
#pragma once

#include "platform/standin/types.h"

#include <string>

namespace sim {

// Adds (or re-parents) a node; an empty parent makes it a root. Ids compare ignoring
// case, as device instance ids do on Windows.
LIBAUDIO_PLATFORM_API void addDeviceNode(const std::string& instanceId,
                                         const std::string& parentInstanceId);
LIBAUDIO_PLATFORM_API void clearDeviceTree();

} // namespace sim
