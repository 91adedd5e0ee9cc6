// The place of a value in a machine description: the description's name and the value's
// JSON path, such as endpoints[2].volume.levels_db[1]. Errors are raised through it so
// that every message names file, field and problem.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace model {

class Where {
public:
    Where(const std::string& source, std::string path = {});
    Where operator[](std::string_view key) const;
    Where operator[](std::size_t index) const;
    const std::string& path() const { return m_path; }
    const std::string& source() const { return *m_source; }
    [[noreturn]] void fail(const std::string& problem) const;

private:
    const std::string* m_source; // outlives every Where made from it: the loader's argument
    std::string m_path;
};

// A text in double quotes, for messages.
std::string inQuotes(const std::string& text);

} // namespace model
