// WaveOut: one legacy waveform-audio output device and the header of the one block that it
// plays, once or looped. Progress is read from the header's done flag.
#include "libAudio/WaveDevice.h"
#include "foundation/qelLog.h"
#include "libAudio/internal/WaveHeader.h"

#include <cstdint>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio")
} // namespace

namespace libAudio {

void WaveOutHandleStorage::destroy(value_type handle) {
    QEL_TRACE_SCOPE("WaveOutHandleStorage::destroy");
    // Runs when the last holder lets go, often from a destructor: nothing may escape.
    try {
        MMRESULT result = waveOutClose(handle);
        QEL_INFO("waveOutClose result = ", result);
    } catch (...) {
        QEL_FATAL("WaveOutHandleStorage.destroy encounters unknown exception");
    }
}

WaveOut::WaveOut() {
    QEL_TRACE_SCOPE("WaveOut::WaveOut");
}

WaveOut::WaveOut(const WaveOut& other)
    : m_deviceId(other.m_deviceId), m_handle(other.m_handle), m_aborted(other.m_aborted.load()) {
    waveheader::copy(m_header, other.m_header);
}

WaveOut& WaveOut::operator=(const WaveOut& other) {
    if (this != &other) {
        m_deviceId = other.m_deviceId;
        m_handle = other.m_handle;
        waveheader::copy(m_header, other.m_header);
        m_aborted = other.m_aborted.load();
    }
    return *this;
}

bool WaveOut::open(unsigned int deviceId, const PCMTrack& track) {
    QEL_TRACE_SCOPE("WaveOut::open");
    if (isInitialized() && deviceId == m_deviceId && !m_aborted) {
        return true;
    }
    m_aborted = false;
    HWAVEOUT handle = nullptr;
    MMRESULT result = waveOutOpen(&handle, deviceId, &track.format, 0, 0, CALLBACK_NULL);
    if (result != MMSYSERR_NOERROR) {
        DWORD lastError = GetLastError();
        QEL_ERROR("waveOutOpen encountered an error ", result, " last error", lastError);
        return false;
    }
    QEL_INFO("Handle value as integer ", (unsigned long long)(std::uintptr_t)handle);
    waveheader::clear(m_header);
    // The device opened before, if any, closes when its last holder lets go.
    m_handle = qel::SharedResource<WaveOutHandleStorage, 1>(handle);
    waveheader::setFlags(m_header, 0);
    m_deviceId = deviceId;
    return setPCMOutput(track);
}

bool WaveOut::setPCMOutput(const PCMTrack& track) {
    QEL_TRACE_SCOPE("WaveOut::setPCMStorage");
    if (track.pcm.size() == 0) {
        QEL_ERROR("Cannot operate on empty recording buffer");
        return false;
    }
    waveheader::describe(m_header, track);
    return true;
}

bool WaveOut::start(bool loop) {
    QEL_TRACE_SCOPE("WaveOut::start");
    m_header.dwLoops = loop ? 0xFFFFFFFF : 0;
    if (loop) {
        // The one block repeats until the device is reset.
        waveheader::addFlags(m_header, WHDR_BEGINLOOP | WHDR_ENDLOOP);
    }
    MMRESULT result = waveOutPrepareHeader(m_handle.get(), &m_header, sizeof(WAVEHDR));
    if (result != MMSYSERR_NOERROR) {
        QEL_ERROR("waveOutPrepareHeader failed ", result);
        return false;
    }
    m_aborted = false;
    result = waveOutWrite(m_handle.get(), &m_header, sizeof(WAVEHDR));
    QEL_INFO("waveOutStart returns ", result);
    return result == MMSYSERR_NOERROR;
}

bool WaveOut::stop() {
    QEL_TRACE_SCOPE("WaveOut::stop");
    // Reset ends playback and returns the block done, so that it can be unprepared.
    MMRESULT result = waveOutReset(m_handle.get());
    QEL_INFO("waveOutWrite returns ", result);
    if (result != MMSYSERR_NOERROR) {
        return false;
    }
    MMRESULT unprepared = waveOutUnprepareHeader(m_handle.get(), &m_header, sizeof(WAVEHDR));
    QEL_INFO("waveOutUnprepareHeader returns ", unprepared);
    return unprepared == MMSYSERR_NOERROR;
}

bool WaveOut::close() {
    if (m_handle.isEmpty()) {
        QEL_DEBUG("Handle already closed");
        return false;
    }
    m_handle.reset();
    return true;
}

bool WaveOut::isInitialized() const {
    return waveheader::ready(!m_handle.isEmpty(), m_header);
}

bool WaveOut::stillPlaying() const {
    return !m_aborted && (waveheader::flags(m_header) & WHDR_DONE) == 0;
}

DWORD WaveOut::headerFlags() const {
    return waveheader::flags(m_header);
}

} // namespace libAudio
