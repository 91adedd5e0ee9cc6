// Export marker for the functions of the simulated platform library.
#pragma once

#define LIBAUDIO_PLATFORM_API __attribute__((visibility("default")))
#define WINAPI
#define STDMETHODCALLTYPE
