#include "platform/model/Where.h"

#include "platform/model/LoadError.h"

namespace model {

Where::Where(const std::string& source, std::string path)
    : m_source(&source), m_path(std::move(path)) {}

Where Where::operator[](std::string_view key) const {
    return Where(*m_source, m_path.empty() ? std::string(key) : m_path + "." + std::string(key));
}

Where Where::operator[](std::size_t index) const {
    return Where(*m_source, m_path + "[" + std::to_string(index) + "]");
}

void Where::fail(const std::string& problem) const {
    throw LoadError(*m_source, m_path, problem);
}

std::string inQuotes(const std::string& text) {
    return "\"" + text + "\"";
}

} // namespace model
