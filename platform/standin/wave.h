// The legacy waveform-audio devices: what the library needs to find an endpoint's legacy
// device number.
#pragma once

#include "platform/standin/types.h"

struct HWAVEIN__;
typedef HWAVEIN__* HWAVEIN;
struct HWAVEOUT__;
typedef HWAVEOUT__* HWAVEOUT;

#define MMSYSERR_BADDEVICEID 2
#define MMSYSERR_NOTSUPPORTED 8
#define MMSYSERR_NOMEM 7

extern "C" {
LIBAUDIO_PLATFORM_API UINT waveInGetNumDevs(void);
LIBAUDIO_PLATFORM_API UINT waveOutGetNumDevs(void);
// A device number cast to the handle type addresses a device that is not open.
LIBAUDIO_PLATFORM_API MMRESULT waveInMessage(HWAVEIN device, UINT message, DWORD_PTR param1,
                                             DWORD_PTR param2);
LIBAUDIO_PLATFORM_API MMRESULT waveOutMessage(HWAVEOUT device, UINT message, DWORD_PTR param1,
                                              DWORD_PTR param2);
}
