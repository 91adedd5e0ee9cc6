// The legacy waveform-audio devices: opening a device by number, queueing one header's
// block, starting, stopping and resetting, and the driver messages that name a device's
// endpoint.
#pragma once

#include "platform/standin/mmreg.h"
#include "platform/standin/types.h"

struct HWAVEIN__;
typedef HWAVEIN__* HWAVEIN;
typedef HWAVEIN* LPHWAVEIN;
struct HWAVEOUT__;
typedef HWAVEOUT__* HWAVEOUT;
typedef HWAVEOUT* LPHWAVEOUT;
typedef const WAVEFORMATEX* LPCWAVEFORMATEX;

#define MMSYSERR_BADDEVICEID 2
#define MMSYSERR_NOTENABLED 3
#define MMSYSERR_ALLOCATED 4
#define MMSYSERR_NODRIVER 6
#define MMSYSERR_NOMEM 7
#define MMSYSERR_NOTSUPPORTED 8
#define MMSYSERR_INVALFLAG 10
#define MMSYSERR_HANDLEBUSY 12
#define WAVERR_BADFORMAT 32
#define WAVERR_STILLPLAYING 33
#define WAVERR_UNPREPARED 34

#define WAVE_MAPPER ((UINT)-1)
#define CALLBACK_NULL 0x00000000L
#define WAVE_FORMAT_QUERY 0x0001

typedef struct wavehdr_tag {
    LPSTR lpData;
    DWORD dwBufferLength;
    DWORD dwBytesRecorded;
    DWORD_PTR dwUser;
    DWORD dwFlags;
    DWORD dwLoops;
    struct wavehdr_tag* lpNext;
    DWORD_PTR reserved;
} WAVEHDR, *PWAVEHDR, *LPWAVEHDR;

#define WHDR_DONE 0x00000001
#define WHDR_PREPARED 0x00000002
#define WHDR_BEGINLOOP 0x00000004
#define WHDR_ENDLOOP 0x00000008
#define WHDR_INQUEUE 0x00000010

extern "C" {
LIBAUDIO_PLATFORM_API UINT waveInGetNumDevs(void);
LIBAUDIO_PLATFORM_API UINT waveOutGetNumDevs(void);
// A device number cast to the handle type addresses a device that is not open.
LIBAUDIO_PLATFORM_API MMRESULT waveInMessage(HWAVEIN device, UINT message, DWORD_PTR param1,
                                             DWORD_PTR param2);
LIBAUDIO_PLATFORM_API MMRESULT waveOutMessage(HWAVEOUT device, UINT message, DWORD_PTR param1,
                                              DWORD_PTR param2);

LIBAUDIO_PLATFORM_API MMRESULT waveOutOpen(LPHWAVEOUT device, UINT deviceId, LPCWAVEFORMATEX format,
                                           DWORD_PTR callback, DWORD_PTR instance, DWORD flags);
LIBAUDIO_PLATFORM_API MMRESULT waveOutClose(HWAVEOUT device);
LIBAUDIO_PLATFORM_API MMRESULT waveOutPrepareHeader(HWAVEOUT device, LPWAVEHDR header,
                                                    UINT headerSize);
LIBAUDIO_PLATFORM_API MMRESULT waveOutUnprepareHeader(HWAVEOUT device, LPWAVEHDR header,
                                                      UINT headerSize);
LIBAUDIO_PLATFORM_API MMRESULT waveOutWrite(HWAVEOUT device, LPWAVEHDR header, UINT headerSize);
LIBAUDIO_PLATFORM_API MMRESULT waveOutReset(HWAVEOUT device);

LIBAUDIO_PLATFORM_API MMRESULT waveInOpen(LPHWAVEIN device, UINT deviceId, LPCWAVEFORMATEX format,
                                          DWORD_PTR callback, DWORD_PTR instance, DWORD flags);
LIBAUDIO_PLATFORM_API MMRESULT waveInClose(HWAVEIN device);
LIBAUDIO_PLATFORM_API MMRESULT waveInPrepareHeader(HWAVEIN device, LPWAVEHDR header,
                                                   UINT headerSize);
LIBAUDIO_PLATFORM_API MMRESULT waveInUnprepareHeader(HWAVEIN device, LPWAVEHDR header,
                                                     UINT headerSize);
LIBAUDIO_PLATFORM_API MMRESULT waveInAddBuffer(HWAVEIN device, LPWAVEHDR header, UINT headerSize);
LIBAUDIO_PLATFORM_API MMRESULT waveInStart(HWAVEIN device);
LIBAUDIO_PLATFORM_API MMRESULT waveInStop(HWAVEIN device);
LIBAUDIO_PLATFORM_API MMRESULT waveInReset(HWAVEIN device);
}
