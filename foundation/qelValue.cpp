#include "foundation/qelValue.h"

#include <cstdio>
#include <string>

namespace {

std::string hex(unsigned int value, bool prefixed) {
    char text[16];
    std::snprintf(text, sizeof text, prefixed ? "0x%X" : "%X", value);
    return text;
}

template <class T> bool take(const auto& variant, T& out) {
    if (const T* value = std::get_if<T>(&variant)) {
        out = *value;
        return true;
    }
    return false;
}

} // namespace

bool QELValue::get(qel::Array<unsigned int>& out) const {
    return take(m_value, out);
}
bool QELValue::get(bool& out) const {
    return take(m_value, out);
}
bool QELValue::get(int& out) const {
    return take(m_value, out);
}
bool QELValue::get(unsigned int& out) const {
    return take(m_value, out);
}

qel::String QELValue::toHexString(bool prefixed) const {
    std::string text;
    if (const auto* array = std::get_if<qel::Array<unsigned int>>(&m_value)) {
        for (unsigned int item : *array) {
            // Appending in two steps: GCC 12 at -O3 flags the operator+ form with a
            // false -Wrestrict.
            if (!text.empty()) {
                text += ',';
            }
            text += hex(item, prefixed);
        }
    } else if (const int* i = std::get_if<int>(&m_value)) {
        text = hex(unsigned(*i), prefixed);
    } else if (const unsigned int* u = std::get_if<unsigned int>(&m_value)) {
        text = hex(*u, prefixed);
    } else if (const bool* b = std::get_if<bool>(&m_value)) {
        text = hex(*b ? 1 : 0, prefixed);
    }
    return qel::String::fromUtf8(text);
}
