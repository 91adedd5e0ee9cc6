// The one wave header of WaveIn and WaveOut. The platform writes its flags (and, when
// recording, the byte count) on its own thread while the block is queued, so the library
// reads and writes those fields only through atomic references.
#pragma once

#include "libAudio/PCMSupport.h"
#include "platform/win32.h"

#include <atomic>
#include <cstddef>

namespace libAudio::waveheader {

static_assert(offsetof(WAVEHDR, dwFlags) % std::atomic_ref<DWORD>::required_alignment == 0);
static_assert(offsetof(WAVEHDR, dwBytesRecorded) % std::atomic_ref<DWORD>::required_alignment == 0);

inline std::atomic_ref<DWORD> shared(const DWORD& field) {
    return std::atomic_ref<DWORD>(const_cast<DWORD&>(field));
}

inline DWORD flags(const WAVEHDR& header) {
    return shared(header.dwFlags).load();
}

inline void setFlags(WAVEHDR& header, DWORD value) {
    shared(header.dwFlags).store(value);
}

inline void addFlags(WAVEHDR& header, DWORD value) {
    shared(header.dwFlags).fetch_or(value);
}

inline void clear(WAVEHDR& header) {
    header.lpData = nullptr;
    header.dwBufferLength = 0;
    shared(header.dwBytesRecorded).store(0);
    header.dwUser = 0;
    setFlags(header, 0);
    header.dwLoops = 0;
    header.lpNext = nullptr;
    header.reserved = 0;
}

inline void copy(WAVEHDR& to, const WAVEHDR& from) {
    to.lpData = from.lpData;
    to.dwBufferLength = from.dwBufferLength;
    shared(to.dwBytesRecorded).store(shared(from.dwBytesRecorded).load());
    to.dwUser = from.dwUser;
    setFlags(to, flags(from));
    to.dwLoops = from.dwLoops;
    to.lpNext = from.lpNext;
    to.reserved = from.reserved;
}

// A cleared header over the track's bytes. The device fills or reads them in place: the
// track's owner keeps them alive while the block is queued.
inline void describe(WAVEHDR& header, const PCMTrack& track) {
    clear(header);
    header.lpData = reinterpret_cast<LPSTR>(const_cast<unsigned char*>(track.pcm.data()));
    header.dwBufferLength = DWORD(track.pcm.size());
}

// Open, with a block to hand over and nothing queued or left behind by the device.
inline bool ready(bool handleValid, const WAVEHDR& header) {
    return handleValid && header.dwBufferLength != 0 && header.lpData != nullptr &&
           flags(header) == 0;
}

} // namespace libAudio::waveheader
