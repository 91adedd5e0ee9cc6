// Test-side controls of the simulated platform: what a test may inspect or provoke that a
// program on the real platform cannot.
#pragma once

#include "platform/standin/types.h"
#include "platform/standin/winuser.h"

#include <vector>

namespace sim {

// Number of unbalanced CoInitialize calls on the calling thread.
LIBAUDIO_PLATFORM_API int comInitCount();
// The next CoInitialize/CoInitializeEx on any thread fails with this code.
LIBAUDIO_PLATFORM_API void failNextCoInitialize(HRESULT code);
// The next CoTaskMemAlloc on any thread returns null, as an exhausted allocator does.
LIBAUDIO_PLATFORM_API void failNextCoTaskMemAlloc();
// Calls of CoUninitialize on the calling thread since it started.
LIBAUDIO_PLATFORM_API int comUninitializeCalls();

struct PostedMessage {
    HWND window;
    UINT message;
    WPARAM wParam;
    LPARAM lParam;
};
// The window messages posted since the last call, oldest first.
LIBAUDIO_PLATFORM_API std::vector<PostedMessage> takePostedMessages();

} // namespace sim
