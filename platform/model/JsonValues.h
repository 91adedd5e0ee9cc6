// Conversion of single JSON values into model values. Each conversion names the value's
// place (source and JSON path) when it refuses the value.
#pragma once

#include "platform/model/Where.h"
#include "platform/standin/types.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace model::json {

using Json = nlohmann::json;

// A symbolic name of a number; names compare ignoring case.
struct Choice {
    const char* name;
    std::uint32_t value;
};

// A short text of a value for "got ..." in messages.
std::string describe(const Json& value);

std::string asText(const Json& value, const Where& where);
bool asFlag(const Json& value, const Where& where);
double asReal(const Json& value, const Where& where);
std::uint32_t asInteger(const Json& value, const Where& where, std::uint32_t min,
                        std::uint32_t max);
GUID asGuid(const Json& value, const Where& where);
// A symbolic KSNODETYPE name or a GUID.
GUID asNodeType(const Json& value, const Where& where);
// One of the names, or a number that is one of the values.
std::uint32_t asChoice(const Json& value, const Where& where, std::span<const Choice> choices);
// A result code: a hex string such as "0x88890004" or a 32-bit number.
HRESULT asResult(const Json& value, const Where& where);
// An even number of hex digits.
std::vector<std::uint8_t> asHexBytes(const Json& value, const Where& where);

} // namespace model::json
