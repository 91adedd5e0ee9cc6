// Critical sections, sleeping and structured exceptions.
#pragma once

#include "platform/standin/types.h"

#include <stdexcept>

struct CRITICAL_SECTION {
    void* impl; // the simulated platform's recursive mutex
};
typedef CRITICAL_SECTION* LPCRITICAL_SECTION;

#define EXCEPTION_NONCONTINUABLE 0x1

// What RaiseException throws where there is no structured exception handling.
class LIBAUDIO_PLATFORM_API StructuredException : public std::runtime_error {
public:
    StructuredException(DWORD code, DWORD flags);
    DWORD code() const { return m_code; }
    DWORD flags() const { return m_flags; }

private:
    DWORD m_code;
    DWORD m_flags;
};

extern "C" {
LIBAUDIO_PLATFORM_API void InitializeCriticalSection(LPCRITICAL_SECTION section);
LIBAUDIO_PLATFORM_API void DeleteCriticalSection(LPCRITICAL_SECTION section);
LIBAUDIO_PLATFORM_API void EnterCriticalSection(LPCRITICAL_SECTION section);
LIBAUDIO_PLATFORM_API void LeaveCriticalSection(LPCRITICAL_SECTION section);
LIBAUDIO_PLATFORM_API void Sleep(DWORD milliseconds);
LIBAUDIO_PLATFORM_API DWORD GetLastError(void);
LIBAUDIO_PLATFORM_API void SetLastError(DWORD error);
}

// Not extern "C": it throws.
LIBAUDIO_PLATFORM_API void RaiseException(DWORD code, DWORD flags, DWORD numberOfArguments,
                                          const ULONG_PTR* arguments);
