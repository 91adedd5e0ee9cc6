// The one door from the library to the operating system. On Windows it is the SDK;
// elsewhere the stand-in headers declare the same names with the same binary layout,
// implemented by the simulated platform.
#pragma once

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <cfgmgr32.h>
#include <ks.h>
#include <ksmedia.h>
#include <mmreg.h>
#include <mmsystem.h>
#include <objbase.h>
#include <windows.h>
#else
#include "platform/standin/cfgmgr.h"
#include "platform/standin/com.h"
#include "platform/standin/mmio.h"
#include "platform/standin/mmreg.h"
#include "platform/standin/sync.h"
#include "platform/standin/types.h"
#endif

#include <cstdint>

static_assert(sizeof(WAVEFORMATEX) == 18, "WAVEFORMATEX must be packed to 18 bytes");
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40, "WAVEFORMATEXTENSIBLE must be 40 bytes");
static_assert(sizeof(GUID) == 16, "GUID must be 16 bytes");
static_assert(sizeof(WCHAR) == 2, "the platform's wide character must be 16-bit");

namespace platform {

// qel::String hands out UCS-2 as unsigned short; the platform's wide type differs by side.
inline const WCHAR* wide(const unsigned short* text) {
    return reinterpret_cast<const WCHAR*>(text);
}
inline WCHAR* wide(unsigned short* text) {
    return reinterpret_cast<WCHAR*>(text);
}
inline const unsigned short* ucs2(const WCHAR* text) {
    return reinterpret_cast<const unsigned short*>(text);
}

} // namespace platform
