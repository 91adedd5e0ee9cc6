// AudioRendererEx: playback through the audio client. A worker keeps the device buffer
// topped up from a StaticPCMBuffer, once through or looped; the caller's thread starts it,
// waits only for the stream to start, and stops it.
#include "libAudio/AudioRenderer.h"
#include "foundation/qelLog.h"
#include "foundation/qelSystem.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/internal/AudioClientSupport.h"
#include "libAudio/internal/Worker.h"
#include "libAudio/internal/numeric.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.AudioRendererEx")

// The whole PCM buffer's length in 100-ns units, so that a short tone is queued in one piece.
REFERENCE_TIME wholeBufferDuration(const libAudio::StaticPCMBuffer& pcm) {
    const WAVEFORMATEX& format = pcm.format().Format;
    std::uint64_t blocks = pcm.pcmArray().size() / format.nBlockAlign;
    return libAudio::truncateToInt64(double(blocks) * 10000000.0 / format.nSamplesPerSec + 0.5);
}

// Blocks of the PCM buffer, as far as a 32-bit block index reaches.
std::uint32_t blockCount(const libAudio::StaticPCMBuffer& pcm) {
    const std::uint32_t align = pcm.format().Format.nBlockAlign;
    if (align == 0) {
        return 0;
    }
    return std::uint32_t(std::min<std::uint64_t>(pcm.pcmArray().size() / align, 0xFFFFFFFFu));
}
} // namespace

namespace libAudio {

StreamWorker::StreamWorker(qel::ManagedThread::Function routine, void* context)
    : m_thread(std::move(routine), context) {}

void StreamWorker::join() {
    std::lock_guard lock(m_joining);
    m_thread.join();
}

void StreamWorkerStorage::release(value_type worker) {
    if (worker) {
        worker->~StreamWorker();
        CoTaskMemFree(worker);
    }
}

WorkerThreadHandle worker::create(qel::ManagedThread::Function routine, void* context) {
    void* memory = CoTaskMemAlloc(sizeof(StreamWorker));
    if (!memory) {
        return WorkerThreadHandle();
    }
    try {
        return WorkerThreadHandle(new (memory) StreamWorker(std::move(routine), context));
    } catch (const std::bad_alloc&) {
        CoTaskMemFree(memory);
        return WorkerThreadHandle();
    }
}

AudioRenderer::~AudioRenderer() = default;

AudioRendererEx::AudioRendererEx() = default;

AudioRendererEx::AudioRendererEx(IMMDevice* device, StaticPCMBuffer* pcm)
    : m_device(device), m_pcm(pcm) {
    initialize(device, pcm);
}

AudioRendererEx::AudioRendererEx(const AudioRendererEx& other) : AudioRenderer(other) {
    copyFrom(other);
}

AudioRendererEx& AudioRendererEx::operator=(const AudioRendererEx& other) {
    if (this != &other) {
        // Our own worker reads these fields: it must be gone before they change.
        stop();
        copyFrom(other);
    }
    return *this;
}

AudioRendererEx::~AudioRendererEx() {
    endWorker();
    m_renderClient.Release();
    m_audioClient.Release();
    closeEvent();
}

// The event handle has one owner and is never handed to the copy: closing it twice would
// close whatever handle the platform gave that number next.
void AudioRendererEx::copyFrom(const AudioRendererEx& other) {
    m_initialized = other.m_initialized;
    m_device = other.m_device;
    m_pcm = other.m_pcm;
    m_bufferFrames = other.m_bufferFrames;
    m_readBlock = other.m_readBlock.load();
    m_blocksPlayed = other.m_blocksPlayed.load();
    m_streamFlags = other.m_streamFlags;
    closeEvent();
    m_thread = other.m_thread;
    m_fillWholeBuffer = other.m_fillWholeBuffer;
    m_defaultPeriod = other.m_defaultPeriod;
    m_minimumPeriod = other.m_minimumPeriod;
    m_latency = other.m_latency;
    m_playMode = other.m_playMode;
    m_audioClient = other.m_audioClient;
    m_renderClient = other.m_renderClient;
    m_compatibleFormats = other.m_compatibleFormats;
}

void AudioRendererEx::closeEvent() {
    if (m_event) {
        CloseHandle(m_event);
        m_event = nullptr;
    }
}

bool AudioRendererEx::initialize(IMMDevice* device, StaticPCMBuffer* pcm) {
    QEL_TRACE_SCOPE("AudioRendererEx::initialize");
    stop();
    m_initialized = false;
    m_renderClient.Release();
    m_audioClient.Release();
    if (!pcm) {
        QEL_ERROR("No PCM buffer to play");
        return false;
    }
    client::activate(device, m_audioClient);
    const WAVEFORMATEX& format = pcm->format().Format;
    HRESULT hr = client::isFormatSupported(m_audioClient, &format);
    if (FAILED(hr)) {
        QEL_FATAL("Format requested is not supported", int(hr));
        return false;
    }
    if (format.nBlockAlign == 0 || format.nSamplesPerSec == 0) {
        QEL_ERROR("The PCM buffer's format has no block size or no sample rate");
        return false;
    }
    m_audioClient->GetDevicePeriod(&m_defaultPeriod, &m_minimumPeriod);
    if (!initializeClient(device, *pcm)) {
        QEL_FATAL("Unable to initialize IAudioClient. System audio driver is in bad state");
        return false;
    }
    m_pcm = pcm;
    return readBufferSize();
}

bool AudioRendererEx::initializeClient(IMMDevice* device, const StaticPCMBuffer& pcm) {
    bool retry = false;
    for (DWORD flags : client::kStreamFlagPasses) {
        // A pass that gave up at the device period leaves a client that refused: the plain
        // retry of the second pass needs a fresh one.
        if (std::exchange(retry, true)) {
            client::activate(device, m_audioClient);
        }
        m_streamFlags = flags;
        if (SUCCEEDED(initializePass(device, pcm))) {
            return true;
        }
    }
    return false;
}

// Asks for exclusive access with a buffer as long as the PCM buffer; a refused size is
// halved down to the device period, a busy device is taken in shared mode instead. Each
// retry needs a fresh client: a client that refused Initialize refuses it for good.
HRESULT AudioRendererEx::initializePass(IMMDevice* device, const StaticPCMBuffer& pcm) {
    const WAVEFORMATEX* format = &pcm.format().Format;
    AUDCLNT_SHAREMODE mode = AUDCLNT_SHAREMODE_EXCLUSIVE;
    REFERENCE_TIME duration = wholeBufferDuration(pcm);
    HRESULT hr = client::initialize(m_audioClient, mode, m_streamFlags, duration, format);
    for (int attempt = 1; FAILED(hr) && attempt < client::kAttemptsPerPass; ++attempt) {
        if (duration <= m_defaultPeriod) {
            break;
        }
        client::activate(device, m_audioClient);
        if (client::refusedBufferSize(hr)) {
            duration /= 2;
        } else if (client::refusedExclusiveAccess(hr)) {
            mode = AUDCLNT_SHAREMODE_SHARED;
        } else {
            break;
        }
        hr = client::initialize(m_audioClient, mode, m_streamFlags, duration, format);
    }
    return hr;
}

bool AudioRendererEx::readBufferSize() {
    HRESULT hr = m_audioClient->GetBufferSize(&m_bufferFrames);
    if (FAILED(hr) || m_bufferFrames == 0) {
        QEL_INFO("IAudioClient::GetBufferSize returns", client::hex(hr), " Max Frame Size",
                 m_bufferFrames);
        QEL_FATAL("Unable to initialize IAudioClient. System audio driver is in bad state");
        return false;
    }
    m_audioClient->GetStreamLatency(&m_latency);
    m_fillWholeBuffer = false;
    m_initialized = true;
    return true;
}

bool AudioRendererEx::play(unsigned int playMode, std::function<bool()> abortRequested) {
    QEL_TRACE_SCOPE("AudioRendererEx::play");
    if (!m_initialized) {
        return false;
    }
    stop();
    m_playMode = playMode;
    if (playMode & REWIND) {
        m_readBlock = 0;
        m_blocksPlayed = 0;
        m_audioClient->Reset();
    }
    if (!m_renderClient) {
        HRESULT hr = m_audioClient->GetService(platform::iidOf<IAudioRenderClient>(),
                                               reinterpret_cast<void**>(&m_renderClient));
        if (FAILED(hr)) {
            QEL_FATAL("IAudioClient::GetService failed ", int(hr));
            return false;
        }
    }
    if (!createRenderThread()) {
        return false;
    }
    // Pre-fill before the worker exists, so that the two never move the positions at once.
    streamInData();
    m_thread->running = true;
    if (!m_thread->thread().run("AudioRendererEx")) {
        return false;
    }
    return waitForStart(abortRequested);
}

// Once play has given up, the caller may free the PCM buffer at once: the worker, which
// reads it until it sees the flag, is waited for. A worker that ended without starting the
// client (its record says why) is not waited for in vain.
bool AudioRendererEx::waitForStart(const std::function<bool()>& abortRequested) {
    StreamWorker& worker = *m_thread;
    while (!worker.started) {
        if (!worker.thread().isRunning()) {
            if (worker.started) {
                break; // it started, and ended as quickly
            }
            worker::join(m_thread);
            return false;
        }
        if (abortRequested()) {
            QEL_FATAL("User aborted the playback. Thread may have died");
            endWorker();
            return false;
        }
        qel::System::mssleep(10);
    }
    worker.started = false;
    return true;
}

bool AudioRendererEx::isStillPlaying() const {
    return !m_thread.isEmpty() && m_thread->thread().isRunning();
}

bool AudioRendererEx::stop() {
    QEL_TRACE_SCOPE("AudioRendererEx::stop");
    endWorker();
    return true;
}

// Tells the worker to stop, whichever copy started it, and waits for it.
void AudioRendererEx::endWorker() {
    if (!m_thread.isEmpty()) {
        m_thread->running = false;
        worker::join(m_thread);
    }
}

qel::Array<WAVEFORMATEX>& AudioRendererEx::compatibleFormat() {
    if (m_compatibleFormats.size() == 0 && m_audioClient) {
        enumerateCompatibleFormat(*m_audioClient, AUDCLNT_SHAREMODE_EXCLUSIVE, m_compatibleFormats);
    }
    return m_compatibleFormats;
}

bool AudioRendererEx::createRenderThread() {
    worker::join(m_thread);
    m_thread = worker::create(&AudioRendererEx::resupplyBusyWait, this);
    if (m_thread.isEmpty()) {
        QEL_ERROR("Playback thread creation failed. Check system for available resources");
        return false;
    }
    return true;
}

// One resupply pass; false when playback is over. The device is refilled only once half of
// its buffer is free, which is what lets the busy-wait worker spin without sleeping.
bool AudioRendererEx::streamInData() {
    std::uint32_t frames = m_bufferFrames;
    if (!m_fillWholeBuffer) {
        UINT32 queued = 0;
        if (m_audioClient->GetCurrentPadding(&queued) == AUDCLNT_E_DEVICE_INVALIDATED) {
            return false;
        }
        frames = m_bufferFrames - std::min<std::uint32_t>(queued, m_bufferFrames);
        if (frames < (m_bufferFrames >> 1)) {
            return true;
        }
    }
    qel::Buffer<unsigned char> chunk;
    bool keepGoing = false;
    if (!nextChunk(frames, chunk, keepGoing)) {
        return false;
    }
    return writeChunk(frames, chunk) && keepGoing;
}

// The next `frames` blocks to play, and whether more follow them; false when nothing is left.
bool AudioRendererEx::nextChunk(std::uint32_t frames, qel::Buffer<unsigned char>& chunk,
                                bool& keepGoing) {
    const std::uint32_t total = blockCount(*m_pcm);
    if (m_playMode & PLAY_ONCE) {
        const std::uint32_t played = m_blocksPlayed;
        const std::uint32_t remaining = total > played ? total - played : 0;
        if (remaining == 0) {
            return false;
        }
        m_pcm->pcmSampleBlock(m_readBlock, frames, false, chunk);
        const std::uint32_t n = std::min(remaining, frames);
        m_blocksPlayed += n;
        m_readBlock += n;
        keepGoing = remaining >= frames;
        return true;
    }
    if (total == 0) {
        QEL_ERROR("The PCM buffer holds no block to play");
        return false;
    }
    m_pcm->pcmSampleBlock(m_readBlock, frames, true, chunk);
    m_readBlock = std::uint32_t((std::uint64_t(m_readBlock) + frames) % total);
    keepGoing = true;
    return true;
}

// The whole frame count is released without the silent flag, also when the chunk at the end
// of the data is shorter than the device's space.
bool AudioRendererEx::writeChunk(std::uint32_t frames, const qel::Buffer<unsigned char>& chunk) {
    BYTE* data = nullptr;
    HRESULT hr = m_renderClient->GetBuffer(frames, &data);
    if (FAILED(hr)) {
        QEL_FATAL("GetBuffer failed ", int(hr));
        return false;
    }
    const std::uint64_t room = std::uint64_t(frames) * m_pcm->format().Format.nBlockAlign;
    const std::uint64_t bytes = std::min<std::uint64_t>(chunk.size(), room);
    if (data && bytes) {
        std::memcpy(data, chunk.data(), std::size_t(bytes));
    }
    m_renderClient->ReleaseBuffer(frames, 0);
    return true;
}

int AudioRendererEx::resupplyBusyWait(qel::ManagedThread& thread) {
    QEL_TRACE_SCOPE("AudioRendererEx::resupplyBusyWait");
    auto* renderer = static_cast<AudioRendererEx*>(thread.context());
    if (!renderer) {
        QEL_ERROR("resupply thread called with a NULL AudioRendererEx pointer");
        return -1;
    }
    return renderer->feedUntilDone();
}

int AudioRendererEx::feedUntilDone() {
    StreamWorker& worker = *m_thread;
    if (FAILED(m_audioClient->Start())) {
        QEL_ERROR("IAudioClient::Start failed");
        return -1;
    }
    worker.started = true;
    bool keepGoing = true;
    while (worker.running && keepGoing) {
        keepGoing = streamInData();
    }
    return drainAndStop();
}

// Lets what is still queued play out before the client stops. An invalidated device has
// nothing left to drain or stop.
int AudioRendererEx::drainAndStop() {
    UINT32 queued = 0;
    if (m_audioClient->GetCurrentPadding(&queued) == AUDCLNT_E_DEVICE_INVALIDATED) {
        return -1;
    }
    const WAVEFORMATEX& format = m_pcm->format().Format;
    if (format.nAvgBytesPerSec != 0) {
        std::uint32_t queuedBytes = std::uint32_t(queued) * format.nBlockAlign * 1000u;
        qel::System::mssleep(queuedBytes / std::uint32_t(format.nAvgBytesPerSec));
    }
    m_audioClient->Stop();
    m_thread->running = false;
    return 0;
}

int AudioRendererEx::resupplyByEvent(qel::ManagedThread& thread) {
    QEL_TRACE_SCOPE("AudioRendererEx::resupplyByEvent");
    auto* renderer = static_cast<AudioRendererEx*>(thread.context());
    if (!renderer) {
        QEL_ERROR("resupply thread called with a NULL AudioRendererEx pointer");
        return -1;
    }
    return renderer->feedOnEvents();
}

int AudioRendererEx::feedOnEvents() {
    StreamWorker& worker = *m_thread;
    HRESULT hr = m_audioClient->Start();
    if (FAILED(hr)) {
        QEL_FATAL("IAudioClient::Start failed ", client::hex(hr));
        return -1;
    }
    worker.started = true;
    bool keepGoing = true;
    while (worker.running && keepGoing) {
        DWORD wait = WaitForSingleObjectEx(m_event, INFINITE, TRUE);
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

} // namespace libAudio
