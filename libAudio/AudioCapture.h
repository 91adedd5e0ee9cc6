// Recording from one endpoint into a StaticPCMBuffer: the abstract capture and the one
// that drains the shared/exclusive-mode audio client from a worker thread.
#pragma once

#include "libAudio/AudioRenderer.h"

namespace libAudio {

class LIBAUDIO_API AudioCapture {
public:
    virtual ~AudioCapture();
    virtual bool initialize(IMMDevice* device, StaticPCMBuffer* pcm) = 0;
    virtual bool start(std::function<bool()> abortRequested) = 0;
    virtual bool isStillRecording() const = 0;
    virtual void reset() = 0;
    virtual bool stop() = 0;
    virtual void setTimeout(unsigned int milliseconds) = 0;
    virtual int threadExitCode() = 0;
    virtual AUDCLNT_SHAREMODE shareMode() = 0;
};

// Copies share the stream and its worker: a stop through any copy, or the destruction of
// any copy, ends the playback or recording that one of them started.
class LIBAUDIO_API AudioCaptureEx : public AudioCapture {
public:
    static const AUDCLNT_SHAREMODE m_shareMode = AUDCLNT_SHAREMODE_EXCLUSIVE;

    AudioCaptureEx();
    AudioCaptureEx(IMMDevice* device, StaticPCMBuffer* pcm);
    AudioCaptureEx(const AudioCaptureEx& other);
    AudioCaptureEx& operator=(const AudioCaptureEx& other);
    ~AudioCaptureEx() override;

    bool initialize(IMMDevice* device, StaticPCMBuffer* pcm) override;
    bool start(std::function<bool()> abortRequested) override;
    bool isStillRecording() const override;
    void reset() override;
    bool stop() override;
    void setTimeout(unsigned int milliseconds) override { m_timeout = milliseconds; }
    int threadExitCode() override;
    AUDCLNT_SHAREMODE shareMode() override { return m_shareMode; }

    // The worker routines; the thread's context is the capture.
    static int resupplyBusyWait(qel::ManagedThread& thread);
    static int resupplyByEvent(qel::ManagedThread& thread);

private:
    static AudioCaptureEx* startedCapture(qel::ManagedThread& thread);
    bool createCaptureThread();
    bool streamInData();
    void copyFrom(const AudioCaptureEx& other);
    bool initializeClient(IMMDevice* device, const WAVEFORMATEX& format);
    HRESULT initializePass(IMMDevice* device, const WAVEFORMATEX& format);
    void createEvent();
    void closeEvent();
    bool waitForStart(const std::function<bool()>& abortRequested);
    bool startClient();
    bool takePacket(bool logPositions);
    int drainUntilFull();
    int drainOnEvents();
    void endWorker();

    // The worker's running and started flags live in m_thread, shared by the copies.
    IMMDevice* m_device = nullptr;
    StaticPCMBuffer* m_pcm = nullptr;
    std::uint32_t m_bufferFrames = 0;
    std::int64_t m_bufferDuration = 0;
    std::uint32_t m_streamFlags = 0;
    HANDLE m_event = nullptr;
    WorkerThreadHandle m_thread;
    bool m_eventDriven = false;
    std::int64_t m_defaultPeriod = 0;
    std::int64_t m_minimumPeriod = 0;
    CComPtr<IAudioClient> m_audioClient;
    CComPtr<IAudioCaptureClient> m_captureClient;
    std::atomic<std::uint32_t> m_timeout{0xFFFFFFFF}; // read by the worker
    int m_exitCode = 128;
};

} // namespace libAudio
