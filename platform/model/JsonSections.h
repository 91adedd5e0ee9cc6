// Readers of the sections of a machine description; each refuses a malformed value with
// its JSON path. Cross references are checked later, by finishMachine.
#pragma once

#include "platform/model/Finish.h"
#include "platform/model/JsonObject.h"
#include "platform/model/Machine.h"

namespace model::json {

Adapter readAdapter(const Json& value, const Where& where);
Endpoint readEndpoint(const Json& value, const Where& where);
TopologyDevice readDevice(const Json& value, const Where& where);
Route readRoute(const Json& value, const Where& where);
Fault readFault(const Json& value, const Where& where);
RoleRequests readDefaults(const Json& value, const Where& where);
ScriptedEvent readEvent(const Json& value, const Where& where);
// The events in time order (stable for equal times), once each is found to meet its
// endpoint as it expects: present for a state change or a removal, absent for an addition.
// An endpoint whose first event adds it is absent until then: it leaves the finished
// machine (with its own topology device and any default role) for its event.
std::vector<ScriptedEvent> orderEvents(const std::vector<std::pair<ScriptedEvent, Where>>& events,
                                       Machine& m);

// A volume control with its range; levels default to the top of the range.
VolumeControl readVolumeControl(const Object& o, std::uint32_t defaultChannels);

} // namespace model::json
