// Shared by the streaming tests: the laptop's endpoints, a fixture that runs the simulated
// platform on virtual time, tones, and what a recording measures.
#pragma once

#include "libAudio/AudioCapture.h"
#include "libAudio/PCMSupport.h"
#include "libAudio/SignalAnalysis.h"
#include "libAudio/StaticPCMBuffer.h"
#include "platform/CComPtr.h"
#include "platform/model/Finish.h"
#include "platform/model/JsonLoader.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"
#include "platform/win32.h"
#include "support/LogMessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace streaming {

inline const std::string kSpeakers = "{0.0.0.00000000}.{3b1f6d2a-7c4e-4a8b-9f21-5d6e7a8b9c01}";
inline const std::string kHeadphones = "{0.0.0.00000000}.{8e2a4c6d-1b3f-4d5e-a7c9-0f1e2d3c4b02}";
inline const std::string kMicArray = "{0.0.1.00000000}.{2c4e6a8b-5d7f-4b9c-a1e3-4f5a6b7c8d06}";
inline const std::string kHeadsetMic = "{0.0.1.00000000}.{6d8f0a2c-7e9b-4d1f-b3a5-5a6b7c8d9e07}";
inline const std::string kLoneMic = "{0.0.1.00000000}.{e1f3a5c7-9b0d-4e2f-8a4c-6b7c8d9e0f08}";

constexpr int kDebug = 1, kInfo = 2, kError = 3, kFatal = 4;

// Every streaming test runs on a fresh laptop in virtual time.
class StreamingTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(model::loadMachine("laptop"));
        sim::setClockMode(sim::ClockMode::Virtual);
        // The test's own thread takes part: time moves only while it sleeps.
        sim::holdVirtualTime(true);
        sim::takeInitializeRequests();
    }
    void TearDown() override {
        sim::holdVirtualTime(false);
        sim::clearFaults();
        sim::setStreamStartLatency(0);
    }

    static CComPtr<IMMDevice> device(const std::string& id) {
        CComPtr<IMMDeviceEnumerator> enumerator;
        EXPECT_EQ(S_OK, enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator));
        CComPtr<IMMDevice> found;
        std::u16string wide(id.begin(), id.end());
        EXPECT_EQ(S_OK, enumerator->GetDevice(reinterpret_cast<LPCWSTR>(wide.c_str()), &found));
        return found;
    }
};

inline void fault(std::string operation, std::string target, std::vector<HRESULT> results,
                  bool sticky = false) {
    sim::addFault({std::move(operation), std::move(target), std::move(results), sticky});
}

// A 16-bit tone of amplitude peak in every channel.
inline libAudio::StaticPCMBuffer tone(double frequency, double seconds, unsigned int peak = 16384,
                                      unsigned int channels = 2, unsigned int rate = 48000) {
    WAVEFORMATEX format{};
    libAudio::createWaveformatEx(channels, 16, rate, format);
    libAudio::StaticPCMBuffer buffer;
    EXPECT_TRUE(libAudio::createPCMBuffer(format, seconds, buffer));
    for (unsigned int c = 0; c < channels; ++c) {
        libAudio::createSinusoid(libAudio::PCMTrack::Channel(c), peak, frequency, buffer);
    }
    return buffer;
}

// An empty 16-bit recording buffer.
inline libAudio::StaticPCMBuffer recording(double seconds, unsigned int channels = 2,
                                           unsigned int rate = 48000) {
    WAVEFORMATEX format{};
    libAudio::createWaveformatEx(channels, 16, rate, format);
    libAudio::StaticPCMBuffer buffer;
    EXPECT_TRUE(libAudio::createPCMBuffer(format, seconds, buffer));
    return buffer;
}

// Sleeps on the platform's clock until done(), for at most 20 s of real time: virtual
// time may run far ahead of a thread that is finishing its work.
inline bool waitFor(const std::function<bool()>& done) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
        if (std::chrono::steady_clock::now() > limit) {
            return false;
        }
        Sleep(10);
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return true;
}

// Runs f on a thread of its own while the test sleeps on the platform's clock; false when
// it has not returned within 20 s of real time, after which release() must let it return.
inline bool returnsPromptly(const std::function<void()>& f, const std::function<void()>& release) {
    std::future<void> done = std::async(std::launch::async, f);
    bool prompt = waitFor(
        [&] { return done.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    if (!prompt) {
        release();
    }
    done.get();
    return prompt;
}

inline std::function<bool()> never() {
    return [] {
        return false;
    };
}

// The level of a sine of this peak in a 16-bit buffer, as levelDbfs reports it.
inline double sineLevel(unsigned int peak) {
    return 20.0 * std::log10(peak / 32768.0 / std::sqrt(2.0));
}

using testsupport::logged;

// Records whose text begins with prefix: for texts that end in a value the test cannot know.
inline int countStarting(const testsupport::LogCapture& log, const std::string& logger,
                         int priority, const std::string& prefix) {
    std::vector<std::string> all = testsupport::messages(log, logger, priority);
    return int(std::count_if(all.begin(), all.end(),
                             [&](const std::string& text) { return text.rfind(prefix, 0) == 0; }));
}

// A frame value of a pattern that no shift of itself matches, different in each channel and
// never 0, so that silence cannot pass for it: odd values from -9999 to 9999.
inline std::int16_t patternValue(unsigned int frame, unsigned int channel) {
    unsigned int step = channel ? 7907 : 7919;
    return std::int16_t(int((frame * step + channel * 3331) % 10000) * 2 - 9999);
}

// Frames of a looped pattern that fill a device buffer exactly (whole 128-byte blocks of
// 16-bit stereo) and that no refill of half a buffer divides: refills cross its end.
constexpr unsigned int kLoopFrames = 4576;

// A 16-bit pattern of frames frames.
inline libAudio::StaticPCMBuffer pattern(unsigned int frames, unsigned int channels = 2) {
    WAVEFORMATEX format{};
    libAudio::createWaveformatEx(channels, 16, 48000, format);
    WAVEFORMATEXTENSIBLE extensible{};
    extensible.Format = format;
    libAudio::StaticPCMBuffer buffer;
    buffer.initialize(frames, extensible);
    for (unsigned int frame = 0; frame < frames; ++frame) {
        for (unsigned int c = 0; c < channels; ++c) {
            std::int16_t value = patternValue(frame, c);
            std::memcpy(buffer.pcmArray().data() + (frame * channels + c) * 2, &value, 2);
        }
    }
    return buffer;
}

// One channel's samples of a 16-bit buffer.
inline std::vector<std::int16_t> channelOf(const libAudio::StaticPCMBuffer& buffer,
                                           unsigned int channel) {
    std::vector<std::int16_t> out;
    const unsigned int align = buffer.format().Format.nBlockAlign;
    const qel::Buffer<unsigned char>& bytes = buffer.pcmArray();
    for (std::size_t at = channel * 2; align && at + 2 <= bytes.size(); at += align) {
        std::int16_t value;
        std::memcpy(&value, bytes.data() + at, 2);
        out.push_back(value);
    }
    return out;
}

// How a recording follows a looped pattern.
struct LoopFollowed {
    std::size_t leadingSilence = 0; // frames before the pattern was heard
    std::size_t mismatches = 0;     // frames that do not continue it
    std::size_t wrapSilences = 0;   // silent frames where a refill crossed the pattern's end
    std::size_t rounds = 0;         // times the pattern's end went by
};

// Follows heard through loop. Where the renderer's refill crosses the end of its buffer, its
// block arithmetic delivers one silent frame at the end and drops one frame further on;
// that is its defined behaviour, and all that is forgiven.
inline LoopFollowed followLoop(const std::vector<std::int16_t>& heard,
                               const std::vector<std::int16_t>& loop) {
    LoopFollowed result;
    std::size_t i = 0;
    while (i < heard.size() && heard[i] == 0) {
        ++i;
    }
    result.leadingSilence = i;
    if (i == heard.size()) {
        return result;
    }
    auto first = std::find(loop.begin(), loop.end(), heard[i]);
    if (first == loop.end()) {
        result.mismatches = heard.size() - i;
        return result;
    }
    const std::size_t n = loop.size();
    std::size_t next = std::size_t(first - loop.begin());
    bool owesDrop = true;      // the recording may begin between a wrap's silence and its drop
    bool silenceTaken = false; // at the wrap ahead
    auto advance = [&](std::size_t frames) {
        for (; frames > 0; --frames) {
            if (++next % n == 0) {
                ++result.rounds;
                silenceTaken = false;
            }
        }
    };
    for (; i < heard.size(); ++i) {
        if (heard[i] == loop[next % n]) {
            advance(1);
        } else if (heard[i] == 0 && next % n == 0 && !silenceTaken) {
            ++result.wrapSilences;
            silenceTaken = owesDrop = true;
        } else if (owesDrop && heard[i] == loop[(next + 1) % n]) {
            advance(2);
            owesDrop = false;
        } else {
            ++result.mismatches;
        }
    }
    return result;
}

// A machine whose one route carries every sample unchanged, channel to channel: 0 dB, no
// delay, no audible noise.
class CleanRouteTest : public StreamingTest {
protected:
    void SetUp() override {
        StreamingTest::SetUp();
        m_out = model::generatedEndpointId(model::Flow::Render, 0);
        m_in = model::generatedEndpointId(model::Flow::Capture, 1);
        sim::installMachine(model::MachineBuilder("clean")
                                .adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1", "Codec")
                                .endpoint(model::Flow::Render, "Speakers", model::Speakers)
                                .endpoint(model::Flow::Capture, "Line In", model::LineLevel)
                                .route(m_out, m_in)
                                .build());
    }

    // Records seconds of channels channels while play() runs.
    libAudio::StaticPCMBuffer recordDuring(double seconds, unsigned int channels,
                                           const std::function<void()>& play) {
        libAudio::StaticPCMBuffer recorded = recording(seconds, channels);
        libAudio::AudioCaptureEx capture(device(m_in), &recorded);
        EXPECT_TRUE(capture.start(never()));
        play();
        EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
        EXPECT_EQ(0, capture.threadExitCode());
        return recorded;
    }

    std::string m_out;
    std::string m_in;
};

} // namespace streaming
