// The full report of one endpoint: properties, jacks, connectors, volume, legacy number.
#pragma once

#include "EndpointCatalog.h"

namespace audiodiag {

nlohmann::ordered_json endpointReport(const EndpointEntry& entry);
nlohmann::ordered_json volumeReport(const AudioDevice& device);

} // namespace audiodiag
