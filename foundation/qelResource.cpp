#include "foundation/qelResource.h"
#include "foundation/qelLog.h"

#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>

namespace {
QEL_DEFINE_UNIT_LOGGER("qel.resource")

std::string trimmed(const std::string& text) {
    const char* blanks = " \t\r\n";
    std::size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

bool sameName(const std::string& a, const char* b) {
    return qel::String::compareNoCase(qel::String::fromUtf8(a), qel::String(b)) == 0;
}

std::optional<std::string> findSetting(std::istream& in, const char* section, const char* key) {
    bool inSection = false;
    for (std::string line; std::getline(in, line);) {
        line = trimmed(line);
        if (line.empty() || line[0] == ';' || line[0] == '#') {
            continue;
        }
        if (line.front() == '[' && line.back() == ']') {
            inSection = sameName(trimmed(line.substr(1, line.size() - 2)), section);
            continue;
        }
        std::size_t equals = line.find('=');
        if (inSection && equals != std::string::npos &&
            sameName(trimmed(line.substr(0, equals)), key)) {
            return trimmed(line.substr(equals + 1));
        }
    }
    return std::nullopt;
}

} // namespace

const QELLocale& QELLocale::getGlobalLocale() {
    static const QELLocale global;
    return global;
}

namespace qel {

bool Resource::getSetting(const char* section, const char* key, String& value, const QELLocale&) {
    const char* path = std::getenv("LIBAUDIO_SETTINGS");
    if (!path || !*path || !section || !key) {
        return false;
    }
    std::ifstream in(path);
    if (!in) {
        QEL_ERROR("Cannot read the settings file ", path);
        return false;
    }
    std::optional<std::string> found = findSetting(in, section, key);
    if (!found) {
        return false;
    }
    value = String::fromUtf8(*found);
    return true;
}

} // namespace qel
