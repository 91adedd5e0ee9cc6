// The part of the component-model runtime the library uses.
#pragma once

#include "platform/standin/unknwn.h"

#define COINIT_APARTMENTTHREADED 0x2
#define COINIT_MULTITHREADED 0x0

extern "C" {
// Per-thread initialization count, as the real runtime keeps it: the first call on a
// thread answers S_OK, later ones S_FALSE; every successful call needs one uninitialize.
LIBAUDIO_PLATFORM_API HRESULT CoInitialize(LPVOID reserved);
LIBAUDIO_PLATFORM_API HRESULT CoInitializeEx(LPVOID reserved, DWORD coInit);
LIBAUDIO_PLATFORM_API void CoUninitialize(void);
LIBAUDIO_PLATFORM_API LPVOID CoTaskMemAlloc(std::size_t size);
LIBAUDIO_PLATFORM_API void CoTaskMemFree(LPVOID block);
// Creates the simulated platform's objects; CLSID_MMDeviceEnumerator is the one class known.
LIBAUDIO_PLATFORM_API HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN pUnkOuter,
                                               DWORD dwClsContext, REFIID riid, LPVOID* ppv);
// Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}"; CO_E_CLASSSTRING when malformed.
LIBAUDIO_PLATFORM_API HRESULT CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid);
}
