// AudioCaptureEx: recording through the audio client. A worker drains the device's packets
// into a StaticPCMBuffer at its write marker until the buffer is full or the caller stops
// it; the caller's thread starts it, waits only for the stream to start, and collects the
// worker's exit code.
#include "libAudio/AudioCapture.h"
#include "foundation/qelAssert.h"
#include "foundation/qelLog.h"
#include "foundation/qelSystem.h"
#include "libAudio/internal/AudioClientSupport.h"
#include "libAudio/internal/Worker.h"

#include <algorithm>
#include <vector>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.AudioCaptureEx")

// Bytes left behind the write marker; none when the marker lies beyond the storage.
std::uint64_t spaceLeft(const libAudio::StaticPCMBuffer* pcm) {
    if (!pcm || pcm->writeMarker() >= pcm->pcmArray().size()) {
        return 0;
    }
    return pcm->pcmArray().size() - pcm->writeMarker();
}

// A packet flagged silent is silence whatever its bytes hold: a driver need not clear them.
void fillSilence(libAudio::StaticPCMBuffer* pcm, UINT32 frames) {
    const WAVEFORMATEX& format = pcm->format().Format;
    if (format.nBlockAlign == 0) {
        return;
    }
    const std::uint64_t blocks = std::min<std::uint64_t>(
        frames, (spaceLeft(pcm) + format.nBlockAlign - 1) / format.nBlockAlign);
    // 8-bit PCM is unsigned: its silence is the middle of the range.
    const unsigned char silence = format.wBitsPerSample == 8 ? 0x80 : 0x00;
    std::vector<unsigned char> quiet(std::size_t(blocks) * format.nBlockAlign, silence);
    pcm->fillDataBlocks(quiet.data(), unsigned(blocks));
}
} // namespace

namespace libAudio {

AudioCapture::~AudioCapture() = default;

AudioCaptureEx::AudioCaptureEx() = default;

AudioCaptureEx::AudioCaptureEx(IMMDevice* device, StaticPCMBuffer* pcm)
    : m_device(device), m_pcm(pcm) {
    initialize(device, pcm);
}

AudioCaptureEx::AudioCaptureEx(const AudioCaptureEx& other) : AudioCapture(other) {
    copyFrom(other);
}

AudioCaptureEx& AudioCaptureEx::operator=(const AudioCaptureEx& other) {
    if (this != &other) {
        // Our own worker reads these fields: it must be gone before they change.
        endWorker();
        copyFrom(other);
    }
    return *this;
}

AudioCaptureEx::~AudioCaptureEx() {
    endWorker();
    m_captureClient.Release();
    m_audioClient.Release();
    closeEvent();
}

// The event handle has one owner and is never handed to the copy: closing it twice would
// close whatever handle the platform gave that number next.
void AudioCaptureEx::copyFrom(const AudioCaptureEx& other) {
    m_device = other.m_device;
    m_pcm = other.m_pcm;
    m_bufferFrames = other.m_bufferFrames;
    m_bufferDuration = other.m_bufferDuration;
    m_streamFlags = other.m_streamFlags;
    closeEvent();
    m_thread = other.m_thread;
    m_eventDriven = other.m_eventDriven;
    m_defaultPeriod = other.m_defaultPeriod;
    m_minimumPeriod = other.m_minimumPeriod;
    m_audioClient = other.m_audioClient;
    m_captureClient = other.m_captureClient;
    m_timeout = other.m_timeout.load();
    m_exitCode = other.m_exitCode;
}

void AudioCaptureEx::closeEvent() {
    if (m_event) {
        CloseHandle(m_event);
        m_event = nullptr;
    }
}

bool AudioCaptureEx::initialize(IMMDevice* device, StaticPCMBuffer* pcm) {
    QEL_TRACE_SCOPE("AudioCaptureEx::initialize");
    stop();
    m_captureClient.Release();
    m_audioClient.Release();
    if (FAILED(client::activate(device, m_audioClient)) || !m_audioClient) {
        QEL_ERROR("Cannot activa an IAudioClient from IMMDevice");
        return false;
    }
    if (!pcm) {
        QEL_ERROR("No PCM buffer to record into");
        return false;
    }
    const WAVEFORMATEX& format = pcm->format().Format;
    HRESULT hr = client::isFormatSupported(m_audioClient, &format);
    if (FAILED(hr)) {
        QEL_FATAL("Format requested is not supported ", int(hr));
        return false;
    }
    m_audioClient->GetDevicePeriod(&m_defaultPeriod, &m_minimumPeriod);
    if (!initializeClient(device, format)) {
        QEL_FATAL("Unable to initialize IAudioClient. System audio driver is in bad state");
        return false;
    }
    createEvent();
    m_pcm = pcm;
    m_audioClient->GetBufferSize(&m_bufferFrames);
    return true;
}

bool AudioCaptureEx::initializeClient(IMMDevice* device, const WAVEFORMATEX& format) {
    for (DWORD flags : client::kStreamFlagPasses) {
        m_streamFlags = flags;
        if (SUCCEEDED(initializePass(device, format))) {
            return true;
        }
    }
    return false;
}

// Asks for exclusive access with a buffer of 500 device periods; a refused size is halved
// while it exceeds one period, a busy device is taken in shared mode instead. Each retry
// needs a fresh client: a client refuses a second Initialize.
HRESULT AudioCaptureEx::initializePass(IMMDevice* device, const WAVEFORMATEX& format) {
    m_bufferDuration = m_defaultPeriod * 500;
    AUDCLNT_SHAREMODE mode = AUDCLNT_SHAREMODE_EXCLUSIVE;
    HRESULT hr = client::initialize(m_audioClient, mode, m_streamFlags, m_bufferDuration, &format);
    for (int attempt = 1; FAILED(hr) && attempt < client::kAttemptsPerPass; ++attempt) {
        QEL_ERROR("IAudioClient::Initialize returns ", client::hex(hr));
        client::activate(device, m_audioClient);
        if (client::refusedBufferSize(hr) && m_bufferDuration > m_defaultPeriod) {
            m_bufferDuration /= 2;
        } else if (client::refusedExclusiveAccess(hr)) {
            mode = AUDCLNT_SHAREMODE_SHARED;
        } else {
            break;
        }
        hr = client::initialize(m_audioClient, mode, m_streamFlags, m_bufferDuration, &format);
    }
    return hr;
}

// The event is handed to the client, but only a stream initialised for event callbacks
// signals it; the stream flags in use never ask for them, so recording busy-waits.
void AudioCaptureEx::createEvent() {
    closeEvent();
    m_event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (!m_event) {
        DWORD error = GetLastError();
        QEL_ERROR("Driver problem : IAudioClient initialized with "
                  "AUDCLNT_STREAMFLAGS_EVENTCALLBACK, but CreateEvent failed");
        QEL_ERROR("GetLastError() = ", error);
        return;
    }
    m_eventDriven = m_audioClient->SetEventHandle(m_event) == S_OK &&
                    (m_streamFlags & AUDCLNT_STREAMFLAGS_EVENTCALLBACK) != 0;
}

bool AudioCaptureEx::start(std::function<bool()> abortRequested) {
    stop();
    reset();
    if (!m_captureClient) {
        HRESULT hr = m_audioClient
                         ? m_audioClient->GetService(platform::iidOf<IAudioCaptureClient>(),
                                                     reinterpret_cast<void**>(&m_captureClient))
                         : E_POINTER;
        if (FAILED(hr)) {
            QEL_FATAL("IAudioClient::GetService failed ", int(hr));
            return false;
        }
    }
    if (!createCaptureThread()) {
        QEL_ERROR("No capture thread created. Check system for available resources");
        return false;
    }
    m_thread->running = true;
    if (!m_thread->thread().run("AudioCaptureEx")) {
        return false;
    }
    return waitForStart(abortRequested);
}

// A worker that ended without starting the client (its record says why) is not waited for
// in vain; its exit code stays for threadExitCode.
bool AudioCaptureEx::waitForStart(const std::function<bool()>& abortRequested) {
    StreamWorker& worker = *m_thread;
    while (!worker.started) {
        if (!worker.thread().isRunning()) {
            if (worker.started) {
                break; // it started, and ended as quickly
            }
            return false;
        }
        if (abortRequested()) {
            QEL_FATAL("User aborted the playback. Thread may have died");
            stop();
            return false;
        }
        qel::System::mssleep(10);
    }
    worker.started = false;
    return true;
}

bool AudioCaptureEx::isStillRecording() const {
    return !m_thread.isEmpty() && m_thread->thread().isRunning();
}

// Tells the worker to stop, whichever copy started it, and waits for it.
void AudioCaptureEx::endWorker() {
    if (!m_thread.isEmpty()) {
        m_thread->running = false;
        worker::join(m_thread);
    }
}

// Discards what the device has queued.
void AudioCaptureEx::reset() {
    if (m_audioClient) {
        m_audioClient->Reset();
    }
}

bool AudioCaptureEx::stop() {
    if (!m_thread.isEmpty()) {
        m_thread->running = false;
    }
    threadExitCode();
    return true;
}

int AudioCaptureEx::threadExitCode() {
    if (!m_thread.isEmpty()) {
        m_thread->join();
        if (!m_thread->thread().getExitCode(&m_exitCode)) {
            QEL_ERROR("getExitCode returns false. Is something throwing an exception in the "
                      "thread?");
            QEL_ASSERT(false);
        }
        m_thread.reset();
    }
    return m_exitCode;
}

bool AudioCaptureEx::createCaptureThread() {
    worker::join(m_thread);
    if (m_eventDriven) {
        m_thread = worker::create(&AudioCaptureEx::resupplyByEvent, this);
    } else {
        // The busy-wait routine never waits on the event.
        if (m_event && CloseHandle(m_event)) {
            m_event = nullptr;
        }
        m_thread = worker::create(&AudioCaptureEx::resupplyBusyWait, this);
    }
    return !m_thread.isEmpty();
}

// start sets the running flag before the worker runs; the worker does not set it again, so
// that an abort that comes before the worker's first step is not undone by it.
bool AudioCaptureEx::startClient() {
    if (FAILED(m_audioClient->Start())) {
        QEL_ERROR("IAudioClient::Start failed");
        return false;
    }
    m_thread->started = true;
    return true;
}

// Moves the next packet to the PCM buffer's write marker, as much of it as fits; the whole
// packet is released. Discontinuous packets are copied as they stand.
bool AudioCaptureEx::takePacket(bool logPositions) {
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 devicePosition = 0;
    UINT64 qpcPosition = 0;
    HRESULT hr = m_captureClient->GetBuffer(&data, &frames, &flags, &devicePosition, &qpcPosition);
    if (FAILED(hr)) {
        QEL_ERROR("GetBuffer failed ", int(hr));
        return false;
    }
    if (spaceLeft(m_pcm) != 0) {
        if (flags & AUDCLNT_BUFFERFLAGS_SILENT) {
            fillSilence(m_pcm, frames);
        } else {
            m_pcm->fillDataBlocks(data, frames);
        }
    }
    m_captureClient->ReleaseBuffer(frames);
    if (logPositions) {
        QEL_DEBUG("Flag ", qel::Hex{(unsigned long long)flags}, " DevicePosition ", devicePosition,
                  " QPCPosition ", qpcPosition, " PCM buffer available space ", spaceLeft(m_pcm),
                  " bytes");
    }
    return true;
}

// The capture a worker serves, with its client started; null when either is missing.
AudioCaptureEx* AudioCaptureEx::startedCapture(qel::ManagedThread& thread) {
    auto* capture = static_cast<AudioCaptureEx*>(thread.context());
    if (!capture) {
        QEL_ERROR("resupply thread called with a NULL AudioCaptureEx pointer");
        return nullptr;
    }
    return capture->startClient() ? capture : nullptr;
}

int AudioCaptureEx::resupplyBusyWait(qel::ManagedThread& thread) {
    QEL_TRACE_SCOPE("AudioCaptureEx::resupplyBusyWait");
    AudioCaptureEx* capture = startedCapture(thread);
    return capture ? capture->drainUntilFull() : -1;
}

// Spins on the packet query: the platform's packets are the only pacing.
int AudioCaptureEx::drainUntilFull() {
    QEL_DEBUG(" PCM buffer available space ", spaceLeft(m_pcm), " bytes");
    StreamWorker& worker = *m_thread;
    while (worker.running && spaceLeft(m_pcm) != 0) {
        UINT32 frames = 0;
        try {
            m_captureClient->GetNextPacketSize(&frames);
        } catch (...) {
            return -1;
        }
        if (frames != 0 && !takePacket(true)) {
            break;
        }
    }
    m_audioClient->Stop();
    worker.running = false;
    return 0;
}

int AudioCaptureEx::resupplyByEvent(qel::ManagedThread& thread) {
    QEL_TRACE_SCOPE("AudioCaptureEx::resupplyByEvent");
    AudioCaptureEx* capture = startedCapture(thread);
    return capture ? capture->drainOnEvents() : -1;
}

int AudioCaptureEx::drainOnEvents() {
    StreamWorker& worker = *m_thread;
    bool keepGoing = true;
    while (worker.running && keepGoing) {
        DWORD wait = WaitForSingleObjectEx(m_event, m_timeout, TRUE);
        if (wait == WAIT_FAILED) {
            QEL_ERROR("WaitForSingleObjectEx failed ", GetLastError());
            break;
        }
        if (wait == WAIT_OBJECT_0) {
            keepGoing = streamInData();
        } else if (wait == WAIT_TIMEOUT) {
            keepGoing = false;
            QEL_ERROR("Timeout waiting for IMMDevice object to signal for more audio data");
        }
    }
    m_audioClient->Stop();
    worker.running = false;
    return 0;
}

// One packet, if one is ready; false once the buffer is full or the packet was refused.
bool AudioCaptureEx::streamInData() {
    UINT32 frames = 0;
    m_captureClient->GetNextPacketSize(&frames);
    if (frames != 0 && !takePacket(false)) {
        return false;
    }
    return spaceLeft(m_pcm) != 0;
}

} // namespace libAudio
