// Assertions: log the failed condition as written, then raise structured exception 7
// (on Windows) or throw qel::AssertionException (elsewhere).
#pragma once

#include "foundation/export.h"

#include <cstdint>
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
    // The code of the structured exception that a failed assertion raises.
    static constexpr std::uint32_t exceptionCode = 7;

    // Records a failed assertion in the log ("qel.assert", priority 4).
    static void logAssert(const char* file, unsigned long long line, const char* expression);
    // Raises the failure through the structured raise when there is one (on Windows:
    // RaiseException(7, 0, 0, nullptr)). That returns only when a handler let execution
    // continue, and then so does this: the caller goes on as if the check had passed.
    // Without a structured raise (elsewhere) it throws AssertionException.
    static void raise(const char* file, unsigned long long line, const char* expression);

    // Raises the structured exception with the code; returns when a handler continued.
    typedef void (*StructuredRaise)(std::uint32_t code);
    // Replaces the process's structured raise and returns the one it replaces; null makes
    // failures throw AssertionException. For hosts and tests that stand in for the
    // platform's exception dispatch.
    static StructuredRaise setStructuredRaise(StructuredRaise raise);
};

} // namespace qel

#define QEL_ASSERT(condition) QEL_ASSERT_TEXT(condition, #condition)

// For conditions whose reported text must differ from the source's formatting. When the
// raise returns, a handler chose to continue: nothing more happens here.
#define QEL_ASSERT_TEXT(condition, text)                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            ::qel::AssertionFailure::logAssert(__FILE__, __LINE__, text);                          \
            ::qel::AssertionFailure::raise(__FILE__, __LINE__, text);                              \
        }                                                                                          \
    } while (0)
