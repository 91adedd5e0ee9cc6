// Assertions: log the failed condition as written, then raise structured exception 7
// (on Windows) or throw qel::AssertionException (elsewhere).
#pragma once

#include "foundation/export.h"

#include <stdexcept>
#include <string>

namespace qel {

class LIBAUDIO_API AssertionException : public std::logic_error {
public:
    AssertionException(const char* file, unsigned long long line, const char* expression);
    const std::string& expression() const { return m_expression; }
    const std::string& file() const { return m_file; }
    unsigned long long line() const { return m_line; }

private:
    std::string m_expression;
    std::string m_file;
    unsigned long long m_line;
};

class LIBAUDIO_API AssertionFailure {
public:
    // Records a failed assertion in the log ("qel.assert", priority 4).
    static void logAssert(const char* file, unsigned long long line, const char* expression);
    // Raises the failure: RaiseException(7, 0, 0, nullptr) on Windows, else throws.
    [[noreturn]] static void raise(const char* file, unsigned long long line,
                                   const char* expression);
};

} // namespace qel

#define QEL_ASSERT(condition) QEL_ASSERT_TEXT(condition, #condition)

// For conditions whose reported text must differ from the source's formatting.
#define QEL_ASSERT_TEXT(condition, text)                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            ::qel::AssertionFailure::logAssert(__FILE__, __LINE__, text);                          \
            ::qel::AssertionFailure::raise(__FILE__, __LINE__, text);                              \
        }                                                                                          \
    } while (0)
