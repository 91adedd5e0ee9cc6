#include "platform/model/Guid.h"

#include <cstdio>

namespace model {

namespace {

// Offsets of the 32 hex digits inside "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}".
constexpr int kDashes[] = {9, 14, 19, 24};
constexpr std::size_t kLength = 38;

int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

bool hasGuidShape(std::string_view text) {
    if (text.size() != kLength || text.front() != '{' || text.back() != '}') {
        return false;
    }
    for (int dash : kDashes) {
        if (text[dash] != '-') {
            return false;
        }
    }
    return true;
}

} // namespace

std::optional<GUID> parseGuid(std::string_view text) {
    if (!hasGuidShape(text)) {
        return std::nullopt;
    }
    BYTE bytes[16]{};
    int count = 0;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        if (text[i] == '-') {
            continue;
        }
        int high = hexValue(text[i]);
        int low = hexValue(text[++i]);
        if (high < 0 || low < 0) {
            return std::nullopt;
        }
        bytes[count++] = BYTE(high << 4 | low);
    }
    GUID guid{};
    guid.Data1 = DWORD(bytes[0]) << 24 | DWORD(bytes[1]) << 16 | DWORD(bytes[2]) << 8 | bytes[3];
    guid.Data2 = WORD(bytes[4] << 8 | bytes[5]);
    guid.Data3 = WORD(bytes[6] << 8 | bytes[7]);
    for (int i = 0; i < 8; ++i) {
        guid.Data4[i] = bytes[8 + i];
    }
    return guid;
}

std::string formatGuid(const GUID& g) {
    char text[kLength + 1];
    std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  unsigned(g.Data1), unsigned(g.Data2), unsigned(g.Data3), g.Data4[0], g.Data4[1],
                  g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
    return text;
}

bool isNullGuid(const GUID& guid) {
    return guid == GUID{};
}

} // namespace model
