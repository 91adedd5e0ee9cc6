#include "platform/model/JsonValues.h"

#include "platform/model/Guid.h"
#include "platform/model/LoadError.h"
#include "platform/model/NodeTypes.h"

#include <cctype>
#include <charconv>
#include <cmath>

namespace model::json {

namespace {

constexpr std::size_t kLongestShownValue = 40;

bool sameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i]))) {
            return false;
        }
    }
    return true;
}

std::string choiceNames(std::span<const Choice> choices) {
    std::string names;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        names += i == 0 ? "" : (i + 1 == choices.size() ? " or " : ", ");
        // In pieces: GCC 12 at -O3 flags the operator+ form with a false -Wrestrict.
        names += '"';
        names += choices[i].name;
        names += '"';
    }
    return names;
}

[[noreturn]] void expected(const Where& where, const std::string& what, const Json& value) {
    where.fail("expected " + what + ", got " + describe(value));
}

std::optional<std::uint32_t> parseHex32(std::string_view text) {
    if (text.size() < 3 || text.size() > 10 || text[0] != '0' ||
        (text[1] != 'x' && text[1] != 'X')) {
        return std::nullopt;
    }
    std::uint32_t value = 0;
    auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

} // namespace

std::string describe(const Json& value) {
    switch (value.type()) {
    case Json::value_t::object:
        return "an object";
    case Json::value_t::array:
        return "an array";
    case Json::value_t::null:
        return "null";
    default:
        break;
    }
    std::string text = value.dump();
    if (text.size() > kLongestShownValue) {
        text = text.substr(0, kLongestShownValue) + "...";
    }
    return text;
}

std::string asText(const Json& value, const Where& where) {
    if (!value.is_string()) {
        expected(where, "a string", value);
    }
    return value.get<std::string>();
}

bool asFlag(const Json& value, const Where& where) {
    if (!value.is_boolean()) {
        expected(where, "true or false", value);
    }
    return value.get<bool>();
}

double asReal(const Json& value, const Where& where) {
    if (!value.is_number() || !std::isfinite(value.get<double>())) {
        expected(where, "a number", value);
    }
    return value.get<double>();
}

std::uint32_t asInteger(const Json& value, const Where& where, std::uint32_t min,
                        std::uint32_t max) {
    std::string range = std::to_string(min) + " to " + std::to_string(max);
    if (!value.is_number_integer()) {
        expected(where, "a whole number from " + range, value);
    }
    // Negative numbers are read signed, all others unsigned, so that neither wraps.
    bool inRange = value.is_number_unsigned()
                       ? value.get<std::uint64_t>() >= min && value.get<std::uint64_t>() <= max
                       : value.get<std::int64_t>() >= std::int64_t(min) &&
                             value.get<std::int64_t>() <= std::int64_t(max);
    if (!inRange) {
        where.fail("must be from " + range + ", got " + describe(value));
    }
    return std::uint32_t(value.get<std::uint64_t>());
}

GUID asGuid(const Json& value, const Where& where) {
    std::optional<GUID> guid =
        value.is_string() ? parseGuid(value.get<std::string>()) : std::nullopt;
    if (!guid) {
        expected(where, "a GUID \"{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}\"", value);
    }
    return *guid;
}

GUID asNodeType(const Json& value, const Where& where) {
    std::string text = asText(value, where);
    std::optional<GUID> guid = text.starts_with("{") ? parseGuid(text) : nodeTypeByName(text);
    if (!guid) {
        expected(where, "a KSNODETYPE name such as \"SPEAKER\" or a GUID in braces", value);
    }
    return *guid;
}

std::uint32_t asChoice(const Json& value, const Where& where, std::span<const Choice> choices) {
    for (const Choice& choice : choices) {
        if (value.is_string()
                ? sameIgnoringCase(value.get<std::string>(), choice.name)
                : value.is_number_unsigned() && value.get<std::uint64_t>() == choice.value) {
            return choice.value;
        }
    }
    expected(where, choiceNames(choices), value);
}

HRESULT asResult(const Json& value, const Where& where) {
    if (value.is_number_integer()) {
        std::int64_t number = value.get<std::int64_t>();
        if (value.is_number_unsigned() ? value.get<std::uint64_t>() <= 0xFFFFFFFFu
                                       : number >= INT32_MIN) {
            return HRESULT(std::uint32_t(number));
        }
    }
    std::optional<std::uint32_t> hex =
        value.is_string() ? parseHex32(value.get<std::string>()) : std::nullopt;
    if (!hex) {
        expected(where, "a result code such as \"0x88890004\" or a 32-bit number", value);
    }
    return HRESULT(*hex);
}

std::vector<std::uint8_t> asHexBytes(const Json& value, const Where& where) {
    std::string text = asText(value, where);
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
        std::uint8_t byte = 0;
        auto [end, error] = std::from_chars(text.data() + i, text.data() + i + 2, byte, 16);
        if (error != std::errc() || end != text.data() + i + 2) {
            break;
        }
        bytes.push_back(byte);
    }
    if (bytes.size() * 2 != text.size()) {
        expected(where, "an even number of hex digits", value);
    }
    return bytes;
}

} // namespace model::json
