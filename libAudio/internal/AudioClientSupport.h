// What the client renderer and the client capture share: activating an audio client,
// initialising it without calling through a missing one, and the result codes that the
// initialisation retries on.
#pragma once

#include "foundation/qelLog.h"
#include "platform/CComPtr.h"
#include "platform/win32.h"

namespace libAudio::client {

inline qel::Hex hex(HRESULT hr) {
    return qel::Hex{(unsigned long long)(DWORD)hr};
}

// A fresh client in `client`; E_POINTER without a device. A failed activation leaves the
// pointer empty, and the calls below then answer E_POINTER instead of crashing.
inline HRESULT activate(IMMDevice* device, CComPtr<IAudioClient>& client) {
    client.Release();
    if (!device) {
        return E_POINTER;
    }
    return device->Activate(platform::iidOf<IAudioClient>(), CLSCTX_ALL, nullptr,
                            reinterpret_cast<void**>(&client));
}

// Buffer duration and periodicity are the same, as exclusive mode requires.
inline HRESULT initialize(IAudioClient* client, AUDCLNT_SHAREMODE mode, DWORD flags,
                          REFERENCE_TIME duration, const WAVEFORMATEX* format) {
    if (!client) {
        return E_POINTER;
    }
    return client->Initialize(mode, flags, duration, duration, format, nullptr);
}

inline HRESULT isFormatSupported(IAudioClient* client, const WAVEFORMATEX* format) {
    if (!client) {
        return E_POINTER;
    }
    return client->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, format, nullptr);
}

// Refusals that a smaller buffer may cure.
inline bool refusedBufferSize(HRESULT hr) {
    return hr == E_OUTOFMEMORY || hr == AUDCLNT_E_INVALID_DEVICE_PERIOD ||
           hr == AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED;
}

// Refusals that shared mode may cure: another stream holds the device.
inline bool refusedExclusiveAccess(HRESULT hr) {
    return hr == AUDCLNT_E_DEVICE_IN_USE || hr == AUDCLNT_E_ENDPOINT_CREATE_FAILED;
}

// Both passes of the initialisation use these flags: the second is a plain retry.
inline constexpr DWORD kStreamFlagPasses[2] = {0, 0};

// Attempts of one pass. A refusal that shared mode does not cure would otherwise be
// retried for ever; every sequence of refusals that can end does so long before this.
inline constexpr int kAttemptsPerPass = 100;

} // namespace libAudio::client
