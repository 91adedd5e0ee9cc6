// WaveIn and WaveOut: one legacy waveform-audio device and the one header that hands it a
// caller-owned PCM block. Progress is read from the header's done flag.
//
// A device number of 0xFFFFFFFF (what AudioDevice::waveLegacyDeviceID answers for an
// endpoint without a legacy number) is WAVE_MAPPER: open then takes the system's default
// device, not an error.
#pragma once

#include "foundation/export.h"
#include "foundation/qelSharedResource.h"
#include "libAudio/PCMSupport.h"
#include "platform/win32.h"

#include <atomic>
#include <cstdint>

namespace libAudio {

// Storage policies of the shared device handles: the last holder closes the device.
struct LIBAUDIO_API WaveInHandleStorage {
    typedef HWAVEIN value_type;
    static value_type empty() { return nullptr; }
    static void release(value_type handle) { destroy(handle); }
    static void destroy(value_type handle);
};

struct LIBAUDIO_API WaveOutHandleStorage {
    typedef HWAVEOUT value_type;
    static value_type empty() { return nullptr; }
    static void release(value_type handle) { destroy(handle); }
    static void destroy(value_type handle);
};

class LIBAUDIO_API WaveIn {
public:
    WaveIn();
    WaveIn(const WaveIn& other);
    WaveIn& operator=(const WaveIn& other);
    bool open(unsigned int deviceId, const PCMTrack& track);
    bool setPCMStorage(const PCMTrack& track);
    bool start();
    bool stop();
    bool close();
    void abort() { m_aborted = true; }
    bool isAborted() const { return m_aborted; }
    bool isInitialized() const;
    bool stillRecording() const;
    // The header's flags as the device last left them.
    DWORD headerFlags() const;

private:
    std::uint32_t m_deviceId = 0;
    qel::SharedResource<WaveInHandleStorage, 1> m_handle;
    // The platform's headers may be byte-packed; the flags are reached atomically, which
    // needs their natural alignment.
    alignas(8) WAVEHDR m_header{};
    std::atomic<bool> m_aborted{false};
};

class LIBAUDIO_API WaveOut {
public:
    WaveOut();
    WaveOut(const WaveOut& other);
    WaveOut& operator=(const WaveOut& other);
    bool open(unsigned int deviceId, const PCMTrack& track);
    bool setPCMOutput(const PCMTrack& track);
    bool start(bool loop);
    bool stop();
    bool close();
    void abort() { m_aborted = true; }
    bool isAborted() const { return m_aborted; }
    bool isInitialized() const;
    bool stillPlaying() const;
    DWORD headerFlags() const;

private:
    std::uint32_t m_deviceId = 0;
    qel::SharedResource<WaveOutHandleStorage, 1> m_handle;
    // The platform's headers may be byte-packed; the flags are reached atomically, which
    // needs their natural alignment.
    alignas(8) WAVEHDR m_header{};
    std::atomic<bool> m_aborted{false};
};

} // namespace libAudio
