// Window messages.
#pragma once

#include "platform/standin/types.h"

struct HWND__;
typedef HWND__* HWND;

#define WM_USER 0x0400

extern "C" {
// Posts a message to a window's queue; a null window posts to the calling thread's queue.
LIBAUDIO_PLATFORM_API BOOL PostMessageW(HWND hWnd, UINT msg, WPARAM wParam, LPARAM lParam);
}
