// Storage policy for strings that the platform allocates with its task allocator.
#pragma once

#include "platform/win32.h"

template <class T> struct ComTaskMemStorage {
    typedef T* value_type;
    static value_type empty() { return nullptr; }
    static void release(value_type value) { CoTaskMemFree(value); }
};
