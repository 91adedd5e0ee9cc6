// The client capture: how it asks the driver for a buffer, how it starts, stops, fails and
// reports, and that every packet the device hands over lands in the buffer, in order.
#include "StreamingSupport.h"

#include "libAudio/AudioRenderer.h"

namespace streaming {
namespace {

constexpr REFERENCE_TIME kPeriod = 100000; // the laptop's default device period
// An exclusive stream's packet is its period, which is its buffer: 500 periods halved until
// the driver takes them, 312.5 ms.
constexpr std::uint32_t kPacketFrames = 15000;
const std::string kLog = "libAudio.AudioCaptureEx";
const std::string kBadState =
    "Unable to initialize IAudioClient. System audio driver is in bad state";
const std::string kAborted = "User aborted the playback. Thread may have died";

std::string hex(HRESULT hr) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", unsigned(hr));
    return text;
}

struct Refusal {
    const char* name;
    std::string operation;
    std::vector<HRESULT> results;
    bool initialized;
    // (priority, text, times logged)
    std::vector<std::tuple<int, std::string, int>> records;
    std::vector<REFERENCE_TIME> durations; // asked of Initialize, when checked
    std::size_t sharedAt = 0;              // the one request in shared mode; 0: none
};

class CaptureInitializeTest : public StreamingTest,
                              public ::testing::WithParamInterface<Refusal> {};

TEST_P(CaptureInitializeTest, AsksForFiveHundredPeriodsAndRecordsEachRefusal) {
    const Refusal& refusal = GetParam();
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer recorded = recording(0.1);
    if (!refusal.operation.empty()) {
        sim::addFault({refusal.operation, refusal.operation == "CreateEventW" ? "" : kMicArray,
                       refusal.results, refusal.results.size() == 1});
    }
    libAudio::AudioCaptureEx capture;
    EXPECT_EQ(refusal.initialized, capture.initialize(device(kMicArray), &recorded));
    for (const auto& [priority, text, times] : refusal.records) {
        EXPECT_EQ(times, testsupport::countOf(log, kLog, priority, text)) << text;
    }
    std::vector<sim::InitializeRequest> requests = sim::takeInitializeRequests();
    if (!refusal.durations.empty()) {
        std::vector<REFERENCE_TIME> asked;
        for (std::size_t i = 0; i < requests.size() && i < refusal.durations.size(); ++i) {
            asked.push_back(requests[i].duration);
            EXPECT_EQ(i && i == refusal.sharedAt, requests[i].mode == AUDCLNT_SHAREMODE_SHARED);
        }
        EXPECT_EQ(refusal.durations, asked);
    }
}

// 500 periods is 5 s; the driver takes no period above 500 ms, so the request is halved.
const std::vector<REFERENCE_TIME> kHalvings = {500 * kPeriod, 250 * kPeriod, 125 * kPeriod,
                                               625 * kPeriod / 10, 3125 * kPeriod / 100};

std::vector<REFERENCE_TIME> misalignedPass() {
    std::vector<REFERENCE_TIME> pass;
    for (REFERENCE_TIME d = 500 * kPeriod; d > kPeriod; d /= 2) {
        pass.push_back(d);
    }
    pass.push_back(pass.back() / 2); // at most one period: the next refusal ends the pass
    return pass;
}

std::vector<REFERENCE_TIME> twice(std::vector<REFERENCE_TIME> pass) {
    std::vector<REFERENCE_TIME> both = pass;
    both.insert(both.end(), pass.begin(), pass.end());
    return both;
}

INSTANTIATE_TEST_SUITE_P(
    Driver, CaptureInitializeTest,
    ::testing::Values(
        Refusal{"Halving",
                "",
                {},
                true,
                {{kError,
                  "IAudioClient::Initialize returns " + hex(AUDCLNT_E_INVALID_DEVICE_PERIOD), 4}},
                kHalvings},
        // Shared mode, with the same duration, for a device another stream holds.
        Refusal{"SharedModeForABusyDevice",
                "Initialize",
                {AUDCLNT_E_DEVICE_IN_USE, S_OK},
                true,
                {{kError, "IAudioClient::Initialize returns " + hex(AUDCLNT_E_DEVICE_IN_USE), 1}},
                {500 * kPeriod, 500 * kPeriod},
                1},
        Refusal{
            "AlwaysMisaligned",
            "Initialize",
            {AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED},
            false,
            {{kError, "IAudioClient::Initialize returns " + hex(AUDCLNT_E_BUFFER_SIZE_NOT_ALIGNED),
              int(twice(misalignedPass()).size())},
             {kFatal, kBadState, 1}},
            twice(misalignedPass())},
        Refusal{"Activation",
                "Activate.IAudioClient",
                {E_OUTOFMEMORY},
                false,
                {{kError, "Cannot activa an IAudioClient from IMMDevice", 1}},
                {}},
        Refusal{"Format",
                "IsFormatSupported",
                {AUDCLNT_E_UNSUPPORTED_FORMAT},
                false,
                {{kFatal,
                  "Format requested is not supported " +
                      std::to_string(int(AUDCLNT_E_UNSUPPORTED_FORMAT)),
                  1}},
                {}},
        Refusal{"NoEvent",
                "CreateEventW",
                {8},
                true,
                {{kError,
                  "Driver problem : IAudioClient initialized with "
                  "AUDCLNT_STREAMFLAGS_EVENTCALLBACK, but CreateEvent failed",
                  1},
                 {kError, "GetLastError() = 8", 1}},
                {}}),
    [](const auto& info) { return std::string(info.param.name); });

using ClientCaptureTest = StreamingTest;

TEST_F(ClientCaptureTest, ExitCodesOfAFreshAFullAFailedAndAnUnservedRecording) {
    testsupport::LogCapture log;
    libAudio::AudioCaptureEx fresh;
    EXPECT_EQ(128, fresh.threadExitCode());

    {
        libAudio::StaticPCMBuffer full = recording(0.1);
        full.fillDataBlocks(qel::Buffer<unsigned char>(full.pcmArray()));
        libAudio::AudioCaptureEx capture(device(kMicArray), &full);
        ASSERT_TRUE(capture.start(never()));
        EXPECT_EQ(0, capture.threadExitCode());
        EXPECT_TRUE(logged(log, kLog, kDebug, " PCM buffer available space 0 bytes"));
    }

    // A worker that could not start the client has ended: start does not wait in vain.
    libAudio::StaticPCMBuffer empty = recording(0.1);
    {
        fault("Start", kMicArray, {E_FAIL});
        libAudio::AudioCaptureEx failing(device(kMicArray), &empty);
        int asked = 0;
        EXPECT_FALSE(failing.start([&] { return ++asked == 100; }));
        EXPECT_LT(asked, 100);
        EXPECT_EQ(-1, failing.threadExitCode());
        EXPECT_TRUE(logged(log, kLog, kError, "IAudioClient::Start failed"));
        EXPECT_FALSE(logged(log, kLog, kFatal, kAborted));
    }

    fault("GetService", kMicArray, {E_NOINTERFACE});
    libAudio::AudioCaptureEx unserved(device(kMicArray), &empty);
    EXPECT_FALSE(unserved.start(never()));
    EXPECT_TRUE(logged(log, kLog, kFatal,
                       "IAudioClient::GetService failed " + std::to_string(int(E_NOINTERFACE))));
    EXPECT_EQ(128, unserved.threadExitCode());

    sim::failNextCoTaskMemAlloc();
    EXPECT_FALSE(unserved.start(never()));
    EXPECT_TRUE(logged(log, kLog, kError,
                       "No capture thread created. Check system for available resources"));
    EXPECT_FALSE(unserved.isStillRecording());
}

// A refused packet ends the recording normally, with what came before it.
TEST_F(ClientCaptureTest, AFailedPacketEndsTheRecordingWithExitCodeZero) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer recorded = recording(1.0);
    libAudio::AudioCaptureEx capture(device(kMicArray), &recorded);
    fault("GetBuffer", kMicArray, {S_OK, AUDCLNT_E_BUFFER_ERROR});
    ASSERT_TRUE(capture.start(never()));
    EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    EXPECT_EQ(0, capture.threadExitCode());
    EXPECT_TRUE(logged(log, kLog, kError,
                       "GetBuffer failed " + std::to_string(int(AUDCLNT_E_BUFFER_ERROR))));
    EXPECT_EQ(kPacketFrames * 4, recorded.writeMarker()) << "the one packet before";
}

// The driver takes its time to start; the caller gives up meanwhile: start returns once
// the worker has ended, and nothing records.
TEST_F(ClientCaptureTest, AnAbortStopsTheCaptureBeforeStartReturns) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer recorded = recording(0.5);
    libAudio::AudioCaptureEx capture(device(kMicArray), &recorded);
    sim::setStreamStartLatency(300000);
    EXPECT_FALSE(capture.start([] { return true; }));
    EXPECT_TRUE(logged(log, kLog, kFatal, kAborted));
    EXPECT_FALSE(capture.isStillRecording());
    EXPECT_FALSE(sim::isStreaming(kMicArray));
    EXPECT_EQ(0, capture.threadExitCode());
    EXPECT_EQ(0u, recorded.writeMarker());
}

struct MidwayAction {
    const char* name;
    std::function<void(libAudio::AudioCaptureEx&)> act;
    bool endsRecording;
};

class MidRecordingTest : public StreamingTest,
                         public ::testing::WithParamInterface<MidwayAction> {};

// Only stop ends a recording early; reset cannot touch a running client and the time-out
// is the event-driven routine's alone.
TEST_P(MidRecordingTest, OnlyStopEndsARecordingEarly) {
    libAudio::StaticPCMBuffer recorded = recording(1.0);
    libAudio::AudioCaptureEx capture(device(kMicArray), &recorded);
    ASSERT_TRUE(capture.start(never()));
    Sleep(400); // one packet in
    GetParam().act(capture);
    if (GetParam().endsRecording) {
        EXPECT_FALSE(capture.isStillRecording());
        EXPECT_FALSE(sim::isStreaming(kMicArray));
        EXPECT_GT(recorded.writeMarker(), 0u);
        EXPECT_LT(recorded.writeMarker(), recorded.pcmArray().size() / 2);
    } else {
        EXPECT_TRUE(capture.isStillRecording());
        EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
        EXPECT_EQ(recorded.pcmArray().size(), recorded.writeMarker());
    }
    EXPECT_EQ(0, capture.threadExitCode());
}

INSTANTIATE_TEST_SUITE_P(
    Capture, MidRecordingTest,
    ::testing::Values(MidwayAction{"Stop", [](auto& c) { EXPECT_TRUE(c.stop()); }, true},
                      MidwayAction{"Reset", [](auto& c) { c.reset(); }, false},
                      MidwayAction{"SetTimeout", [](auto& c) { c.setTimeout(1); }, false}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(ClientCaptureTest, AnUnroutedMicrophoneRecordsDigitalSilence) {
    libAudio::StaticPCMBuffer recorded = recording(0.2, 1);
    libAudio::AudioCaptureEx capture(device(kLoneMic), &recorded);
    ASSERT_TRUE(capture.start(never()));
    ASSERT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
    EXPECT_EQ(0, capture.threadExitCode());
    EXPECT_EQ(recorded.pcmArray().size(), recorded.writeMarker());
    EXPECT_EQ(libAudio::kSilenceDbfs, libAudio::levelDbfs(recorded, 0));
}

// Every packet is copied whatever its flags, the last only in part and yet released; a new
// start discards what the device still holds and records from its beginning again.
TEST_F(CleanRouteTest, EveryPacketLandsInOrderAndASecondRecordingStartsAfresh) {
    testsupport::LogCapture log;
    libAudio::StaticPCMBuffer played = pattern(kLoopFrames);
    libAudio::AudioRendererEx renderer(device(m_out), &played);
    ASSERT_TRUE(renderer.play(0, never()));
    // Two packets and half of a third.
    libAudio::StaticPCMBuffer recorded = recording(2.5 * kPacketFrames / 48000);
    libAudio::AudioCaptureEx capture(device(m_in), &recorded);
    for (int round = 0; round < 2; ++round) {
        fault("DataDiscontinuity", m_in, {S_OK, 1});
        recorded.resetWriteMarker();
        ASSERT_TRUE(capture.start(never()));
        EXPECT_TRUE(waitFor([&] { return !capture.isStillRecording(); }));
        EXPECT_EQ(0, capture.threadExitCode());
        EXPECT_EQ(recorded.pcmArray().size(), recorded.writeMarker()) << "round " << round;
        for (unsigned int c : {0u, 1u}) {
            LoopFollowed heard = followLoop(channelOf(recorded, c), channelOf(played, c));
            EXPECT_EQ(0u, heard.mismatches) << "round " << round << ", channel " << c;
        }
    }
    renderer.stop();
    EXPECT_EQ(0, countStarting(log, kLog, kError, "GetBuffer failed"));
    EXPECT_EQ(2, countStarting(log, kLog, kDebug, "Flag 0x00000000 DevicePosition 0 "))
        << "each recording begins at the device's first frame";
    EXPECT_EQ(2, countStarting(log, kLog, kDebug,
                               "Flag " + hex(AUDCLNT_BUFFERFLAGS_DATA_DISCONTINUITY) +
                                   " DevicePosition " + std::to_string(kPacketFrames) + " "));
}

} // namespace
} // namespace streaming
