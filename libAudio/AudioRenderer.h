// Playback of a StaticPCMBuffer through one endpoint: the abstract renderer and the one
// that drives the shared/exclusive-mode audio client from a worker thread.
#pragma once

#include "foundation/export.h"
#include "foundation/qelArray.h"
#include "foundation/qelSharedResource.h"
#include "foundation/qelThread.h"
#include "libAudio/StaticPCMBuffer.h"
#include "platform/CComPtr.h"
#include "platform/win32.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>

namespace libAudio {

// A streaming object's worker thread and the flags its routine watches. Copies of the object
// share it, so that a stop through any copy reaches the one worker.
class LIBAUDIO_API StreamWorker {
public:
    StreamWorker(qel::ManagedThread::Function routine, void* context);
    StreamWorker(const StreamWorker&) = delete;
    StreamWorker& operator=(const StreamWorker&) = delete;

    qel::ManagedThread& thread() { return m_thread; }
    const qel::ManagedThread& thread() const { return m_thread; }
    // Waits for the thread to end. Copies stopping it from two threads wait for it one after
    // the other, so that its handle is closed once.
    void join();
    // Held by whoever stops the device, so that the caller and the worker never stop it at
    // the same time.
    std::mutex& deviceLock() { return m_deviceLock; }

    std::atomic<bool> running{false};       // the client classes' worker goes on while set
    std::atomic<bool> started{false};       // set once the client has started
    std::atomic<bool> stopRequested{false}; // the legacy classes' stop flag

private:
    qel::ManagedThread m_thread;
    std::mutex m_joining;
    std::mutex m_deviceLock;
};

// Workers come from the platform's task allocator, so that a system out of resources fails
// their creation as it would fail a thread's.
struct LIBAUDIO_API StreamWorkerStorage {
    typedef StreamWorker* value_type;
    static value_type empty() { return nullptr; }
    static void release(value_type worker);
};

typedef qel::SharedResource<StreamWorkerStorage, 1> WorkerThreadHandle;

class LIBAUDIO_API AudioRenderer {
public:
    virtual ~AudioRenderer();
    virtual bool initialize(IMMDevice* device, StaticPCMBuffer* pcm) = 0;
    virtual bool play(unsigned int playMode, std::function<bool()> abortRequested) = 0;
    virtual bool isStillPlaying() const = 0;
    virtual bool stop() = 0;
    virtual qel::Array<WAVEFORMATEX>& compatibleFormat() = 0;
    virtual AUDCLNT_SHAREMODE shareMode() = 0;
};

// Copies share the stream and its worker: a stop through any copy, or the destruction of
// any copy, ends the playback or recording that one of them started.
class LIBAUDIO_API AudioRendererEx : public AudioRenderer {
public:
    // Bits of play's mode; the others are kept and ignored.
    enum PlayMode : unsigned int { PLAY_ONCE = 1, REWIND = 4 };
    static const AUDCLNT_SHAREMODE m_shareMode = AUDCLNT_SHAREMODE_EXCLUSIVE;

    AudioRendererEx();
    AudioRendererEx(IMMDevice* device, StaticPCMBuffer* pcm);
    AudioRendererEx(const AudioRendererEx& other);
    AudioRendererEx& operator=(const AudioRendererEx& other);
    ~AudioRendererEx() override;

    bool initialize(IMMDevice* device, StaticPCMBuffer* pcm) override;
    bool play(unsigned int playMode, std::function<bool()> abortRequested) override;
    bool isStillPlaying() const override;
    bool stop() override;
    qel::Array<WAVEFORMATEX>& compatibleFormat() override;
    AUDCLNT_SHAREMODE shareMode() override { return m_shareMode; }

    // The worker routines; the thread's context is the renderer.
    static int resupplyBusyWait(qel::ManagedThread& thread);
    static int resupplyByEvent(qel::ManagedThread& thread);

private:
    bool createRenderThread();
    bool streamInData();
    void copyFrom(const AudioRendererEx& other);
    bool initializeClient(IMMDevice* device, const StaticPCMBuffer& pcm);
    HRESULT initializePass(IMMDevice* device, const StaticPCMBuffer& pcm);
    bool readBufferSize();
    bool waitForStart(const std::function<bool()>& abortRequested);
    bool nextChunk(std::uint32_t frames, qel::Buffer<unsigned char>& chunk, bool& keepGoing);
    bool writeChunk(std::uint32_t frames, const qel::Buffer<unsigned char>& chunk);
    int feedUntilDone();
    int feedOnEvents();
    int drainAndStop();
    void closeEvent();
    void endWorker();

    bool m_initialized = false;
    // The worker's running and started flags live in m_thread, shared by the copies.
    IMMDevice* m_device = nullptr;
    StaticPCMBuffer* m_pcm = nullptr;
    std::uint32_t m_bufferFrames = 0;
    std::atomic<std::uint32_t> m_readBlock{0};
    std::atomic<std::uint32_t> m_blocksPlayed{0};
    std::uint32_t m_streamFlags = 0;
    HANDLE m_event = nullptr;
    WorkerThreadHandle m_thread;
    bool m_fillWholeBuffer = true;
    std::int64_t m_defaultPeriod = 0;
    std::int64_t m_minimumPeriod = 0;
    std::int64_t m_latency = 0;
    std::uint32_t m_playMode = PLAY_ONCE;
    CComPtr<IAudioClient> m_audioClient;
    CComPtr<IAudioRenderClient> m_renderClient;
    qel::Array<WAVEFORMATEX> m_compatibleFormats;
};

} // namespace libAudio
