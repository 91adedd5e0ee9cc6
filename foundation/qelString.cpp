#include "foundation/qelString.h"
#include "foundation/qelArray.h"

#include <algorithm>

namespace qel {

namespace {

bool isSpace(String::Unit c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f' || c == 0xA0 ||
           c == 0x3000 || c == 0xFEFF;
}

String::Unit foldCase(String::Unit c) {
    if (c >= 'A' && c <= 'Z') {
        return String::Unit(c + 32);
    }
    // Latin-1 supplement and Greek/Cyrillic capitals fold by a fixed offset.
    if ((c >= 0xC0 && c <= 0xDE && c != 0xD7) || (c >= 0x391 && c <= 0x3A9) ||
        (c >= 0x410 && c <= 0x42F)) {
        return String::Unit(c + 32);
    }
    return c;
}

void appendUtf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | (c >> 6));
        out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | (c >> 12));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | (c >> 18));
        out += char(0x80 | ((c >> 12) & 0x3F));
        out += char(0x80 | ((c >> 6) & 0x3F));
        out += char(0x80 | (c & 0x3F));
    }
}

// Decodes one UTF-8 sequence at text[i]; malformed input yields U+FFFD and one byte.
char32_t decodeUtf8(const std::string& text, std::size_t& i) {
    unsigned char lead = text[i++];
    int extra = lead < 0x80    ? 0
                : lead >= 0xF5 ? -1
                : lead >= 0xF0 ? 3
                : lead >= 0xE0 ? 2
                : lead >= 0xC2 ? 1
                               : -1;
    if (extra < 0) {
        return 0xFFFD;
    }
    char32_t c = extra == 0 ? lead : lead & (0x3F >> extra);
    for (int k = 0; k < extra; ++k) {
        if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
            return 0xFFFD;
        }
        c = (c << 6) | (static_cast<unsigned char>(text[i++]) & 0x3F);
    }
    // Overlong forms, surrogates and values beyond U+10FFFF are not characters.
    static const char32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (c < least[extra] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
        return 0xFFFD;
    }
    return c;
}

} // namespace

String::String(const char* utf8) : String(fromUtf8(utf8 ? utf8 : "")) {}

String::String(const Unit* ucs2) {
    if (ucs2) {
        m_units = ucs2;
    }
}

String& String::operator=(const Unit* ucs2) {
    if (ucs2) {
        m_units = ucs2;
    } else {
        m_units.clear();
    }
    return *this;
}

String String::fromUtf8(const std::string& utf8) {
    String result;
    result.m_units.reserve(utf8.size());
    for (std::size_t i = 0; i < utf8.size();) {
        char32_t c = decodeUtf8(utf8, i);
        if (c >= 0x10000) {
            c -= 0x10000;
            result.m_units += Unit(0xD800 + (c >> 10));
            result.m_units += Unit(0xDC00 + (c & 0x3FF));
        } else {
            result.m_units += Unit(c);
        }
    }
    return result;
}

String String::fromUnits(const Unit* units, Uint32 count) {
    String result;
    if (units) {
        result.m_units.assign(units, count);
    }
    return result;
}

String& String::trim() {
    auto first = std::find_if_not(m_units.begin(), m_units.end(), isSpace);
    auto last = std::find_if_not(m_units.rbegin(), m_units.rend(), isSpace).base();
    m_units = first < last ? std::basic_string<Unit>(first, last) : std::basic_string<Unit>();
    return *this;
}

int String::compareNoCase(const String& other) const {
    return compareNoCase(*this, other);
}

int String::compareNoCase(const String& a, const String& b) {
    std::size_t n = std::min(a.m_units.size(), b.m_units.size());
    for (std::size_t i = 0; i < n; ++i) {
        int d = int(foldCase(a.m_units[i])) - int(foldCase(b.m_units[i]));
        if (d != 0) {
            return d;
        }
    }
    return a.m_units.size() < b.m_units.size() ? -1 : a.m_units.size() > b.m_units.size();
}

String& String::operator+=(const String& other) {
    m_units += other.m_units;
    return *this;
}

String String::operator+(const String& other) const {
    String result(*this);
    result += other;
    return result;
}

Array<String> String::tokenize(const String& separators) const {
    Array<String> pieces;
    std::size_t start = 0;
    while (start <= m_units.size()) {
        std::size_t end = m_units.find_first_of(separators.m_units, start);
        if (end == std::basic_string<Unit>::npos) {
            end = m_units.size();
        }
        if (end > start) {
            pieces.append(fromUnits(m_units.data() + start, Uint32(end - start)));
        }
        start = end + 1;
    }
    return pieces;
}

const String::Unit* String::getUCS2Buffer() const {
    return m_units.c_str();
}

CString String::getUTF8String() const {
    std::string out;
    out.reserve(m_units.size());
    for (std::size_t i = 0; i < m_units.size(); ++i) {
        char32_t c = m_units[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < m_units.size() && m_units[i + 1] >= 0xDC00 &&
            m_units[i + 1] < 0xE000) {
            c = 0x10000 + ((c - 0xD800) << 10) + (char32_t(m_units[++i]) - 0xDC00);
        }
        appendUtf8(out, c);
    }
    return CString(std::move(out));
}

bool String::strToBoolean(const String& text) {
    for (const char* word : {"1", "true", "yes", "on", "enabled"}) {
        if (text.compareNoCase(String(word)) == 0) {
            return true;
        }
    }
    return false;
}

const String& String::EMPTY() {
    static const String empty;
    return empty;
}

} // namespace qel
