// The default endpoint of each role, as Windows picks it: the one the user chose while it is
// active, else the active endpoint of the flow that ranks highest for the role, else none.
#pragma once

#include "platform/model/Machine.h"

#include <array>
#include <string>

namespace sim {

// The endpoint that answers GetDefaultAudioEndpoint(flow, role); "" when no endpoint of the
// flow is active. The machine's defaultRender/defaultCapture hold the user's choices.
std::string defaultEndpointOf(const model::Machine& machine, model::Flow flow, int role);

// Every role's default: render console, multimedia, communications, then capture.
using Defaults = std::array<std::string, 6>;
Defaults defaultsOf(const model::Machine& machine);

// Tells the registered clients of every role whose default differs between the two.
void announceDefaultChanges(const Defaults& before, const Defaults& after);

} // namespace sim
