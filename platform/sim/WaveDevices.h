// Open legacy wave devices, by handle: what the wave functions and the driver messages
// look up.
#pragma once

#include <optional>
#include <string>

namespace sim {

// The endpoint of an open wave device handle; nothing when the handle is not one.
std::optional<std::string> openWaveEndpoint(const void* handle);
// The endpoint of a legacy device number of a flow; nothing when there is no such device.
std::optional<std::string> waveEndpoint(bool render, unsigned int deviceId);

} // namespace sim
