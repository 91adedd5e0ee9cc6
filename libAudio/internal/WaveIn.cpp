// WaveIn: one legacy waveform-audio input device and the header of the one block that it
// records into. Progress is read from the header's done flag; no callback is registered.
#include "libAudio/WaveDevice.h"
#include "foundation/qelLog.h"
#include "libAudio/internal/WaveHeader.h"

#include <cstdint>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio")

const char* truth(bool value) {
    return value ? "TRUE" : "FALSE";
}
} // namespace

namespace libAudio {

void WaveInHandleStorage::destroy(value_type handle) {
    QEL_TRACE_SCOPE("WaveInHandleStorage::destroy");
    // Runs when the last holder lets go, often from a destructor: nothing may escape.
    try {
        QEL_INFO("Closing wave input device.");
        MMRESULT result = waveInClose(handle);
        QEL_INFO("waveInClose result = ", result);
    } catch (...) {
        QEL_FATAL("WaveInHandleStorage.destroy encounters unknown exception");
    }
}

WaveIn::WaveIn() {
    QEL_TRACE_SCOPE("WaveIn::WaveIn");
}

WaveIn::WaveIn(const WaveIn& other)
    : m_deviceId(other.m_deviceId), m_handle(other.m_handle), m_aborted(other.m_aborted.load()) {
    waveheader::copy(m_header, other.m_header);
}

WaveIn& WaveIn::operator=(const WaveIn& other) {
    if (this != &other) {
        m_deviceId = other.m_deviceId;
        m_handle = other.m_handle;
        waveheader::copy(m_header, other.m_header);
        m_aborted = other.m_aborted.load();
    }
    return *this;
}

bool WaveIn::open(unsigned int deviceId, const PCMTrack& track) {
    QEL_TRACE_SCOPE("WaveIn::open");
    m_aborted = false;
    if (isInitialized() && deviceId == m_deviceId) {
        QEL_INFO("WaveIn object already has an open audio input device.");
        return true;
    }
    HWAVEIN handle = nullptr;
    MMRESULT result = waveInOpen(&handle, deviceId, &track.format, 0, 0, CALLBACK_NULL);
    if (result != MMSYSERR_NOERROR) {
        QEL_ERROR("waveInOpen encountered an error ", result);
        return false;
    }
    QEL_INFO("Handle value as integer ", (unsigned long long)(std::uintptr_t)handle);
    waveheader::clear(m_header);
    // The device opened before, if any, closes when its last holder lets go.
    m_handle = qel::SharedResource<WaveInHandleStorage, 1>(handle);
    waveheader::setFlags(m_header, 0);
    m_deviceId = deviceId;
    return setPCMStorage(track);
}

bool WaveIn::setPCMStorage(const PCMTrack& track) {
    QEL_TRACE_SCOPE("WaveIn::setPCMStorage");
    if (track.pcm.size() == 0) {
        QEL_ERROR("Cannot operate on empty recording buffer");
        return false;
    }
    waveheader::describe(m_header, track);
    return true;
}

bool WaveIn::start() {
    QEL_TRACE_SCOPE("WaveIn::start");
    MMRESULT result = waveInPrepareHeader(m_handle.get(), &m_header, sizeof(WAVEHDR));
    if (result != MMSYSERR_NOERROR) {
        QEL_ERROR("waveInPrepareHeader failed ", result);
        return false;
    }
    result = waveInAddBuffer(m_handle.get(), &m_header, sizeof(WAVEHDR));
    if (result != MMSYSERR_NOERROR) {
        QEL_ERROR("waveInAddBuffer fails with GetLastError() = ", GetLastError());
        return false;
    }
    m_aborted = false;
    result = waveInStart(m_handle.get());
    QEL_INFO("waveInStart returns ", result);
    // A device that would not start still holds the block: take it back.
    return result == MMSYSERR_NOERROR ? true : stop();
}

bool WaveIn::stop() {
    QEL_TRACE_SCOPE("WaveIn::stop");
    MMRESULT result = waveInStop(m_handle.get());
    QEL_INFO("waveInStop returns ", result);
    if (result != MMSYSERR_NOERROR) {
        return false;
    }
    // Reset marks the block done and returns it, so that it can be unprepared.
    waveInReset(m_handle.get());
    MMRESULT unprepared = waveInUnprepareHeader(m_handle.get(), &m_header, sizeof(WAVEHDR));
    QEL_INFO("waveInUnprepareHeader returns ", unprepared);
    return unprepared == MMSYSERR_NOERROR;
}

bool WaveIn::close() {
    if (m_handle.isEmpty()) {
        QEL_DEBUG("Handle already closed");
        return false;
    }
    m_handle.reset();
    return true;
}

bool WaveIn::isInitialized() const {
    const bool handleValid = !m_handle.isEmpty();
    const bool goodBufferLength = m_header.dwBufferLength != 0;
    const bool nonNullDataPtr = m_header.lpData != nullptr;
    const DWORD flags = waveheader::flags(m_header);
    QEL_INFO("Checking WaveIn::isInitialized");
    QEL_INFO("isHandleValid = ", truth(handleValid));
    QEL_INFO("goodBufferLength = ", truth(goodBufferLength));
    QEL_INFO("nonNullDataPtr = ", truth(nonNullDataPtr));
    QEL_INFO("m_header.dwFlags = ", flags);
    return handleValid && goodBufferLength && nonNullDataPtr && flags == 0;
}

bool WaveIn::stillRecording() const {
    return !m_aborted && (waveheader::flags(m_header) & WHDR_DONE) == 0;
}

DWORD WaveIn::headerFlags() const {
    return waveheader::flags(m_header);
}

} // namespace libAudio
