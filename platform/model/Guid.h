// GUID text in the registry form "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
#pragma once

#include "platform/standin/types.h"

#include <optional>
#include <string>
#include <string_view>

namespace model {

// Accepts upper- or lower-case hex digits; nullopt for anything else.
std::optional<GUID> parseGuid(std::string_view text);

// Upper-case hex digits in braces.
std::string formatGuid(const GUID& guid);

bool isNullGuid(const GUID& guid);

} // namespace model
