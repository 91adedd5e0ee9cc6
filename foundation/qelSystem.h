// Small OS services: sleeping, opening files by qel::String path, critical sections.
#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"
#include "platform/win32.h"

#include <cstdint>
#include <cstdio>

namespace qel {

class LIBAUDIO_API System {
public:
    static void mssleep(unsigned int milliseconds);
    // Opens path with the C library's mode; on failure returns null and stores errno (or
    // the platform's error) in *error when error is given. DWORD: the 32-bit unsigned long
    // that Windows callers link against, a 32-bit integer elsewhere.
    static std::FILE* fopen(const String& path, const String& mode, DWORD* error);
};

class LIBAUDIO_API mutex {
public:
    static bool init(CRITICAL_SECTION& section);
    static void lock(CRITICAL_SECTION& section);
    static bool unlock(CRITICAL_SECTION& section);
    static bool destroy(CRITICAL_SECTION& section);
};

} // namespace qel
