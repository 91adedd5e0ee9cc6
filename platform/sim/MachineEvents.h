// Changes to the installed machine while the process runs, as a user plugging, unplugging
// or reconfiguring hardware makes them. Each change is announced to the registered
// notification clients on the notification thread, followed by OnDefaultDeviceChanged for
// every role whose default it moves (a null id when no endpoint of the flow is left).
#pragma once

#include "platform/model/Machine.h"
#include "platform/win32.h"

#include <optional>
#include <string>

namespace sim {

// False when there is no such endpoint.
LIBAUDIO_PLATFORM_API bool setEndpointState(const std::string& endpointId, std::uint32_t state);
// Adds an endpoint (and the topology device it names, when given). False when the id is
// taken or the adapter is unknown.
LIBAUDIO_PLATFORM_API bool addEndpoint(const model::Endpoint& endpoint,
                                       const std::optional<model::TopologyDevice>& device = {});
LIBAUDIO_PLATFORM_API bool removeEndpoint(const std::string& endpointId);
// The user's choice of default for a role. False unless the endpoint exists, has that flow
// and is active.
LIBAUDIO_PLATFORM_API bool setDefaultEndpoint(model::Flow flow, ERole role,
                                              const std::string& endpointId);

} // namespace sim
