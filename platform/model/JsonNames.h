// The symbolic names that a machine description may use for enumerated values. Numbers
// are accepted too; names compare ignoring case.
#pragma once

#include "platform/model/JsonValues.h"

namespace model::json {

extern const std::span<const Choice> kFlows;           // render, capture
extern const std::span<const Choice> kStates;          // active, disabled, notpresent, unplugged
extern const std::span<const Choice> kFormFactors;     // EndpointFormFactor names
extern const std::span<const Choice> kConnectorTypes;  // ConnectorType names
extern const std::span<const Choice> kConnectorFlows;  // in, out
extern const std::span<const Choice> kDomains;         // unspecified, analog, digital
extern const std::span<const Choice> kConnectionTypes; // EPcxConnectionType without eConnType
extern const std::span<const Choice> kGeoLocations;    // EPcxGeoLocation without eGeoLoc
extern const std::span<const Choice> kGenLocations;    // EPcxGenLocation without eGenLoc
extern const std::span<const Choice> kPortConnections; // EPxcPortConnection without ePortConn

} // namespace model::json
