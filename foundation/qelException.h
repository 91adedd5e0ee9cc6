#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"

#include <exception>

namespace qel {

class LIBAUDIO_API Exception : public std::exception {
public:
    explicit Exception(const String& message);
    const String& message() const { return m_message; }
    const char* what() const noexcept override { return m_utf8.c_str(); }

private:
    String m_message;
    CString m_utf8;
};

// Thrown by a lookup of a key that is not in a hash table.
class LIBAUDIO_API HashKeyMissing : public Exception {
public:
    explicit HashKeyMissing(const String& key);
    const String& key() const { return m_key; }

private:
    String m_key;
};

} // namespace qel
