// Shared by the streaming tests: the laptop's endpoints, a fixture that runs the simulated
// platform on virtual time, tones, and what a recording measures.
#pragma once

#include "libAudio/PCMSupport.h"
#include "libAudio/SignalAnalysis.h"
#include "libAudio/StaticPCMBuffer.h"
#include "platform/CComPtr.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/Runtime.h"
#include "platform/sim/control.h"
#include "platform/win32.h"
#include "support/LogMessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <cmath>
#include <cctype>
#include <chrono>
#include <thread>
#include <functional>
#include <string>
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

} // namespace streaming
