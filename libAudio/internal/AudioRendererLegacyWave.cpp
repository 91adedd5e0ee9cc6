// AudioRendererLegacyWave: plays a whole StaticPCMBuffer as one block of the endpoint's
// legacy waveform-audio output device; a worker watches the block, the stop flag and the
// caller's abort callback.
#include "libAudio/LegacyWave.h"
#include "foundation/qelLog.h"
#include "foundation/qelSystem.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/internal/LegacyTrack.h"
#include "libAudio/internal/Worker.h"

#include <mutex>
#include <utility>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio")
} // namespace

namespace libAudio {

AudioRendererLegacyWave::AudioRendererLegacyWave() = default;

AudioRendererLegacyWave::AudioRendererLegacyWave(const AudioRendererLegacyWave& other)
    : AudioRenderer(other) {
    copyFrom(other);
}

AudioRendererLegacyWave& AudioRendererLegacyWave::operator=(const AudioRendererLegacyWave& other) {
    if (this != &other) {
        // Our own worker reads these fields: it must be gone before they change.
        stop();
        copyFrom(other);
    }
    return *this;
}

AudioRendererLegacyWave::~AudioRendererLegacyWave() {
    stop();
}

void AudioRendererLegacyWave::copyFrom(const AudioRendererLegacyWave& other) {
    m_loop = other.m_loop.load();
    legacytrack::share(m_track, other.m_track);
    m_pcm = other.m_pcm;
    m_thread = other.m_thread;
    m_waveOut = other.m_waveOut;
    m_compatibleFormats = other.m_compatibleFormats;
}

bool AudioRendererLegacyWave::initialize(IMMDevice* device, StaticPCMBuffer* pcm) {
    QEL_TRACE_SCOPE("AudioRendererWaveLegacy::initialize");
    if (!device || !pcm) {
        QEL_ERROR("Invalid parameter passed to the function");
        return false;
    }
    // Reopening the device under a running worker would pull the block from under it.
    stop();
    m_pcm = pcm;
    m_track.format = pcm->format().Format;
    AudioDevice endpoint(device);
    return m_waveOut.open(endpoint.waveLegacyDeviceID(), m_track);
}

bool AudioRendererLegacyWave::play(unsigned int playMode, std::function<bool()> abortRequested) {
    QEL_TRACE_SCOPE("AudioRendererLegacyWave::play");
    stop();
    legacytrack::describe(m_track, m_pcm);
    m_waveOut.setPCMOutput(m_track);
    m_loop = playMode == LOOP;
    m_thread = worker::create([this, abortRequested = std::move(abortRequested)](
                                  qel::ManagedThread&) { return playback(abortRequested); },
                              this);
    return !m_thread.isEmpty() && m_thread->thread().run("LegacyWaveOut");
}

bool AudioRendererLegacyWave::isStillPlaying() const {
    return !m_thread.isEmpty() && m_thread->thread().isRunning() && !m_thread->stopRequested &&
           (m_waveOut.headerFlags() & WHDR_DONE) == 0;
}

bool AudioRendererLegacyWave::stop() {
    QEL_TRACE_SCOPE("AudioRendererLegacyWave::stop");
    if (m_thread.isEmpty()) {
        return true;
    }
    // The flag ends the worker even when the device would not reset and mark the block done.
    // The worker stops the device too once it sees either: never both at once.
    m_thread->stopRequested = true;
    {
        std::lock_guard lock(m_thread->deviceLock());
        m_waveOut.stop();
    }
    m_thread->join();
    int code = -1;
    m_thread->thread().getExitCode(&code);
    QEL_DEBUG("Thread exit code ", code);
    m_thread.reset();
    return true;
}

bool AudioRendererLegacyWave::startDevice(StreamWorker& worker) {
    std::lock_guard lock(worker.deviceLock());
    return m_waveOut.start(m_loop);
}

int AudioRendererLegacyWave::playback(const std::function<bool()>& abortRequested) {
    QEL_TRACE_SCOPE("AudioRendererWaveLegacy::playback");
    StreamWorker& worker = *m_thread;
    if (!startDevice(worker)) {
        QEL_ERROR("Unable to start recording");
        return -1;
    }
    for (;;) {
        if (worker.stopRequested || (m_waveOut.headerFlags() & WHDR_DONE) != 0) {
            QEL_DEBUG("Stopping playback.");
            std::lock_guard lock(worker.deviceLock());
            m_waveOut.stop();
            return 0;
        }
        // The device keeps playing: the caller's stop ends it.
        if (abortRequested()) {
            QEL_ERROR("User aborted playback");
            return 128;
        }
        qel::System::mssleep(10);
    }
}

} // namespace libAudio
