// The simulated audio client and wave devices, called as a program calls the platform:
// what the driver accepts, how misuse is answered, and what a neglected capture loses.
#include "libAudio/PCMSupport.h"
#include "platform/CComPtr.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
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

TEST_F(AudioEngineTest, TheDriverTakesItsOwnFormatsExclusivelyAndTheMixRateShared) {
    CComPtr<IAudioClient> audio = client(kSpeakers);
    WAVEFORMATEX stereo16 = pcm(2, 16), eightBit = pcm(2, 8), odd = pcm(2, 16, 22050);
    WAVEFORMATEX cd = pcm(2, 16, 44100);
    EXPECT_EQ(S_OK, audio->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &stereo16, nullptr));
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT,
              audio->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &eightBit, nullptr));
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT,
              audio->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &odd, nullptr));
    EXPECT_EQ(E_POINTER, audio->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, &stereo16, nullptr));

    // Shared: any depth at the mix rate; another rate gets the mix format offered.
    WAVEFORMATEX* closest = nullptr;
    for (WAVEFORMATEX* depth : {&stereo16, &eightBit}) {
        EXPECT_EQ(S_OK, audio->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, depth, &closest));
        EXPECT_EQ(nullptr, closest);
    }
    ASSERT_EQ(S_FALSE, audio->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, &cd, &closest));
    ASSERT_NE(nullptr, closest);
    EXPECT_EQ(32, closest->wBitsPerSample);
    EXPECT_EQ(48000u, closest->nSamplesPerSec);
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
    EXPECT_EQ(AUDCLNT_E_OUT_OF_ORDER, render->ReleaseBuffer(1, 0));
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

// Runs f on a thread of its own and waits for it in real time: a device that spins under
// the engine's lock would otherwise hang the whole suite, and past the limit the process
// cannot go on.
void withinSeconds(int seconds, const std::function<void()>& f) {
    std::packaged_task<void()> task(f);
    std::future<void> done = task.get_future();
    std::thread runner(std::move(task));
    if (done.wait_for(std::chrono::seconds(seconds)) == std::future_status::timeout) {
        std::fprintf(stderr, "the simulated device did not answer within %d s\n", seconds);
        std::fflush(stderr);
        std::_Exit(EXIT_FAILURE);
    }
    runner.join();
    done.get();
}

// A looped block shorter than one frame has nothing to play, however often it loops: it
// comes back done at once and the device goes on to the next block.
TEST(WaveDeviceLoops, ABlockShorterThanAFrameComesBackDone) {
    sim::installMachine(model::loadMachine("laptop"));
    sim::setClockMode(sim::ClockMode::Real);
    WAVEFORMATEX format{};
    libAudio::createWaveformatEx(2, 16, 48000, format);
    char crumb[3] = {1, 2, 3};
    std::vector<char> samples(format.nAvgBytesPerSec / 20, 1); // 50 ms
    WAVEHDR looped{}, next{};
    looped.lpData = crumb;
    looped.dwBufferLength = sizeof crumb;
    looped.dwFlags = WHDR_BEGINLOOP | WHDR_ENDLOOP;
    looped.dwLoops = 0xFFFFFFFF;
    next.lpData = samples.data();
    next.dwBufferLength = DWORD(samples.size());
    HWAVEOUT out = nullptr;
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutOpen(&out, 0, &format, 0, 0, CALLBACK_NULL));
    withinSeconds(10, [&] {
        for (WAVEHDR* header : {&looped, &next}) {
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveOutPrepareHeader(out, header, sizeof(WAVEHDR)));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutWrite(out, header, sizeof(WAVEHDR)));
        }
        std::atomic_ref<DWORD> first(looped.dwFlags), second(next.dwFlags);
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!(second.load() & WHDR_DONE) && std::chrono::steady_clock::now() < limit) {
            Sleep(5);
        }
        EXPECT_TRUE(first.load() & WHDR_DONE);
        EXPECT_TRUE(second.load() & WHDR_DONE);
        EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutReset(out));
        for (WAVEHDR* header : {&looped, &next}) {
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveOutUnprepareHeader(out, header, sizeof(WAVEHDR)));
        }
    });
    EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutClose(out));
}

// A client whose Initialize got past its arguments and failed is spent, as on Windows; a
// refused argument leaves it usable.
TEST_F(AudioEngineTest, AFailedInitializeNeedsAFreshClient) {
    WAVEFORMATEX format = pcm(2, 16), eightBit = pcm(2, 8);
    CComPtr<IAudioClient> audio = client(kSpeakers);
    EXPECT_EQ(E_POINTER,
              audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 10 * kMs, 0, nullptr, nullptr));
    EXPECT_EQ(AUDCLNT_E_UNSUPPORTED_FORMAT,
              audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 10 * kMs, 0, &eightBit, nullptr));
    EXPECT_EQ(AUDCLNT_E_ALREADY_INITIALIZED,
              audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 10 * kMs, 0, &format, nullptr));
    EXPECT_EQ(S_OK, client(kSpeakers)->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 10 * kMs, 0,
                                                  &format, nullptr));
}

// A render client that is not refilled in time is heard as silence and counted, once per
// shortage; one refilled at half its buffer is not, and one that waits until its buffer
// reads empty is too late by what the device reads ahead.
TEST_F(AudioEngineTest, ARenderBufferThatRunsDryIsAGlitch) {
    WAVEFORMATEX format = pcm(2, 16);
    CComPtr<IAudioClient> audio = client(kSpeakers);
    ASSERT_EQ(S_OK,
              audio->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100 * kMs, 0, &format, nullptr));
    CComPtr<IAudioRenderClient> render;
    ASSERT_EQ(S_OK, audio->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render)));
    UINT32 frames = 0;
    ASSERT_EQ(S_OK, audio->GetBufferSize(&frames));
    auto padding = [&] { // a poll of a running stream waits one period
        UINT32 queued = 0;
        audio->GetCurrentPadding(&queued);
        return queued;
    };
    auto refill = [&](UINT32 queued) {
        BYTE* data = nullptr;
        ASSERT_EQ(S_OK, render->GetBuffer(frames - queued, &data));
        ASSERT_EQ(S_OK, render->ReleaseBuffer(frames - queued, 0));
    };
    refill(0);
    sim::takeRenderGlitches(kSpeakers);
    ASSERT_EQ(S_OK, audio->Start());
    for (int half = 0; half < 6; ++half) {
        Sleep(40);
        refill(padding());
    }
    EXPECT_EQ(0u, sim::takeRenderGlitches(kSpeakers));
    for (int poll = 0; poll < 30; ++poll) {
        if (padding() == 0) {
            refill(0);
        }
    }
    EXPECT_GE(sim::takeRenderGlitches(kSpeakers), 2u);
    Sleep(300);
    EXPECT_EQ(1u, sim::takeRenderGlitches(kSpeakers)) << "one shortage, however long";
    EXPECT_EQ(S_OK, audio->Stop());
}

// Routes carry channels as the machine says: a crossed cable swaps them, and without a mix
// each channel reaches its own.
TEST_F(AudioEngineTest, RoutesCarryChannelsAsTheMachineDescribesThem) {
    const char* machine = R"({
        "name": "cables",
        "adapters": [{"instance_id": "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1"}],
        "endpoints": [
            {"id": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}"},
            {"id": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}", "flow": "capture"},
            {"id": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000003}", "flow": "capture"}
        ],
        "routes": [
            {"render": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}",
             "capture": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}"},
            {"render": "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}",
             "capture": "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000003}",
             "channel_mix": [[0, 1], [1, 0]]}
        ]})";
    sim::installMachine(model::loadMachineJson(machine, "cables.json"));
    const std::string out = "{0.0.0.00000000}.{00000000-0000-0000-0000-000000000001}";
    WAVEFORMATEX format = pcm(2, 16);
    CComPtr<IAudioClient> player = client(out);
    ASSERT_EQ(S_OK,
              player->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100 * kMs, 0, &format, nullptr));
    CComPtr<IAudioRenderClient> render;
    ASSERT_EQ(S_OK, player->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render)));
    UINT32 frames = 0;
    player->GetBufferSize(&frames);
    BYTE* data = nullptr;
    ASSERT_EQ(S_OK, render->GetBuffer(frames, &data));
    for (UINT32 f = 0; f < frames; ++f) {
        const std::int16_t left = 1000, right = -2000;
        std::memcpy(data + f * 4, &left, 2);
        std::memcpy(data + f * 4 + 2, &right, 2);
    }
    ASSERT_EQ(S_OK, render->ReleaseBuffer(frames, 0));

    std::vector<CComPtr<IAudioClient>> recorders;
    std::vector<CComPtr<IAudioCaptureClient>> captures;
    for (const char* in : {"{0.0.1.00000000}.{00000000-0000-0000-0000-000000000002}",
                           "{0.0.1.00000000}.{00000000-0000-0000-0000-000000000003}"}) {
        CComPtr<IAudioClient> recorder = client(in);
        ASSERT_EQ(S_OK, recorder->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100 * kMs, 10 * kMs,
                                             &format, nullptr));
        CComPtr<IAudioCaptureClient> capture;
        ASSERT_EQ(S_OK, recorder->GetService(IID_IAudioCaptureClient,
                                             reinterpret_cast<void**>(&capture)));
        ASSERT_EQ(S_OK, recorder->Start());
        recorders.push_back(recorder);
        captures.push_back(capture);
    }
    ASSERT_EQ(S_OK, player->Start());
    Sleep(50);
    const std::int16_t expected[2][2] = {{1000, -2000}, {-2000, 1000}};
    for (int r = 0; r < 2; ++r) {
        UINT32 got = 0;
        DWORD flags = 0;
        ASSERT_EQ(S_OK, captures[r]->GetBuffer(&data, &got, &flags, nullptr, nullptr));
        std::int16_t heard[2];
        std::memcpy(heard, data + (got - 1) * 4, 4); // the end of the first period
        EXPECT_EQ(expected[r][0], heard[0]) << "route " << r;
        EXPECT_EQ(expected[r][1], heard[1]) << "route " << r;
        captures[r]->ReleaseBuffer(got);
        recorders[r]->Stop();
    }
    player->Stop();

    std::string badMix = machine;
    badMix.replace(badMix.find("[[0, 1], [1, 0]]"), 16, "[[0, 2], [1, 0]]");
    EXPECT_THROW(model::loadMachineJson(badMix, "cables.json"), model::LoadError);
}

} // namespace
