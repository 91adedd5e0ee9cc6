// The renderer and capture interfaces over the legacy waveform-audio devices: the whole
// PCM buffer goes to the device as one block, and a worker watches it.
//
// Both open the endpoint's legacy device number (AudioDevice::waveLegacyDeviceID). An
// endpoint without one answers 0xFFFFFFFF, which is WAVE_MAPPER: for such an endpoint the
// classes open the system's default device instead, and play or record there. A caller that
// means one particular endpoint checks its number first.
//
// Copies share the device and the worker: a stop through any copy, or the destruction of any
// copy, ends the playback or recording that one of them started.
#pragma once

#include "libAudio/AudioCapture.h"
#include "libAudio/AudioRenderer.h"
#include "libAudio/WaveDevice.h"

namespace libAudio {

class LIBAUDIO_API AudioRendererLegacyWave : public AudioRenderer {
public:
    // play's mode that loops; every other value plays once.
    enum : unsigned int { LOOP = 2 };

    AudioRendererLegacyWave();
    AudioRendererLegacyWave(const AudioRendererLegacyWave& other);
    AudioRendererLegacyWave& operator=(const AudioRendererLegacyWave& other);
    ~AudioRendererLegacyWave() override;

    bool initialize(IMMDevice* device, StaticPCMBuffer* pcm) override;
    bool play(unsigned int playMode, std::function<bool()> abortRequested) override;
    bool isStillPlaying() const override;
    bool stop() override;
    qel::Array<WAVEFORMATEX>& compatibleFormat() override { return m_compatibleFormats; }
    AUDCLNT_SHAREMODE shareMode() override { return AUDCLNT_SHAREMODE_EXCLUSIVE; }

private:
    int playback(const std::function<bool()>& abortRequested);
    bool startDevice(StreamWorker& worker);
    void copyFrom(const AudioRendererLegacyWave& other);

    std::atomic<bool> m_loop{false};
    PCMTrack m_track;
    StaticPCMBuffer* m_pcm = nullptr;
    WorkerThreadHandle m_thread; // holds the stop flag, shared by the copies
    WaveOut m_waveOut;
    qel::Array<WAVEFORMATEX> m_compatibleFormats;
};

class LIBAUDIO_API AudioCaptureLegacyWave : public AudioCapture {
public:
    AudioCaptureLegacyWave();
    AudioCaptureLegacyWave(const AudioCaptureLegacyWave& other);
    AudioCaptureLegacyWave& operator=(const AudioCaptureLegacyWave& other);
    ~AudioCaptureLegacyWave() override;

    bool initialize(IMMDevice* device, StaticPCMBuffer* pcm) override;
    bool start(std::function<bool()> abortRequested) override;
    bool isStillRecording() const override;
    void reset() override;
    bool stop() override;
    void setTimeout(unsigned int milliseconds) override;
    int threadExitCode() override;
    AUDCLNT_SHAREMODE shareMode() override { return AUDCLNT_SHAREMODE_EXCLUSIVE; }
    // The time-out in force: what setTimeout stored, cut down by start.
    unsigned int timeout() const { return m_timeout; }

private:
    int record();
    bool startDevice(StreamWorker& worker);
    void copyFrom(const AudioCaptureLegacyWave& other);

    PCMTrack m_track;
    StaticPCMBuffer* m_pcm = nullptr;
    WaveIn m_waveIn;
    WorkerThreadHandle m_thread;                      // holds the stop flag, shared by the copies
    std::atomic<std::uint32_t> m_timeout{0xFFFFFFFF}; // read by the worker
    int m_exitCode = 128;
};

} // namespace libAudio
