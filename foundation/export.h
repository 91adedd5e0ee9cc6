// Marks what the shared library exports; everything else stays hidden.
#pragma once

#if defined(_WIN32)
#if defined(LIBAUDIO_BUILDING)
#define LIBAUDIO_API __declspec(dllexport)
#else
#define LIBAUDIO_API __declspec(dllimport)
#endif
#else
#define LIBAUDIO_API __attribute__((visibility("default")))
#endif
