// Critical sections, sleeping and structured exceptions.
#pragma once

#include "platform/standin/types.h"

#include <cstddef>
#include <stdexcept>

struct CRITICAL_SECTION {
    void* impl; // the simulated platform's recursive mutex
};
typedef CRITICAL_SECTION* LPCRITICAL_SECTION;

#define EXCEPTION_NONCONTINUABLE 0x1
#define INFINITE 0xFFFFFFFF
#define WAIT_OBJECT_0 0x00000000L
#define WAIT_ABANDONED 0x00000080L
#define WAIT_TIMEOUT 0x00000102L
#define WAIT_FAILED 0xFFFFFFFF
#define ERROR_INVALID_HANDLE 6L

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
// Time passes on the simulated platform's clock: real time, or the virtual time of tests.
LIBAUDIO_PLATFORM_API void Sleep(DWORD milliseconds);
LIBAUDIO_PLATFORM_API ULONGLONG GetTickCount64(void);
LIBAUDIO_PLATFORM_API DWORD GetLastError(void);
LIBAUDIO_PLATFORM_API void SetLastError(DWORD error);

// Threads. A thread's handle is signalled when the thread has ended.
typedef DWORD(WINAPI* LPTHREAD_START_ROUTINE)(LPVOID parameter);
#define STILL_ACTIVE 259
LIBAUDIO_PLATFORM_API HANDLE CreateThread(void* securityAttributes, std::size_t stackSize,
                                          LPTHREAD_START_ROUTINE start, LPVOID parameter,
                                          DWORD creationFlags, DWORD* threadId);
LIBAUDIO_PLATFORM_API BOOL GetExitCodeThread(HANDLE thread, DWORD* exitCode);

// Events and waits.
LIBAUDIO_PLATFORM_API HANDLE CreateEventW(void* securityAttributes, BOOL manualReset,
                                          BOOL initialState, LPCWSTR name);
LIBAUDIO_PLATFORM_API BOOL SetEvent(HANDLE event);
LIBAUDIO_PLATFORM_API BOOL ResetEvent(HANDLE event);
LIBAUDIO_PLATFORM_API DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
LIBAUDIO_PLATFORM_API DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds,
                                                  BOOL alertable);
LIBAUDIO_PLATFORM_API BOOL CloseHandle(HANDLE handle);
}

// Not extern "C": it throws.
LIBAUDIO_PLATFORM_API void RaiseException(DWORD code, DWORD flags, DWORD numberOfArguments,
                                          const ULONG_PTR* arguments);
