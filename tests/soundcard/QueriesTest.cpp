// Endpoint queries: which endpoint is of a kind, by node type and state, in what order, and
// how the results are appended; the handle forms and how long their handles hold.
#include "SoundCardSupport.h"

#include <map>

namespace soundcard {
namespace {

using model::Flow;

typedef qel::Uint32 (SoundCard::*ValueQuery)(qel::Array<AudioDevice>&) const;
typedef qel::Uint32 (SoundCard::*FilteredQuery)(qel::Array<AudioDevice>&, qel::Uint32) const;
typedef qel::Uint32 (SoundCard::*HandleQuery)(qel::Array<AudioDevicePtr>&);

std::vector<std::string> run(const SoundCard& card, ValueQuery query) {
    qel::Array<AudioDevice> result;
    qel::Uint32 found = (card.*query)(result);
    EXPECT_EQ(found, result.size());
    return ids(result);
}

std::vector<std::string> run(const SoundCard& card, FilteredQuery query, qel::Uint32 filter) {
    qel::Array<AudioDevice> result;
    qel::Uint32 found = (card.*query)(result, filter);
    EXPECT_EQ(found, result.size());
    return ids(result);
}

std::vector<std::string> runHandles(SoundCard& card, HandleQuery query) {
    qel::Array<AudioDevicePtr> result;
    qel::Uint32 found = (card.*query)(result);
    EXPECT_EQ(found, result.size());
    return ids(result);
}

typedef std::vector<std::string> Ids;

TEST(QueriesTest, LaptopCards) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using namespace laptop;
    SoundCard codec = cardOf(cards, kRealtek);
    // Without a filter only the plain microphone node counts; with one, the array too.
    EXPECT_EQ(run(codec, &SoundCard::microphoneEndpointDevice), Ids{kHeadsetMic});
    EXPECT_EQ(run(codec, &SoundCard::microphoneEndpointDevice, 15), (Ids{kMicArray, kHeadsetMic}));
    // Headphones before speakers, whatever the list's order.
    EXPECT_EQ(run(codec, &SoundCard::waveOutEndpointDevice), (Ids{kHeadphones, kSpeakers}));
    EXPECT_EQ(run(codec, &SoundCard::speakerEndpointDevice, DEVICE_STATE_ACTIVE), Ids{kSpeakers});
    EXPECT_EQ(run(codec, &SoundCard::allPlaybackDevice), (Ids{kSpeakers, kHeadphones}));
    EXPECT_EQ(run(codec, &SoundCard::allRecordDevice), (Ids{kMicArray, kHeadsetMic}));
    EXPECT_TRUE(run(codec, &SoundCard::hdmiOutEndpointDevice).empty());
    EXPECT_TRUE(run(codec, &SoundCard::lineInEndpointDevice).empty());
    EXPECT_TRUE(run(codec, &SoundCard::loopbackMixEndpointDevice).empty());
    EXPECT_EQ(run(cardOf(cards, kIntel), &SoundCard::hdmiOutEndpointDevice), Ids{kHdmi});
    EXPECT_EQ(run(cardOf(cards, kUsb), &SoundCard::microphoneEndpointDevice), Ids{kUsbMic});
}

TEST(QueriesTest, DesktopCardsByKindAndState) {
    installBundled("desktop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using namespace desktop;
    SoundCard codec = cardOf(cards, kRealtek);
    EXPECT_EQ(run(codec, &SoundCard::lineInEndpointDevice), Ids{kLineIn});
    // One node type, two lists: S/PDIF out is a playback endpoint, S/PDIF in would be a
    // record endpoint and there is none.
    EXPECT_EQ(run(codec, &SoundCard::spdifOutEndpointDevice), Ids{kSpdif});
    EXPECT_TRUE(run(codec, &SoundCard::spdifInEndpointDevice).empty());
    EXPECT_TRUE(run(codec, &SoundCard::spdifInEndpointDevice, 15).empty());
    EXPECT_EQ(run(cardOf(cards, kNvidia), &SoundCard::displayportOutEndpointDevice),
              Ids{kDisplayPort});

    struct Case {
        qel::Uint32 filter;
        Ids microphones;
    } cases[] = {{15, {kMicrophone, kFrontMic}},
                 {DEVICE_STATE_ACTIVE, {kMicrophone}},
                 {DEVICE_STATE_UNPLUGGED, {kFrontMic}},
                 {DEVICE_STATE_DISABLED | DEVICE_STATE_NOTPRESENT, {}},
                 {0, {}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.filter);
        EXPECT_EQ(run(codec, &SoundCard::microphoneEndpointDevice, c.filter), c.microphones);
    }
    EXPECT_EQ(run(codec, &SoundCard::microphoneEndpointDevice), (Ids{kMicrophone, kFrontMic}));

    // The handle forms take every state.
    EXPECT_EQ(runHandles(codec, &SoundCard::microphoneEndpointDevice),
              (Ids{kMicrophone, kFrontMic}));
    EXPECT_EQ(runHandles(codec, &SoundCard::speakerEndpointDevice), Ids{kSpeakers});
    EXPECT_EQ(runHandles(codec, &SoundCard::waveOutEndpointDevice), (Ids{kHeadphones, kSpeakers}));
    EXPECT_EQ(runHandles(codec, &SoundCard::lineInEndpointDevice), Ids{kLineIn});
    EXPECT_EQ(runHandles(codec, &SoundCard::spdifOutEndpointDevice), Ids{kSpdif});
    EXPECT_TRUE(runHandles(codec, &SoundCard::spdifInEndpointDevice).empty());
}

TEST(QueriesTest, MicrophoneKindsInTheirSearchOrder) {
    model::MachineBuilder b("microphones");
    b.adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0100\\1", "Codec");
    struct Pin {
        const char* name;
        GUID type;
        std::uint32_t state;
    } pins[] = {{"Plain", KSNODETYPE_MICROPHONE, model::STATE_ACTIVE},
                {"Array", KSNODETYPE_MICROPHONE_ARRAY, model::STATE_ACTIVE},
                {"Desktop", KSNODETYPE_DESKTOP_MICROPHONE, model::STATE_ACTIVE},
                {"Omni", KSNODETYPE_OMNI_DIRECTIONAL_MICROPHONE, model::STATE_ACTIVE},
                {"Personal", KSNODETYPE_PERSONAL_MICROPHONE, model::STATE_ACTIVE},
                {"Second omni", KSNODETYPE_OMNI_DIRECTIONAL_MICROPHONE, model::STATE_DISABLED}};
    std::map<std::string, std::string> idOf;
    const std::string filter = "{2}.\\\\?\\hdaudio#mics#topo";
    b.device(filter);
    for (std::uint32_t i = 0; i < 6; ++i) {
        b.connector(pins[i].name, pins[i].type, model::ConnectorType::PhysicalExternal, 0);
    }
    for (std::uint32_t i = 0; i < 6; ++i) {
        b.endpoint(Flow::Capture, pins[i].name).state(pins[i].state).endpointDevice();
        idOf[pins[i].name] = b.lastEndpoint().id;
        b.connect({b.lastEndpoint().id, 0}, {filter, i});
    }
    sim::installMachine(b.build());
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(run(cards[0], &SoundCard::microphoneEndpointDevice, 15),
              (Ids{idOf["Omni"], idOf["Second omni"], idOf["Personal"], idOf["Desktop"],
                   idOf["Array"], idOf["Plain"]}));
    EXPECT_EQ(run(cards[0], &SoundCard::microphoneEndpointDevice, DEVICE_STATE_ACTIVE),
              (Ids{idOf["Omni"], idOf["Personal"], idOf["Desktop"], idOf["Array"], idOf["Plain"]}));
    EXPECT_EQ(run(cards[0], &SoundCard::microphoneEndpointDevice), Ids{idOf["Plain"]});
}

TEST(QueriesTest, ResultsAreAppendedAndOnlyTheNewOnesCounted) {
    installBundled("laptop");
    SoundCard codec = cardOf(SoundCard::enumerateSystemSoundDevices(false), laptop::kRealtek);
    qel::Array<AudioDevice> result;
    result.append(endpoint(laptop::kUsbMic));
    EXPECT_EQ(codec.waveOutEndpointDevice(result), 2u);
    EXPECT_EQ(codec.allPlaybackDevice(result, DEVICE_STATE_ACTIVE), 2u);
    EXPECT_EQ(codec.microphoneEndpointDevice(result, 15), 2u);
    EXPECT_EQ(codec.loopbackMixEndpointDevice(result), 0u);
    EXPECT_EQ(ids(result),
              (Ids{laptop::kUsbMic, laptop::kHeadphones, laptop::kSpeakers, laptop::kSpeakers,
                   laptop::kHeadphones, laptop::kMicArray, laptop::kHeadsetMic}));
    qel::Array<AudioDevicePtr> handles;
    EXPECT_EQ(codec.waveOutEndpointDevice(handles), 2u);
    EXPECT_EQ(codec.speakerEndpointDevice(handles), 1u);
    EXPECT_EQ(handles.size(), 3u);
    // The same endpoint is handed out as the same object.
    EXPECT_EQ(handles[1].get(), handles[2].get());
}

TEST(QueriesTest, MessagesAndScopes) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, laptop::kRealtek);
    LogCapture log;
    qel::Array<AudioDevice> result;
    codec.allPlaybackDevice(result, DEVICE_STATE_ACTIVE);
    EXPECT_EQ(
        messagesOnly(log, kCardLog, kDebug),
        (Ids{"508 searchFrom.size() = 2 device filter = 1", "516 Appending device Speakers",
             "517 Device has NodeType KSNODETYPE_SPEAKER", "516 Appending device Headphones",
             "518 Device has NodeType KSNODETYPE_HEADPHONES", "522 Number of found device = 2"}));
    EXPECT_TRUE(contains(scopes(log, kCardLog), "SoundCard::allActiveEndpointDevice"));

    log.clear();
    cardOf(cards, laptop::kIntel).allPlaybackDevice(result, 15);
    EXPECT_TRUE(contains(messagesOnly(log, kCardLog, kDebug),
                         "519 Device has no SPEAKER or HEADPHONE NodeType"));

    log.clear();
    codec.speakerEndpointDevice(result, 15);
    EXPECT_EQ(messagesOnly(log, kCardLog, kDebug),
              (Ids{"537 searchFrom.size() = 2 device filter = 15 DeviceGUID "
                   "{DFF21CE1-F70F-11D0-B917-00A0C9223196}",
                   "544 Appending device Speakers", "547 Number of found device = 1"}));
    // The filtered overloads open no scope of their own; the plain ones do.
    EXPECT_FALSE(contains(scopes(log, kCardLog), "SoundCard::speakerEndpointDevice"));
    log.clear();
    codec.lineInEndpointDevice(result);
    codec.lineInEndpointDevice(result, 15);
    std::vector<std::string> entered = scopes(log, kCardLog);
    EXPECT_EQ(std::count(entered.begin(), entered.end(), "SoundCard::lineInEndpointDevice"), 1);
}

TEST(QueriesTest, HandlesOutliveTheEndpointLeavingTheCard) {
    installBundled("desktop");
    SoundCard codec;
    ASSERT_TRUE(SoundCard::createSoundCard(text(desktop::kRealtek), codec, true));
    qel::Array<AudioDevicePtr> handles;
    ASSERT_EQ(codec.microphoneEndpointDevice(handles), 2u);
    ASSERT_TRUE(sim::removeEndpoint(desktop::kMicrophone));
    ASSERT_TRUE(sim::removeEndpoint(desktop::kFrontMic));
    sim::waitForNotifications();
    EXPECT_TRUE(recordIds(codec) == Ids{desktop::kLineIn});
    // The handles still name what they were given.
    EXPECT_EQ(ids(handles), (Ids{desktop::kMicrophone, desktop::kFrontMic}));
    EXPECT_EQ(handles[1]->deviceProperty().state, DEVICE_STATE_UNPLUGGED);
    qel::Array<AudioDevicePtr> again;
    EXPECT_EQ(codec.microphoneEndpointDevice(again), 0u);
}

} // namespace
} // namespace soundcard
