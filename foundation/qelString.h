// qel::String: a UCS-2 string with value semantics; qel::CString: its UTF-8 rendering.
#pragma once

#include "foundation/export.h"
#include "foundation/qelTypes.h"

#include <string>

namespace qel {

template <class T> class Array;

class LIBAUDIO_API CString {
public:
    CString() = default;
    explicit CString(std::string text) : m_text(std::move(text)) {}
    const char* c_str() const { return m_text.c_str(); }
    operator const char*() const { return m_text.c_str(); }
    Uint32 length() const { return Uint32(m_text.size()); }
    const std::string& str() const { return m_text; }

private:
    std::string m_text;
};

class LIBAUDIO_API String {
public:
    typedef unsigned short Unit;

    String() = default;
    String(const char* utf8);
    String(const Unit* ucs2);
    String(const String&) = default;
    String(String&&) noexcept = default;
    ~String() = default;
    String& operator=(const String&) = default;
    String& operator=(String&&) noexcept = default;
    String& operator=(const Unit* ucs2);

    static String fromUtf8(const std::string& utf8);
    static String fromUnits(const Unit* units, Uint32 count);

    void clear() { m_units.clear(); }
    String& trim();
    bool empty() const { return m_units.empty(); }
    Uint32 length() const { return Uint32(m_units.size()); }
    Unit operator[](Uint32 index) const { return m_units[index]; }

    int compareNoCase(const String& other) const;
    static int compareNoCase(const String& a, const String& b);
    bool operator==(const String& other) const { return m_units == other.m_units; }
    bool operator!=(const String& other) const { return m_units != other.m_units; }
    bool operator<(const String& other) const { return m_units < other.m_units; }

    String& operator+=(const String& other);
    String operator+(const String& other) const;

    // The pieces between separator characters; empty pieces are dropped.
    Array<String> tokenize(const String& separators) const;

    const Unit* getUCS2Buffer() const;
    CString getUTF8String() const;
    std::string toStdString() const { return getUTF8String().str(); }

    // "1", "true", "yes", "on", "enabled" (any case) read as true; anything else false.
    static bool strToBoolean(const String& text);
    static const String& EMPTY();

private:
    std::basic_string<Unit> m_units;
};

} // namespace qel
