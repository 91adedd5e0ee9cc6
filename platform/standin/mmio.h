// Multimedia file I/O: buffered RIFF chunk navigation over a real file.
#pragma once

#include "platform/standin/types.h"

#include <cstdio>

struct MMIOINFO;
typedef MMIOINFO* LPMMIOINFO;
struct MMIOHANDLE;
typedef MMIOHANDLE* HMMIO;

struct MMCKINFO {
    FOURCC ckid;
    DWORD cksize;
    FOURCC fccType;
    DWORD dwDataOffset;
    DWORD dwFlags;
};
typedef MMCKINFO* LPMMCKINFO;
typedef const MMCKINFO* LPCMMCKINFO;

constexpr FOURCC mmioFOURCC(char a, char b, char c, char d) {
    return FOURCC(BYTE(a)) | (FOURCC(BYTE(b)) << 8) | (FOURCC(BYTE(c)) << 16) |
           (FOURCC(BYTE(d)) << 24);
}
#define FOURCC_RIFF mmioFOURCC('R', 'I', 'F', 'F')
#define FOURCC_LIST mmioFOURCC('L', 'I', 'S', 'T')

#define MMSYSERR_NOERROR 0
#define MMSYSERR_ERROR 1
#define MMSYSERR_INVALHANDLE 5
#define MMSYSERR_INVALPARAM 11
#define MMIOERR_BASE 256
#define MMIOERR_FILENOTFOUND (MMIOERR_BASE + 1)
#define MMIOERR_CANNOTOPEN (MMIOERR_BASE + 3)
#define MMIOERR_CANNOTREAD (MMIOERR_BASE + 5)
#define MMIOERR_CANNOTSEEK (MMIOERR_BASE + 7)
#define MMIOERR_CHUNKNOTFOUND (MMIOERR_BASE + 9)

#define MMIO_READ 0x00000000
#define MMIO_WRITE 0x00000001
#define MMIO_READWRITE 0x00000002
#define MMIO_ALLOCBUF 0x00010000
#define MMIO_FINDCHUNK 0x0010
#define MMIO_FINDRIFF 0x0020
#define MMIO_FINDLIST 0x0040
#define MMIO_DIRTY 0x10000000

extern "C" {
LIBAUDIO_PLATFORM_API HMMIO mmioOpenW(LPWSTR fileName, LPMMIOINFO info, DWORD openFlags);
LIBAUDIO_PLATFORM_API MMRESULT mmioClose(HMMIO handle, UINT flags);
LIBAUDIO_PLATFORM_API LONG mmioRead(HMMIO handle, HPSTR buffer, LONG count);
LIBAUDIO_PLATFORM_API LONG mmioSeek(HMMIO handle, LONG offset, int origin);
LIBAUDIO_PLATFORM_API MMRESULT mmioDescend(HMMIO handle, LPMMCKINFO chunk, const MMCKINFO* parent,
                                           UINT flags);
LIBAUDIO_PLATFORM_API MMRESULT mmioAscend(HMMIO handle, LPMMCKINFO chunk, UINT flags);
}
