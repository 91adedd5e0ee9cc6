#include "foundation/qelAssert.h"
#include "foundation/qelLog.h"

#ifdef _WIN32
#include "platform/win32.h"
#endif

namespace qel {

namespace {
QEL_DEFINE_UNIT_LOGGER("qel.assert")

std::string describe(const char* file, unsigned long long line, const char* expression) {
    return std::string("assertion failed: ") + expression + " (" + file + ":" +
           std::to_string(line) + ")";
}
} // namespace

AssertionException::AssertionException(const char* file, unsigned long long line,
                                       const char* expression)
    : std::logic_error(describe(file, line, expression)), m_expression(expression), m_file(file),
      m_line(line) {}

void AssertionFailure::logAssert(const char* file, unsigned long long line,
                                 const char* expression) {
    QEL_LOG_AT(PRIORITY_FATAL, line, "Assertion failed: ", expression, " in ", file);
}

void AssertionFailure::raise(const char* file, unsigned long long line, const char* expression) {
#ifdef _WIN32
    RaiseException(7, 0, 0, nullptr);
#endif
    throw AssertionException(file, line, expression);
}

} // namespace qel
