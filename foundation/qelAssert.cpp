#include "foundation/qelAssert.h"
#include "foundation/qelLog.h"

#include <atomic>

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

#ifdef _WIN32
void raiseStructuredException(std::uint32_t code) {
    RaiseException(code, 0, 0, nullptr);
}
constexpr AssertionFailure::StructuredRaise kPlatformRaise = raiseStructuredException;
#else
constexpr AssertionFailure::StructuredRaise kPlatformRaise = nullptr;
#endif

std::atomic<AssertionFailure::StructuredRaise> g_structuredRaise{kPlatformRaise};
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
    if (StructuredRaise structured = g_structuredRaise.load()) {
        structured(exceptionCode);
        return; // a handler continued execution
    }
    throw AssertionException(file, line, expression);
}

AssertionFailure::StructuredRaise AssertionFailure::setStructuredRaise(StructuredRaise raise) {
    return g_structuredRaise.exchange(raise);
}

} // namespace qel
