#include "platform/model/JsonObject.h"

#include <algorithm>

namespace model::json {

namespace {

std::string fieldList(Object::Fields fields) {
    std::string list;
    for (std::string_view field : fields) {
        list += (list.empty() ? "" : ", ") + std::string(field);
    }
    return list;
}

void refuseUnknownFields(const Json& value, const Where& where, Object::Fields fields) {
    for (const auto& [key, member] : value.items()) {
        if (key == "comment") {
            asText(member, where[key]);
        } else if (std::find(fields.begin(), fields.end(), key) == fields.end()) {
            where[key].fail("unknown field (known fields: " + fieldList(fields) + ")");
        }
    }
}

} // namespace

Object::Object(const Json& value, Where where, Fields fields)
    : m_value(&value), m_where(std::move(where)) {
    if (!value.is_object()) {
        m_where.fail("expected an object, got " + describe(value));
    }
    refuseUnknownFields(value, m_where, fields);
}

const Json* Object::find(std::string_view key) const {
    auto it = m_value->find(key);
    return it == m_value->end() ? nullptr : &*it;
}

std::string Object::text(std::string_view key, const std::string& fallback) const {
    const Json* v = find(key);
    return v ? asText(*v, at(key)) : fallback;
}

std::string Object::requiredText(std::string_view key, const std::string& why) const {
    const Json* v = find(key);
    if (!v) {
        at(key).fail("missing: " + why);
    }
    std::string text = asText(*v, at(key));
    if (text.empty()) {
        at(key).fail("must not be empty: " + why);
    }
    return text;
}

bool Object::flag(std::string_view key, bool fallback) const {
    const Json* v = find(key);
    return v ? asFlag(*v, at(key)) : fallback;
}

double Object::real(std::string_view key, double fallback) const {
    const Json* v = find(key);
    return v ? asReal(*v, at(key)) : fallback;
}

std::uint32_t Object::integer(std::string_view key, std::uint32_t fallback, std::uint32_t min,
                              std::uint32_t max) const {
    const Json* v = find(key);
    return v ? asInteger(*v, at(key), min, max) : fallback;
}

GUID Object::guid(std::string_view key) const {
    const Json* v = find(key);
    return v ? asGuid(*v, at(key)) : GUID{};
}

GUID Object::nodeType(std::string_view key) const {
    const Json* v = find(key);
    return v ? asNodeType(*v, at(key)) : GUID{};
}

std::uint32_t Object::choice(std::string_view key, std::uint32_t fallback,
                             std::span<const Choice> choices) const {
    const Json* v = find(key);
    return v ? asChoice(*v, at(key), choices) : fallback;
}

std::optional<Object> Object::object(std::string_view key, Fields fields) const {
    const Json* v = find(key);
    return v ? std::optional<Object>(Object(*v, at(key), fields)) : std::nullopt;
}

std::vector<std::pair<const Json*, Where>> Object::elements(std::string_view key) const {
    std::vector<std::pair<const Json*, Where>> result;
    const Json* v = find(key);
    if (!v) {
        return result;
    }
    if (!v->is_array()) {
        at(key).fail("expected an array, got " + describe(*v));
    }
    for (std::size_t i = 0; i < v->size(); ++i) {
        result.emplace_back(&(*v)[i], at(key)[i]);
    }
    return result;
}

std::vector<Object> Object::objects(std::string_view key, Fields fields) const {
    std::vector<Object> result;
    for (auto& [value, where] : elements(key)) {
        result.emplace_back(*value, where, fields);
    }
    return result;
}

} // namespace model::json
