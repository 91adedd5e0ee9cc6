// What a program may rely on when it streams: the formats an audio client takes in each
// share mode, the exclusive-mode settings of an endpoint, the buffer calls that hand out or
// release nothing, and the legacy wave devices' driver messages and headers. Written against
// the platform interface; the simulated platform is only asked to install a machine, to move
// time and to say whether an endpoint is heard. Native behaviour as Wine's conformance tests
// (dlls/mmdevapi/tests/render.c, capture.c) record it.
#include "conformance/ConformanceSupport.h"
#include "platform/model/JsonLoader.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/MachineEvents.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <set>
#include <thread>

using namespace conformance;

namespace {

WAVEFORMATEX waveFormat(WORD tag, DWORD rate, WORD bits, WORD channels) {
    WAVEFORMATEX f{};
    f.wFormatTag = tag;
    f.nChannels = channels;
    f.nSamplesPerSec = rate;
    f.wBitsPerSample = bits;
    f.nBlockAlign = WORD(channels * bits / 8);
    f.nAvgBytesPerSec = rate * f.nBlockAlign;
    return f;
}

CComPtr<IAudioClient> audioClient(IMMDevice* device) {
    CComPtr<IAudioClient> client;
    EXPECT_EQ(S_OK, device->Activate(IID_IAudioClient, CLSCTX_ALL, nullptr,
                                     reinterpret_cast<void**>(&client)));
    return client;
}

struct MixFormat {
    DWORD rate = 0;
    WORD channels = 0;
};

MixFormat mixOf(IAudioClient* client) {
    WAVEFORMATEX* mix = nullptr;
    EXPECT_EQ(S_OK, client->GetMixFormat(&mix));
    MixFormat found;
    if (mix) {
        found = {mix->nSamplesPerSec, mix->nChannels};
        CoTaskMemFree(mix);
    }
    return found;
}

std::string describe(const WAVEFORMATEX& f) {
    char text[64];
    std::snprintf(text, sizeof text, "%s %u Hz %u bits %u ch",
                  f.wFormatTag == WAVE_FORMAT_PCM ? "PCM" : "float", unsigned(f.nSamplesPerSec),
                  unsigned(f.wBitsPerSample), unsigned(f.nChannels));
    return text;
}

class Streams : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        sim::installMachine(model::loadMachine(GetParam()));
        ASSERT_EQ(S_OK, enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator));
    }

    std::vector<CComPtr<IMMDevice>> active(EDataFlow flow) {
        return endpoints(enumerator, flow, DEVICE_STATE_ACTIVE);
    }

    CComPtr<IMMDeviceEnumerator> enumerator;
};

// DRV_QUERYFUNCTIONINSTANCEIDSIZE writes a count as wide as a pointer (Wine's winmm writes a
// DWORD_PTR; Microsoft's sample for legacy device roles reads it into a size_t): every byte
// of it is the size of the id, terminator included, that DRV_QUERYFUNCTIONINSTANCEID then
// fills. Each legacy device names a different active endpoint of its flow.
TEST_P(Streams, LegacyDevicesNameTheirEndpointsWithAPointerWideSize) {
    for (EDataFlow flow : {eRender, eCapture}) {
        std::set<WString> expected;
        for (IMMDevice* device : active(flow)) {
            expected.insert(idOf(device));
        }
        const UINT count = flow == eRender ? waveOutGetNumDevs() : waveInGetNumDevs();
        EXPECT_EQ(expected.size(), count);
        std::set<WString> named;
        for (UINT number = 0; number < count; ++number) {
            auto message = [&](UINT what, DWORD_PTR param1, DWORD_PTR param2) {
                return flow == eRender
                           ? waveOutMessage(reinterpret_cast<HWAVEOUT>(DWORD_PTR(number)), what,
                                            param1, param2)
                           : waveInMessage(reinterpret_cast<HWAVEIN>(DWORD_PTR(number)), what,
                                           param1, param2);
            };
            DWORD_PTR size = ~DWORD_PTR(0); // every byte must be written
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      message(DRV_QUERYFUNCTIONINSTANCEIDSIZE, DWORD_PTR(&size), 0));
            ASSERT_GE(size, 2 * sizeof(WCHAR)) << "device " << number;
            ASSERT_LT(size, DWORD_PTR(0x10000)) << "device " << number;
            ASSERT_EQ(0u, size % sizeof(WCHAR));
            std::vector<WCHAR> id(size / sizeof(WCHAR), WCHAR(0xFFFF));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      message(DRV_QUERYFUNCTIONINSTANCEID, DWORD_PTR(id.data()), size));
            EXPECT_EQ(WCHAR(0), id.back()) << "the size counts the terminator";
            const WString text(id.data());
            EXPECT_EQ(id.size() - 1, text.size()) << "and nothing else";
            EXPECT_TRUE(named.insert(text).second) << narrow(text);
        }
        EXPECT_EQ(expected, named) << "flow " << flow;
    }
}

// In shared mode the engine converts the sample type, not the rate or the channel count:
// IsFormatSupported answers S_OK for integer PCM of any depth and for float at the mix
// format's rate and channels, and S_FALSE with the mix format for any other; Initialize
// takes what was S_OK and refuses the rest with AUDCLNT_E_UNSUPPORTED_FORMAT.
TEST_P(Streams, SharedModeTakesAnySampleTypeAtTheMixRateAndChannels) {
    const WORD tags[] = {WAVE_FORMAT_PCM, WAVE_FORMAT_IEEE_FLOAT};
    for (EDataFlow flow : {eRender, eCapture}) {
        for (IMMDevice* device : active(flow)) {
            const MixFormat mix = mixOf(audioClient(device));
            for (DWORD rate : {44100u, 48000u, 96000u, unsigned(mix.rate)}) {
                for (WORD channels : {WORD(1), WORD(2), mix.channels}) {
                    for (WORD tag : tags) {
                        for (WORD bits : {WORD(8), WORD(16), WORD(24), WORD(32)}) {
                            if (tag == WAVE_FORMAT_IEEE_FLOAT && bits != 32) {
                                continue;
                            }
                            const WAVEFORMATEX f = waveFormat(tag, rate, bits, channels);
                            const bool compatible = rate == mix.rate && channels == mix.channels;
                            CComPtr<IAudioClient> client = audioClient(device);
                            WAVEFORMATEX* closest = reinterpret_cast<WAVEFORMATEX*>(&rate);
                            HRESULT hr =
                                client->IsFormatSupported(AUDCLNT_SHAREMODE_SHARED, &f, &closest);
                            EXPECT_EQ(compatible ? S_OK : S_FALSE, hr) << describe(f);
                            EXPECT_EQ(!compatible, closest != nullptr) << describe(f);
                            if (closest) {
                                EXPECT_EQ(mix.rate, closest->nSamplesPerSec);
                                EXPECT_EQ(mix.channels, closest->nChannels);
                                CoTaskMemFree(closest);
                            }
                            EXPECT_EQ(compatible ? S_OK : AUDCLNT_E_UNSUPPORTED_FORMAT,
                                      client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 500000, 0, &f,
                                                         nullptr))
                                << describe(f);
                        }
                    }
                }
            }
        }
    }
}

// Buffer calls that move no frames succeed when nothing is pending: render GetBuffer(0)
// (handing out no pointer and leaving nothing to release) and ReleaseBuffer(0, 0); capture
// ReleaseBuffer(0) after GetBuffer found nothing. Releasing frames that were never handed
// out, or asking again while a buffer is out, is out of order. SetEventHandle(NULL) is an
// invalid argument before anything else is looked at.
TEST_P(Streams, CallsThatMoveNoFramesSucceedWhenNothingIsPending) {
    for (IMMDevice* device : active(eRender)) {
        CComPtr<IAudioClient> client = audioClient(device);
        EXPECT_EQ(E_INVALIDARG, client->SetEventHandle(nullptr)) << "uninitialized";
        WAVEFORMATEX* mix = nullptr;
        ASSERT_EQ(S_OK, client->GetMixFormat(&mix));
        HRESULT hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 500000, 0, mix, nullptr);
        CoTaskMemFree(mix);
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(E_INVALIDARG, client->SetEventHandle(nullptr)) << "not event-driven";
        CComPtr<IAudioRenderClient> render;
        ASSERT_EQ(S_OK,
                  client->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render)));
        BYTE* data = reinterpret_cast<BYTE*>(&hr);
        EXPECT_EQ(S_OK, render->GetBuffer(0, &data));
        EXPECT_EQ(nullptr, data);
        EXPECT_EQ(S_OK, render->GetBuffer(0, &data)) << "nothing was left pending";
        EXPECT_EQ(AUDCLNT_E_OUT_OF_ORDER, render->ReleaseBuffer(1, 0));
        EXPECT_EQ(S_OK, render->ReleaseBuffer(0, 0));
        ASSERT_EQ(S_OK, render->GetBuffer(16, &data));
        EXPECT_EQ(AUDCLNT_E_OUT_OF_ORDER, render->GetBuffer(0, &data));
        EXPECT_EQ(nullptr, data);
        EXPECT_EQ(S_OK, render->ReleaseBuffer(0, 0)) << "gives the buffer back unused";
        EXPECT_EQ(S_OK, render->ReleaseBuffer(0, 0));
        UINT32 padding = 1;
        EXPECT_EQ(S_OK, client->GetCurrentPadding(&padding));
        EXPECT_EQ(0u, padding);
    }
    for (IMMDevice* device : active(eCapture)) {
        CComPtr<IAudioClient> client = audioClient(device);
        WAVEFORMATEX* mix = nullptr;
        ASSERT_EQ(S_OK, client->GetMixFormat(&mix));
        HRESULT hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED, AUDCLNT_STREAMFLAGS_EVENTCALLBACK,
                                        500000, 0, mix, nullptr);
        CoTaskMemFree(mix);
        ASSERT_EQ(S_OK, hr);
        EXPECT_EQ(E_INVALIDARG, client->SetEventHandle(nullptr)) << "event-driven";
        CComPtr<IAudioCaptureClient> capture;
        ASSERT_EQ(S_OK,
                  client->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&capture)));
        BYTE* data = reinterpret_cast<BYTE*>(&hr);
        UINT32 frames = 7;
        DWORD flags = 7;
        EXPECT_EQ(AUDCLNT_S_BUFFER_EMPTY,
                  capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr));
        EXPECT_EQ(nullptr, data);
        EXPECT_EQ(0u, frames);
        EXPECT_EQ(S_OK, capture->ReleaseBuffer(frames));
        EXPECT_EQ(AUDCLNT_E_OUT_OF_ORDER, capture->ReleaseBuffer(1));
    }
}

INSTANTIATE_TEST_SUITE_P(Bundled, Streams, ::testing::Values("laptop", "desktop", "empty"),
                         [](const auto& info) { return std::string(info.param); });

const std::string kSpeakers = model::generatedEndpointId(model::Flow::Render, 0);
const std::string kLocked = model::generatedEndpointId(model::Flow::Render, 1);
const std::string kPolite = model::generatedEndpointId(model::Flow::Render, 2);
const std::string kMicrophone = model::generatedEndpointId(model::Flow::Capture, 3);

// Render endpoints with Windows' default settings, with exclusive mode disallowed, and
// without priority for exclusive streams; a microphone.
model::Machine settingsMachine() {
    return model::MachineBuilder("settings")
        .adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
        .endpoint(model::Flow::Render, "Speakers", model::Speakers)
        .endpoint(model::Flow::Render, "Line Out", model::LineLevel)
        .exclusiveMode(false)
        .endpoint(model::Flow::Render, "Headphones", model::Headphones)
        .exclusiveMode(true, false)
        .endpoint(model::Flow::Capture, "Microphone", model::Microphone)
        .build();
}

class StreamSettings : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(settingsMachine());
        ASSERT_EQ(S_OK, enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator));
    }
    void TearDown() override {
        sim::holdVirtualTime(false);
        sim::setClockMode(sim::ClockMode::Real);
    }

    CComPtr<IMMDevice> device(const std::string& id) {
        CComPtr<IMMDevice> found;
        EXPECT_EQ(S_OK, enumerator->GetDevice(wide(id).c_str(), &found));
        return found;
    }

    CComPtr<IMMDeviceEnumerator> enumerator;
};

// With "Allow applications to take exclusive control of this device" unticked (or a policy
// that says so), every exclusive request is refused as not allowed, whatever its format, and
// shared mode goes on as before. Wine has no such setting.
TEST_F(StreamSettings, ExclusiveModeCanBeDisallowed) {
    const WAVEFORMATEX formats[] = {waveFormat(WAVE_FORMAT_PCM, 48000, 16, 2),
                                    waveFormat(WAVE_FORMAT_PCM, 8000, 8, 1)};
    CComPtr<IMMDevice> locked = device(kLocked), free = device(kSpeakers);
    for (const WAVEFORMATEX& f : formats) {
        CComPtr<IAudioClient> client = audioClient(locked);
        EXPECT_EQ(AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED,
                  client->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &f, nullptr))
            << describe(f);
        int stale = 0;
        WAVEFORMATEX* closest = reinterpret_cast<WAVEFORMATEX*>(&stale); // must be cleared
        EXPECT_EQ(AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED,
                  client->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &f, &closest));
        EXPECT_EQ(nullptr, closest);
        EXPECT_EQ(AUDCLNT_E_EXCLUSIVE_MODE_NOT_ALLOWED,
                  client->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100000, 100000, &f, nullptr))
            << describe(f);
    }
    const WAVEFORMATEX cd = formats[0];
    EXPECT_EQ(S_OK, audioClient(free)->IsFormatSupported(AUDCLNT_SHAREMODE_EXCLUSIVE, &cd, nullptr))
        << "another endpoint keeps its own setting";
    CComPtr<IAudioClient> shared = audioClient(locked);
    EXPECT_EQ(S_OK, shared->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 500000, 0, &cd, nullptr));
}

// With Windows' default settings an exclusive stream opens while shared streams play: they
// are cut off, and every call on them that needs the device answers that it was invalidated,
// for good. While it holds the endpoint, no other stream opens there. With "Give exclusive
// mode applications priority" unticked, the exclusive stream is refused instead while a
// shared one is open.
TEST_F(StreamSettings, AnExclusiveStreamCutsOffSharedStreamsUnlessTheyHavePriority) {
    const WAVEFORMATEX cd = waveFormat(WAVE_FORMAT_PCM, 48000, 16, 2);
    auto shared = [&](IMMDevice* endpoint) {
        CComPtr<IAudioClient> client = audioClient(endpoint);
        EXPECT_EQ(S_OK, client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 500000, 0, &cd, nullptr));
        return client;
    };
    auto exclusive = [&](IMMDevice* endpoint) {
        return audioClient(endpoint)->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100000, 100000,
                                                 &cd, nullptr);
    };
    CComPtr<IMMDevice> speakers = device(kSpeakers);
    CComPtr<IAudioClient> playing = shared(speakers);
    CComPtr<IAudioRenderClient> render;
    ASSERT_EQ(S_OK, playing->GetService(IID_IAudioRenderClient, reinterpret_cast<void**>(&render)));
    BYTE* data = nullptr;
    ASSERT_EQ(S_OK, render->GetBuffer(480, &data));
    ASSERT_EQ(S_OK, render->ReleaseBuffer(480, 0));
    ASSERT_EQ(S_OK, playing->Start());

    CComPtr<IAudioClient> holder = audioClient(speakers);
    ASSERT_EQ(S_OK,
              holder->Initialize(AUDCLNT_SHAREMODE_EXCLUSIVE, 0, 100000, 100000, &cd, nullptr));
    UINT32 padding = 0;
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, playing->GetCurrentPadding(&padding));
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, render->GetBuffer(480, &data));
    EXPECT_EQ(nullptr, data);
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, playing->Start());
    EXPECT_EQ(AUDCLNT_E_DEVICE_IN_USE, exclusive(speakers)) << "a second holder";
    CComPtr<IAudioClient> refused = audioClient(speakers);
    EXPECT_EQ(AUDCLNT_E_DEVICE_IN_USE,
              refused->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 500000, 0, &cd, nullptr));
    holder.Release();
    EXPECT_EQ(AUDCLNT_E_DEVICE_INVALIDATED, playing->GetCurrentPadding(&padding))
        << "a stream cut off stays cut off";
    CComPtr<IAudioClient> again = shared(speakers);
    EXPECT_EQ(S_OK, again->GetCurrentPadding(&padding));

    CComPtr<IMMDevice> polite = device(kPolite);
    CComPtr<IAudioClient> kept = shared(polite);
    EXPECT_EQ(AUDCLNT_E_DEVICE_IN_USE, exclusive(polite)) << "no priority for exclusive mode";
    EXPECT_EQ(S_OK, kept->GetCurrentPadding(&padding));
    kept.Release();
    EXPECT_EQ(S_OK, exclusive(polite)) << "once the shared stream is closed";
}

// A capture stream's padding is every frame it holds, in however many packets; the next
// packet is one device period of them.
TEST_F(StreamSettings, CapturePaddingCountsEveryFrameWaiting) {
    sim::setClockMode(sim::ClockMode::Virtual);
    sim::holdVirtualTime(true);
    CComPtr<IAudioClient> client = audioClient(device(kMicrophone));
    WAVEFORMATEX* mix = nullptr;
    ASSERT_EQ(S_OK, client->GetMixFormat(&mix));
    HRESULT hr = client->Initialize(AUDCLNT_SHAREMODE_SHARED, 0, 5000000, 0, mix, nullptr);
    CoTaskMemFree(mix);
    ASSERT_EQ(S_OK, hr);
    CComPtr<IAudioCaptureClient> capture;
    ASSERT_EQ(S_OK,
              client->GetService(IID_IAudioCaptureClient, reinterpret_cast<void**>(&capture)));
    ASSERT_EQ(S_OK, client->Start());
    Sleep(100); // ten periods
    UINT32 padding = 0, next = 0, counted = 0;
    ASSERT_EQ(S_OK, client->GetCurrentPadding(&padding));
    ASSERT_EQ(S_OK, capture->GetNextPacketSize(&next));
    EXPECT_GT(next, 0u);
    EXPECT_GE(padding, 2 * next) << "more than one packet waits";
    for (int packet = 0; packet < 100 && counted < padding; ++packet) {
        BYTE* data = nullptr;
        UINT32 frames = 0;
        DWORD flags = 0;
        ASSERT_EQ(S_OK, capture->GetBuffer(&data, &frames, &flags, nullptr, nullptr));
        UINT32 held = 0;
        EXPECT_EQ(S_OK, client->GetCurrentPadding(&held));
        EXPECT_EQ(padding - counted, held) << "a packet handed out still counts";
        counted += frames;
        ASSERT_EQ(S_OK, capture->ReleaseBuffer(frames));
    }
    EXPECT_EQ(padding, counted);
    EXPECT_EQ(S_OK, client->Stop());
}

// The wave mapper (WAVE_MAPPER) streams on the console default as it is now: when the
// user's choice is disabled, on the endpoint that took its role.
TEST(LegacyMapper, FollowsTheCurrentConsoleDefault) {
    sim::installMachine(model::loadMachine("laptop"));
    CComPtr<IMMDeviceEnumerator> enumerator;
    ASSERT_EQ(S_OK, enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator));
    for (EDataFlow flow : {eRender, eCapture}) {
        auto consoleDefault = [&] {
            CComPtr<IMMDevice> device;
            EXPECT_EQ(S_OK, enumerator->GetDefaultAudioEndpoint(flow, eConsole, &device));
            return device ? narrow(idOf(device)) : std::string();
        };
        const std::string chosen = consoleDefault();
        ASSERT_TRUE(sim::setEndpointState(chosen, DEVICE_STATE_DISABLED));
        const std::string current = consoleDefault();
        ASSERT_NE(chosen, current);

        const WAVEFORMATEX f = waveFormat(WAVE_FORMAT_PCM, 48000, 16, 2);
        std::vector<char> bytes(f.nAvgBytesPerSec); // a second
        WAVEHDR header{};
        header.lpData = bytes.data();
        header.dwBufferLength = DWORD(bytes.size());
        if (flow == eRender) {
            HWAVEOUT out = nullptr;
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveOutOpen(&out, WAVE_MAPPER, &f, 0, 0, CALLBACK_NULL));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveOutPrepareHeader(out, &header, sizeof header));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutWrite(out, &header, sizeof header));
            EXPECT_TRUE(sim::isStreaming(current)) << current;
            EXPECT_FALSE(sim::isStreaming(chosen)) << chosen;
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutReset(out));
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveOutUnprepareHeader(out, &header, sizeof header));
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveOutClose(out));
        } else {
            HWAVEIN in = nullptr;
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveInOpen(&in, WAVE_MAPPER, &f, 0, 0, CALLBACK_NULL));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInPrepareHeader(in, &header, sizeof header));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInAddBuffer(in, &header, sizeof header));
            ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInStart(in));
            EXPECT_TRUE(sim::isStreaming(current)) << current;
            EXPECT_FALSE(sim::isStreaming(chosen)) << chosen;
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInReset(in));
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR),
                      waveInUnprepareHeader(in, &header, sizeof header));
            EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInClose(in));
        }
        EXPECT_FALSE(sim::isStreaming(current));
        ASSERT_TRUE(sim::setEndpointState(chosen, DEVICE_STATE_ACTIVE));
    }
}

// While a block records, a program may read its byte count (as the flags) at any time: it
// only grows, in whole frames, up to the block's length. Real time, so that the platform's
// own thread fills the block while this one reads.
TEST(LegacyHeaders, RecordedBytesCanBeReadWhileTheBlockFills) {
    sim::installMachine(model::loadMachine("laptop"));
    sim::setClockMode(sim::ClockMode::Real);
    const WAVEFORMATEX f = waveFormat(WAVE_FORMAT_PCM, 48000, 16, 2);
    std::vector<char> bytes(f.nAvgBytesPerSec / 10); // 100 ms
    WAVEHDR header{};
    header.lpData = bytes.data();
    header.dwBufferLength = DWORD(bytes.size());
    HWAVEIN in = nullptr;
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInOpen(&in, 0, &f, 0, 0, CALLBACK_NULL));
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInPrepareHeader(in, &header, sizeof header));
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInAddBuffer(in, &header, sizeof header));
    ASSERT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInStart(in));
    std::atomic_ref<DWORD> recorded(header.dwBytesRecorded), flags(header.dwFlags);
    DWORD last = 0;
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!(flags.load() & WHDR_DONE) && std::chrono::steady_clock::now() < limit) {
        const DWORD now = recorded.load();
        EXPECT_GE(now, last);
        EXPECT_EQ(0u, now % f.nBlockAlign);
        last = now;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    ASSERT_TRUE(flags.load() & WHDR_DONE);
    EXPECT_EQ(header.dwBufferLength, recorded.load());
    EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInUnprepareHeader(in, &header, sizeof header));
    EXPECT_EQ(MMRESULT(MMSYSERR_NOERROR), waveInClose(in));
}

} // namespace
