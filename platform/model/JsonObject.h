// One JSON object of a machine description, read field by field. Fields outside the
// object's known set are refused so that a misspelt name cannot pass silently; every
// object may also carry a "comment" string, which is ignored.
#pragma once

#include "platform/model/JsonValues.h"

#include <initializer_list>
#include <optional>

namespace model::json {

class Object {
public:
    using Fields = std::initializer_list<std::string_view>;

    Object(const Json& value, Where where, Fields fields);

    const Json* find(std::string_view key) const;
    Where at(std::string_view key) const { return m_where[key]; }
    const Where& where() const { return m_where; }

    std::string text(std::string_view key, const std::string& fallback = {}) const;
    // A non-empty string that must be present; `why` completes "missing: ...".
    std::string requiredText(std::string_view key, const std::string& why) const;
    bool flag(std::string_view key, bool fallback) const;
    double real(std::string_view key, double fallback) const;
    std::uint32_t integer(std::string_view key, std::uint32_t fallback, std::uint32_t min = 0,
                          std::uint32_t max = UINT32_MAX) const;
    GUID guid(std::string_view key) const;
    GUID nodeType(std::string_view key) const;
    std::uint32_t choice(std::string_view key, std::uint32_t fallback,
                         std::span<const Choice> choices) const;

    std::optional<Object> object(std::string_view key, Fields fields) const;
    // The elements of an array field (none when the field is absent).
    std::vector<std::pair<const Json*, Where>> elements(std::string_view key) const;
    std::vector<Object> objects(std::string_view key, Fields fields) const;

private:
    const Json* m_value;
    Where m_where;
};

} // namespace model::json
