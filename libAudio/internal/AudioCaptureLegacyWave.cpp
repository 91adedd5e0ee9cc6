// AudioCaptureLegacyWave: records a whole StaticPCMBuffer as one block of the endpoint's
// legacy waveform-audio input device; a worker watches the block, the stop flag and a hard
// time-out.
#include "libAudio/LegacyWave.h"
#include "foundation/qelLog.h"
#include "foundation/qelSystem.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/internal/LegacyTrack.h"
#include "libAudio/internal/Worker.h"

#include <algorithm>
#include <cstdint>
#include <mutex>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio")

// The longest a recording into pcm may take: 140 percent of the buffer's own length.
std::uint32_t hardTimeoutLimit(const libAudio::StaticPCMBuffer* pcm) {
    if (!pcm) {
        return 0;
    }
    const WAVEFORMATEX& format = pcm->format().Format;
    if (format.nBlockAlign == 0 || format.nSamplesPerSec == 0) {
        return 0;
    }
    double seconds =
        double(pcm->pcmArray().size()) / format.nBlockAlign / double(format.nSamplesPerSec);
    double limit = seconds * 1.4 * 1000;
    return limit >= 4294967295.0 ? 0xFFFFFFFFu : std::uint32_t(limit);
}
} // namespace

namespace libAudio {

AudioCaptureLegacyWave::AudioCaptureLegacyWave() = default;

AudioCaptureLegacyWave::AudioCaptureLegacyWave(const AudioCaptureLegacyWave& other)
    : AudioCapture(other) {
    copyFrom(other);
}

AudioCaptureLegacyWave& AudioCaptureLegacyWave::operator=(const AudioCaptureLegacyWave& other) {
    if (this != &other) {
        // Our own worker reads these fields: it must be gone before they change.
        stop();
        copyFrom(other);
    }
    return *this;
}

AudioCaptureLegacyWave::~AudioCaptureLegacyWave() {
    stop();
}

void AudioCaptureLegacyWave::copyFrom(const AudioCaptureLegacyWave& other) {
    legacytrack::share(m_track, other.m_track);
    m_pcm = other.m_pcm;
    m_waveIn = other.m_waveIn;
    m_thread = other.m_thread;
    m_timeout = other.m_timeout.load();
    m_exitCode = other.m_exitCode;
}

bool AudioCaptureLegacyWave::initialize(IMMDevice* device, StaticPCMBuffer* pcm) {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::initialize");
    if (!pcm) {
        QEL_ERROR("Storage pointer is NULL");
        return false;
    }
    // Reopening the device under a running worker would pull the block from under it.
    stop();
    m_pcm = pcm;
    legacytrack::describe(m_track, pcm);
    return m_waveIn.open(AudioDevice(device).waveLegacyDeviceID(), m_track);
}

// The legacy device has nothing to abort with: the hard time-out bounds the recording.
bool AudioCaptureLegacyWave::start(std::function<bool()>) {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::start");
    stop();
    m_timeout = std::min(m_timeout.load(), hardTimeoutLimit(m_pcm));
    legacytrack::describe(m_track, m_pcm);
    m_waveIn.setPCMStorage(m_track);
    m_thread = worker::create([this](qel::ManagedThread&) { return record(); }, this);
    return !m_thread.isEmpty() && m_thread->thread().run("LegacyWaveIn");
}

bool AudioCaptureLegacyWave::isStillRecording() const {
    if (m_thread.isEmpty()) {
        return false;
    }
    if (m_thread->thread().isRunning()) {
        return true;
    }
    return !m_thread->stopRequested && (m_waveIn.headerFlags() & WHDR_DONE) == 0;
}

void AudioCaptureLegacyWave::reset() {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::reset");
    stop();
}

bool AudioCaptureLegacyWave::stop() {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::stop");
    if (m_thread.isEmpty()) {
        return true;
    }
    // The flag ends the worker even when the device would not stop and mark the block done.
    // The worker stops the device too once it sees either: never both at once.
    m_thread->stopRequested = true;
    {
        std::lock_guard lock(m_thread->deviceLock());
        m_waveIn.stop();
    }
    m_thread->join();
    m_thread->thread().getExitCode(&m_exitCode);
    m_thread.reset();
    return true;
}

void AudioCaptureLegacyWave::setTimeout(unsigned int milliseconds) {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::setTimeout");
    m_timeout = milliseconds;
}

int AudioCaptureLegacyWave::threadExitCode() {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::threadExitCode");
    return m_exitCode;
}

// A failed start stops the device again: that too must not meet the caller's stop.
bool AudioCaptureLegacyWave::startDevice(StreamWorker& worker) {
    std::lock_guard lock(worker.deviceLock());
    return m_waveIn.start();
}

int AudioCaptureLegacyWave::record() {
    QEL_TRACE_SCOPE("AudioCaptureLegacyWave::record");
    StreamWorker& worker = *m_thread;
    if (!startDevice(worker)) {
        QEL_ERROR("Unable to start recording");
        return -1;
    }
    qel::Stopwatch stopwatch;
    QEL_DEBUG("Waiting for recording to finish. Hard timeout = ", m_timeout.load(), " ms.");
    while (!worker.stopRequested && (m_waveIn.headerFlags() & WHDR_DONE) == 0) {
        if (stopwatch.getElapsedMilliseconds() >= m_timeout) {
            // The device is left recording: the caller's stop ends it.
            return 128;
        }
        qel::System::mssleep(10);
    }
    QEL_DEBUG("Stopping recording.");
    std::lock_guard lock(worker.deviceLock());
    m_waveIn.stop();
    return 0;
}

} // namespace libAudio
