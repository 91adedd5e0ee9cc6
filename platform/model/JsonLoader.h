// Machine descriptions in JSON: the schema is documented in machines/README.md.
#pragma once

#include "platform/model/LoadError.h"
#include "platform/model/Machine.h"

#include <string>

namespace model {

// Reads a description; `sourceName` (a file name) heads every error message. Throws
// LoadError for malformed JSON, a field of the wrong type or value, an unknown field or a
// reference that does not hold.
Machine loadMachineJson(const std::string& jsonText, const std::string& sourceName);

// A bundled machine by name ("laptop", "desktop", "empty"), or a JSON file by path. An
// argument with a '/' or ending in ".json" is always a path.
Machine loadMachine(const std::string& nameOrPath);

} // namespace model
