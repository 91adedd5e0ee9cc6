#include "platform/standin/com.h"
#include "platform/sim/control.h"

#include <atomic>
#include <cstdlib>

namespace {

struct ApartmentState {
    int count = 0;
    int uninitializeCalls = 0;
    DWORD model = 0;
};
thread_local ApartmentState apartment;
std::atomic<HRESULT> pendingFailure{S_OK};
std::atomic<bool> allocationFails{false};

} // namespace

namespace sim {

int comInitCount() {
    return apartment.count;
}
void failNextCoInitialize(HRESULT code) {
    pendingFailure.store(code);
}
int comUninitializeCalls() {
    return apartment.uninitializeCalls;
}
void failNextCoTaskMemAlloc() {
    allocationFails.store(true);
}

} // namespace sim

extern "C" {

HRESULT CoInitializeEx(LPVOID, DWORD coInit) {
    HRESULT failure = pendingFailure.exchange(S_OK);
    if (FAILED(failure)) {
        return failure;
    }
    if (apartment.count > 0 && apartment.model != coInit) {
        return RPC_E_CHANGED_MODE;
    }
    apartment.model = coInit;
    return apartment.count++ == 0 ? S_OK : S_FALSE;
}

HRESULT CoInitialize(LPVOID reserved) {
    return CoInitializeEx(reserved, COINIT_APARTMENTTHREADED);
}

void CoUninitialize(void) {
    ++apartment.uninitializeCalls;
    if (apartment.count > 0) {
        --apartment.count;
    }
}

LPVOID CoTaskMemAlloc(std::size_t size) {
    if (allocationFails.exchange(false)) {
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

void CoTaskMemFree(LPVOID block) {
    std::free(block);
}
}
