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

namespace libAudio {

typedef qel::SharedResource<qel::PointerStorage<qel::ManagedThread, 0, qel::RELEASE_DELETE>, 1>
    WorkerThreadHandle;

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

    bool m_initialized = false;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_started{false};
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
