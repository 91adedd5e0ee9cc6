// The simulated audio client and wave devices, called as a program calls the platform:
// what the driver accepts, how misuse is answered, and what a neglected capture loses.
#include "libAudio/PCMSupport.h"
#include "platform/CComPtr.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

const std::string kSpeakers = "{0.0.0.00000000}.{3b1f6d2a-7c4e-4a8b-9f21-5d6e7a8b9c01}";
const std::string kMicArray = "{0.0.1.00000000}.{2c4e6a8b-5d7f-4b9c-a1e3-4f5a6b7c8d06}";
constexpr REFERENCE_TIME kMs = 10000;

class AudioEngineTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(model::loadMachine("laptop"));
        sim::setClockMode(sim::ClockMode::Virtual);
        sim::holdVirtualTime(true);
    }
    void TearDown() override { sim::holdVirtualTime(false); }

    static CComPtr<IAudioClient> client(const std::string& id) {
        CComPtr<IMMDeviceEnumerator> enumerator;
        EXPECT_EQ(S_OK, enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator));
        std::u16string wide(id.begin(), id.end());
        CComPtr<IMMDevice> device;
        EXPECT_EQ(S_OK, enumerator->GetDevice(reinterpret_cast<LPCWSTR>(wide.c_str()), &device));
        CComPtr<IAudioClient> audio;
        EXPECT_EQ(S_OK, device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr,
                                         reinterpret_cast<void**>(&audio)));
        return audio;
    }
    static WAVEFORMATEX pcm(unsigned int channels, unsigned int bits, unsigned int rate = 48000) {
        WAVEFORMATEX format{};
        libAudio::createWaveformatEx(channels, bits, rate, format);
        return format;
    }
};

TEST_F(AudioEngineTest, TheDriverTakesItsOwnFormatsExclusivelyAndOffersTheMixFormatShared) {
    CComPtr<IAudioClient> audio = client(kSpeakers);
    WAVEFORMATEX stereo16 = pcm(2, 16), eightBit = pcm(2, 8), odd = pcm(2, 16, 22050);
    EXPECT_EQ(S_OK, audio->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &stereo16, nullptr));
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT,
              audio->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &eightBit, nullptr));
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT,
              audio->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &odd, nullptr));
    EXPECT_EQ(E_POINTER, audio->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, &stereo16, nullptr));

    WAVEFORMATEX* closest = nullptr;
    ASSERT_EQ(S_FALSE, audio->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, &stereo16, &closest));
    ASSERT_NE(nullptr, closest);
    EXPECT_EQ(32, closest->wBitsPerSample);
    WAVEFORMATEX* again = nullptr;
    EXPECT_EQ(S_OK, audio->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, closest, &again));
    EXPECT_EQ(nullptr, again);
    CoTaskMemFree(closest);
    WAVEFORMATEX* mix = nullptr;
    ASSERT_EQ(S_OK, audio->GetMixFormat(&mix));
    EXPECT_EQ(S_OK, audio->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 0, 0, mix, nullptr));
    CoTaskMemFree(mix);
}

TEST_F(AudioEngineTest, BufferSizesFollowTheDeviceAndMisuseIsRefused) {
    WAVEFORMATEX format = pcm(2, 24); // 6-byte frames: whole 128-byte blocks are 64 frames
    auto initialize = [&](DWORD flags, REFERENCE_TIME duration, REFERENCE_TIME period) {
        return client(kSpeakers)->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, flags, duration, period,
                                             &format, nullptr);
    };
    EXPECT_EQ(AUDCLNT_E_INVALID_DEVICE_PERIOD, initialize(0, 600 * kMs, 600 * kMs));
    EXPECT_EQ(AUDCLNT_E_INVALID_DEVICE_PERIOD, initialize(0, 10 * kMs, kMs));
    EXPECT_EQ(AUDCLNT_E_BUFFER_SIZE_ERROR, initialize(0, 2500 * kMs, 0));
    EXPECT_EQ(AUDCLNT_E_BUFDURATION_PERIOD_NOT_EQUAL,
              initialize(AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 20 * kMs, 10 * kMs));
    EXPECT_EQ(AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED,
              initialize(AUDCLNT_STREAMFLAGS_EVENTCALLBACK, 10 * kMs, 10 * kMs));

    CComPtr<IAudioClient> audio = client(kSpeakers);
    ASSERT_EQ(S_OK,
              audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 10 * kMs, 0, &format, nullptr));
    UINT32 frames = 0;
    ASSERT_EQ(S_OK, audio->GetBufferSize(&frames));
    EXPECT_EQ(512u, frames) << "480 frames rounded up to whole DMA blocks";
    EXPECT_EQ(AUDCLNT_E_ALREADY_INITIALIZED,
              audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 10 * kMs, 0, &format, nullptr));
    EXPECT_EQ(AUDCLNT_E_DEVICE_IN_USE, initialize(0, 10 * kMs, 0));
    CComPtr<IAudioCaptureClient> wrong;
    EXPECT_EQ(E_NOINTERFACE,
              audio->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&wrong)));

    CComPtr<IAudioRenderClient> render;
    ASSERT_EQ(S_OK, audio->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render)));
    BYTE* data = nullptr;
    EXPECT_EQ(AUDCLNT_E_BUFFER_TOO_LARGE, render->GetBuffer(frames + 1, &data));
    EXPECT_EQ(AUDCLNT_E_OUT_OF_ORDER, render->ReleaseBuffer(0, 0));
    ASSERT_EQ(S_OK, render->GetBuffer(frames, &data));
    EXPECT_EQ(AUDCLNT_E_OUT_OF_ORDER, render->GetBuffer(1, &data));
    EXPECT_EQ(AUDCLNT_E_INVALID_SIZE, render->ReleaseBuffer(frames + 1, 0));
    EXPECT_EQ(S_OK, render->ReleaseBuffer(frames, AUDCLNT_BUFFERFLAGS_SILENT));
    EXPECT_EQ(S_OK, audio->Start());
    EXPECT_EQ(AUDCLNT_E_NOT_STOPPED, audio->Start());
    EXPECT_EQ(AUDCLNT_E_NOT_STOPPED, audio->Reset());
    EXPECT_EQ(S_OK, audio->Stop());
    EXPECT_EQ(S_FALSE, audio->Stop());
}

TEST_F(AudioEngineTest, ACaptureNobodyDrainsLosesTheOldestSoundAndSaysSo) {
    WAVEFORMATEX format = pcm(2, 16);
    CComPtr<IAudioClient> audio = client(kMicArray);
    ASSERT_EQ(S_OK, audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100 * kMs, 10 * kMs, &format,
                                      nullptr));
    CComPtr<IAudioCaptureClient> capture;
    ASSERT_EQ(S_OK, audio->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&capture)));
    ASSERT_EQ(S_OK, audio->Start());
    Sleep(500); // five buffers' worth
    BYTE* data = nullptr;
    UINT32 frames = 0;
    DWORD flags = 0;
    UINT64 position = 0;
    ASSERT_EQ(S_OK, capture->GetBuffer(&data, &frames, &flags, &position, nullptr));
    EXPECT_EQ(480u, frames) << "a packet is one period";
    EXPECT_TRUE(flags & AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY);
    EXPECT_GE(position, 4u * 4800) << "what did not fit was dropped, oldest first";
    EXPECT_EQ(AUDCLNT_E_INVALID_SIZE, capture->ReleaseBuffer(frames - 1));
    EXPECT_EQ(S_OK, capture->ReleaseBuffer(frames));
    EXPECT_EQ(S_OK, audio->Stop());
}

TEST_F(AudioEngineTest, WaveDevicesRefuseMisuseAndHandBlocksBackDone) {
    WAVEFORMATEX format = pcm(1, 16);
    HWAVEOUT out = nullptr;
    EXPECT_EQ(MMRESULT(MMSYSERR_BADDEVICEID), waveOutOpen(&out, 99, &format, 0, 0, CALLBACK_NULL));
    WAVEFORMATEX broken = format;
    broken.nBlockAlign = 3;
    EXPECT_EQ(MMRESULT(WAVERR_BADFORMAT), waveOutOpen(&out, 0, &broken, 0, 0, CALLBACK_NULL));
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutOpen(&out, 0, &format, 0, 0, CALLBACK_NULL));

    std::vector<char> samples(4800 * 2, 0);
    WAVEHDR header{};
    header.lpData = samples.data();
    header.dwBufferLength = DWORD(samples.size());
    EXPECT_EQ(MMRESULT(WAVERR_UNPREPARED), waveOutWrite(out, &header, sizeof header));
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutPrepareHeader(out, &header, sizeof header));
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutWrite(out, &header, sizeof header));
    EXPECT_EQ(MMRESULT(WAVERR_STILLPLAYING), waveOutWrite(out, &header, sizeof header));
    EXPECT_EQ(MMRESULT(WAVERR_STILLPLAYING), waveOutClose(out));
    Sleep(200);
    EXPECT_EQ(DWORD(WHDR_DONE | WHDR_PREPARED),
              header.dwFlags & (WHDR_DONE | WHDR_PREPARED | WHDR_INQUEUE));
    EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutUnprepareHeader(out, &header, sizeof header));
    EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutClose(out));
    EXPECT_EQ(MMRESULT(MMSYSERR_INVALHANDLE), waveOutClose(out));
}

} // namespace
