// Event objects and waits.
#include "platform/standin/sync.h"

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace {

struct Event {
    std::mutex mutex;
    std::condition_variable signalled;
    bool manualReset;
    bool set;
};

Event* asEvent(HANDLE handle) {
    return static_cast<Event*>(handle);
}

// Waits until the event is set; an auto-reset event is reset by the wait it ends.
bool waitFor(Event& e, DWORD milliseconds) {
    std::unique_lock lock(e.mutex);
    auto isSet = [&e] {
        return e.set;
    };
    if (milliseconds == INFINITE) {
        e.signalled.wait(lock, isSet);
    } else if (!e.signalled.wait_for(lock, std::chrono::milliseconds(milliseconds), isSet)) {
        return false;
    }
    if (!e.manualReset) {
        e.set = false;
    }
    return true;
}

} // namespace

extern "C" {

HANDLE CreateEventW(void*, BOOL manualReset, BOOL initialState, LPCWSTR) {
    return new Event{{}, {}, manualReset != FALSE, initialState != FALSE};
}

BOOL SetEvent(HANDLE handle) {
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    Event& e = *asEvent(handle);
    std::lock_guard lock(e.mutex);
    e.set = true;
    e.signalled.notify_all();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    Event& e = *asEvent(handle);
    std::lock_guard lock(e.mutex);
    e.set = false;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    return waitFor(*asEvent(handle), milliseconds) ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL) {
    return WaitForSingleObject(handle, milliseconds);
}

BOOL CloseHandle(HANDLE handle) {
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    delete asEvent(handle);
    return TRUE;
}
}
