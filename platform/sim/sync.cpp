#include "platform/standin/sync.h"

#include <chrono>
#include <mutex>
#include <string>
#include <thread>

namespace {

thread_local DWORD lastError = 0;

std::string describe(DWORD code) {
    char text[64];
    std::snprintf(text, sizeof text, "structured exception 0x%08X", unsigned(code));
    return text;
}

} // namespace

StructuredException::StructuredException(DWORD code, DWORD flags)
    : std::runtime_error(describe(code)), m_code(code), m_flags(flags) {}

void RaiseException(DWORD code, DWORD flags, DWORD, const ULONG_PTR*) {
    throw StructuredException(code, flags);
}

extern "C" {

void InitializeCriticalSection(LPCRITICAL_SECTION section) {
    section->impl = new std::recursive_mutex;
}

void DeleteCriticalSection(LPCRITICAL_SECTION section) {
    delete static_cast<std::recursive_mutex*>(section->impl);
    section->impl = nullptr;
}

void EnterCriticalSection(LPCRITICAL_SECTION section) {
    static_cast<std::recursive_mutex*>(section->impl)->lock();
}

void LeaveCriticalSection(LPCRITICAL_SECTION section) {
    static_cast<std::recursive_mutex*>(section->impl)->unlock();
}

DWORD GetLastError(void) {
    return lastError;
}

void SetLastError(DWORD error) {
    lastError = error;
}
}
