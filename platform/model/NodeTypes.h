// The published kernel-streaming node types (KSNODETYPE_*) by their symbolic names.
#pragma once

#include "platform/standin/types.h"

#include <optional>
#include <string>
#include <string_view>

namespace model {

// "SPEAKER", "KSNODETYPE_SPEAKER" and "speaker" all name KSNODETYPE_SPEAKER.
std::optional<GUID> nodeTypeByName(std::string_view name);

// The symbolic name without prefix, or "" for a GUID that is not a known node type.
std::string nodeTypeName(const GUID& guid);

} // namespace model
