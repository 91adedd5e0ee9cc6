// The connector map, the volume lookup along an endpoint's signal paths and the input
// selectors of a card's internal devices, on the bundled machines and on machines built to
// show the order of the walk, the neighbour rules and an inconsistent map.
#include "SoundCardSupport.h"

#include "libAudio/VolumeController.h"

#include <map>
#include <set>

namespace soundcard {
namespace {

using model::Flow;

// One entry of a map as text: its connector (or the endpoint that owns it), the connector
// on the other side of its physical link, and the connectors joined to it inside its device.
struct EntryText {
    std::string connector;
    std::string physical; // "" none, "-1" not in the map
    std::set<std::string> internal;
    bool operator==(const EntryText&) const = default;
};

std::ostream& operator<<(std::ostream& out, const EntryText& e) {
    out << e.connector << " -> [" << e.physical << "] {";
    for (const std::string& i : e.internal) {
        out << i << ";";
    }
    return out << "}";
}

std::vector<EntryText> describe(const SoundCard& card,
                                const std::map<std::string, std::string>& endpointNames) {
    const qel::Array<SoundCard::ConnectorEntry>& map = card.connectorMap();
    auto name = [&](std::int32_t index) -> std::string {
        if (index < 0 || qel::Uint32(index) >= map.size()) {
            return std::to_string(index);
        }
        const SoundCard::ConnectorEntry& e = map[qel::Uint32(index)];
        auto owner = endpointNames.find(utf8(e.owner));
        return owner != endpointNames.end() ? owner->second + " (endpoint)"
                                            : utf8(e.connector.part().name());
    };
    std::vector<EntryText> out;
    for (qel::Uint32 i = 0; i < map.size(); ++i) {
        EntryText t{name(std::int32_t(i)), "", {}};
        const qel::Array<std::int32_t>& links = map[i].links;
        for (qel::Uint32 l = 0; l < links.size(); ++l) {
            if (l == 0 && map[i].hasPhysicalLink) {
                t.physical = name(links[0]);
            } else {
                t.internal.insert(name(links[l]));
            }
        }
        out.push_back(t);
    }
    return out;
}

TEST(ConnectorMapTest, LaptopCodecAndDisplayAudio) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using namespace laptop;
    std::map<std::string, std::string> names = {{kSpeakers, "Speakers"},
                                                {kHeadphones, "Headphones"},
                                                {kMicArray, "Microphone Array"},
                                                {kHeadsetMic, "Headset Microphone"},
                                                {kHdmi, "Monitor 24"}};
    // The endpoints' connectors, playback first, then the codec filter's pins in index
    // order. Pins are wired back to their endpoints; inside the filter the playback pins
    // share the DAC and the microphones the ADC.
    EXPECT_EQ(describe(cardOf(cards, kRealtek), names),
              (std::vector<EntryText>{
                  {"Speakers (endpoint)", "Speaker", {}},
                  {"Headphones (endpoint)", "Headphone", {}},
                  {"Microphone Array (endpoint)", "Microphone Array", {}},
                  {"Headset Microphone (endpoint)", "Headset Microphone", {}},
                  {"Speaker", "Speakers (endpoint)", {"Playback"}},
                  {"Headphone", "Headphones (endpoint)", {"Playback"}},
                  {"Microphone Array", "Microphone Array (endpoint)", {"Capture"}},
                  {"Headset Microphone", "Headset Microphone (endpoint)", {"Capture"}},
                  {"Playback", "", {"Speaker", "Headphone"}},
                  {"Capture", "", {"Microphone Array", "Headset Microphone"}},
              }));
    // The HDMI pin's filter is wired on to the function's wave filter: the walk reaches a
    // second internal device through the first.
    SoundCard intel = cardOf(cards, kIntel);
    EXPECT_EQ(describe(intel, names), (std::vector<EntryText>{
                                          {"Monitor 24 (endpoint)", "HDMI Out", {}},
                                          {"HDMI Out", "Monitor 24 (endpoint)", {"Wave In"}},
                                          {"Wave In", "Wave Out", {"HDMI Out"}},
                                          {"Wave Out", "Wave In", {"Playback"}},
                                          {"Playback", "", {"Wave Out"}},
                                      }));
    qel::Array<AudioDevice> internal;
    EXPECT_EQ(intel.internalDevices(internal), 2u);
    EXPECT_EQ(internal.size(), 2u);
    EXPECT_TRUE(intel.hasEndpoint(internal[0].deviceProperty().deviceId));

    SoundCard codec = cardOf(cards, kRealtek);
    internal.clear();
    codec.internalDevices(internal);
    EXPECT_EQ(ids(internal), std::vector<std::string>{kEtopo});
    EXPECT_TRUE(codec.hasEndpoint(text(kEtopo)));
    // Four endpoints reach the filter, yet each of its connectors is in the map once.
    std::set<std::string> globalIds;
    for (const SoundCard::ConnectorEntry& e : codec.connectorMap()) {
        EXPECT_FALSE(e.connector.part().globalId().empty());
        globalIds.insert(utf8(e.connector.part().globalId()));
    }
    EXPECT_EQ(globalIds.size(), codec.connectorMap().size());
}

TEST(ConnectorMapTest, DesktopCodec) {
    installBundled("desktop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using namespace desktop;
    std::map<std::string, std::string> names = {
        {kSpeakers, "Speakers"},     {kHeadphones, "Headphones"}, {kSpdif, "Digital Output"},
        {kMicrophone, "Microphone"}, {kLineIn, "Line In"},        {kFrontMic, "Front Microphone"}};
    EXPECT_EQ(describe(cardOf(cards, kRealtek), names),
              (std::vector<EntryText>{
                  {"Speakers (endpoint)", "Line Out", {}},
                  {"Headphones (endpoint)", "Front Headphone", {}},
                  {"Digital Output (endpoint)", "SPDIF Out", {}},
                  {"Microphone (endpoint)", "Rear Microphone", {}},
                  {"Line In (endpoint)", "Line In", {}},
                  {"Front Microphone (endpoint)", "Front Microphone", {}},
                  {"Line Out", "Speakers (endpoint)", {"Playback"}},
                  {"Front Headphone", "Headphones (endpoint)", {"Playback"}},
                  {"SPDIF Out", "Digital Output (endpoint)", {"Digital Playback"}},
                  {"Rear Microphone", "Microphone (endpoint)", {"Capture"}},
                  {"Line In", "Line In (endpoint)", {"Capture"}},
                  // The unplugged endpoint is not reached from the filter's side.
                  {"Front Microphone", "", {"Capture"}},
                  {"Playback", "", {"Line Out", "Front Headphone"}},
                  {"Digital Playback", "", {"SPDIF Out"}},
                  {"Capture", "", {"Rear Microphone", "Line In", "Front Microphone"}},
              }));
}

// A level control on a path, as the card hands it out.
struct NodeText {
    std::string connector;
    GUID subtype;
    float minDb, maxDb, stepDb;
    std::vector<float> levels;
    bool mute;
};

std::vector<NodeText> volumePath(const SoundCard& card, const std::string& endpointId) {
    qel::Array<SoundCard::VolumeController> controllers;
    card.volumeController(endpoint(endpointId), controllers);
    std::vector<NodeText> out;
    for (const SoundCard::VolumeController& c : controllers) {
        VolumeController<RegularVolumeController> control(
            RegularVolumeController{c.volume, c.mute, c.subtype, c.name});
        VolumeControllerInterface::DbVolumeRange range{};
        EXPECT_TRUE(control.volumeRangeDecibel(0, range));
        NodeText node{utf8(c.name), c.subtype, range.minDb,      range.maxDb,
                      range.stepDb, {},        c.mute != nullptr};
        for (unsigned int ch = 0; ch < control.numChannel(); ++ch) {
            node.levels.push_back(control.volumeLevelDecibel(ch));
        }
        out.push_back(node);
    }
    return out;
}

void expectPath(const std::vector<NodeText>& path, const std::vector<NodeText>& expected) {
    ASSERT_EQ(path.size(), expected.size());
    for (std::size_t i = 0; i < path.size(); ++i) {
        SCOPED_TRACE(expected[i].connector);
        EXPECT_EQ(path[i].connector, expected[i].connector);
        EXPECT_TRUE(path[i].subtype == expected[i].subtype);
        EXPECT_FLOAT_EQ(path[i].minDb, expected[i].minDb);
        EXPECT_FLOAT_EQ(path[i].maxDb, expected[i].maxDb);
        EXPECT_FLOAT_EQ(path[i].stepDb, expected[i].stepDb);
        EXPECT_EQ(path[i].levels, expected[i].levels);
        EXPECT_EQ(path[i].mute, expected[i].mute);
    }
}

TEST(VolumePathTest, BundledSpeakersAndMicrophones) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, laptop::kRealtek);
    // The speaker pin's own node first; the headphone pin shares the DAC's path, one
    // connector further away.
    expectPath(
        volumePath(codec, laptop::kSpeakers),
        {{"Speaker", KSNODETYPE_SPEAKER, -46.5f, 0.0f, 0.75f, {-6.0f, -6.0f}, true},
         {"Headphone", KSNODETYPE_HEADPHONES, -65.25f, 0.0f, 0.75f, {-12.0f, -12.0f}, true}});
    // A microphone's mute sits after its volume node.
    expectPath(
        volumePath(codec, laptop::kMicArray),
        {{"Microphone Array",
          KSNODETYPE_MICROPHONE_ARRAY,
          -17.25f,
          30.0f,
          0.75f,
          {10.5f, 10.5f},
          true},
         {"Headset Microphone", KSNODETYPE_MICROPHONE, -17.25f, 30.0f, 0.75f, {0.0f, 0.0f}, true}});
    expectPath(volumePath(cardOf(cards, laptop::kIntel), laptop::kHdmi),
               {{"HDMI Out", KSNODETYPE_HDMI_INTERFACE, -65.25f, 0.0f, 0.75f, {0.0f, 0.0f}, true}});

    installBundled("desktop");
    cards = SoundCard::enumerateSystemSoundDevices(false);
    codec = cardOf(cards, desktop::kRealtek);
    expectPath(
        volumePath(codec, desktop::kSpeakers),
        {{"Line Out", KSNODETYPE_SPEAKER, -65.25f, 0.0f, 0.75f, {-15.0f, -15.0f}, true},
         {"Front Headphone", KSNODETYPE_HEADPHONES, -65.25f, 0.0f, 0.75f, {0.0f, 0.0f}, true}});
    expectPath(
        volumePath(codec, desktop::kMicrophone),
        {{"Rear Microphone", KSNODETYPE_MICROPHONE, -34.5f, 12.0f, 1.5f, {0.0f, 0.0f}, true},
         {"Line In", KSNODETYPE_LINE_CONNECTOR, -34.5f, 12.0f, 1.5f, {0.0f, 0.0f}, true},
         {"Front Microphone", KSNODETYPE_MICROPHONE, -34.5f, 12.0f, 1.5f, {0.0f, 0.0f}, true}});
    // S/PDIF has a mute and no volume anywhere next to a connector.
    LogCapture log;
    EXPECT_TRUE(volumePath(codec, desktop::kSpdif).empty());
    EXPECT_GE(countOf(log, kCardLog, kInfo,
                      "371 Supplied part list does not have a volume controller node"),
              2);
}

// Endpoint E is wired to connector Out of filter A; A's Bridge is wired to Source of B.
//   A: Bridge -> Bridge Volume -> Bridge Mute -> Out Mute -> Out Volume -> Out
//   B: Playback -> Pre Volume -> Loop -> Post Volume -> Source Mute -> Source Volume -> Source
const std::string kFilterA = "{2}.\\\\?\\test#a#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\\topo";
const std::string kFilterB = "{2}.\\\\?\\test#b#{6994ad04-93ef-11d0-a3cc-00a0c9223196}\\wave";

model::Machine chainMachine() {
    model::MachineBuilder b("chain");
    b.adapter("HDAUDIO\\FUNC_01&VEN_1234&DEV_0001\\1", "Chain");
    b.endpoint(Flow::Render, "Speakers").endpointDevice();
    std::string speakers = b.lastEndpoint().id;
    b.device(kFilterA)
        .connector("Out", KSNODETYPE_SPEAKER, model::ConnectorType::PhysicalInternal, 1)
        .connector("Bridge", KSNODETYPE_ANALOG_CONNECTOR, model::ConnectorType::SoftwareFixed, 0)
        .subunit("Bridge Volume", KSNODETYPE_VOLUME)
        .partVolume({2.0f, 2.0f}, {-20.0f, 10.0f, 0.5f})
        .subunit("Bridge Mute", KSNODETYPE_MUTE)
        .subunit("Out Mute", KSNODETYPE_MUTE)
        .subunit("Out Volume", KSNODETYPE_VOLUME)
        .partVolume({-3.0f, -3.0f}, {-30.0f, 0.0f, 1.0f})
        .chain({"Bridge", "Bridge Volume", "Bridge Mute", "Out Mute", "Out Volume", "Out"});
    b.device(kFilterB)
        .connector("Source", KSNODETYPE_ANALOG_CONNECTOR, model::ConnectorType::SoftwareFixed, 1)
        .connector("Playback", KSNODETYPE_ANALOG_CONNECTOR, model::ConnectorType::SoftwareIO, 0)
        .connector("Loop", KSNODETYPE_ANALOG_CONNECTOR, model::ConnectorType::SoftwareIO, 0)
        .subunit("Pre Volume", KSNODETYPE_VOLUME)
        .partVolume({1.0f}, {-10.0f, 10.0f, 0.5f})
        .subunit("Post Volume", KSNODETYPE_VOLUME)
        .partVolume({0.0f}, {-5.0f, 5.0f, 0.25f})
        .subunit("Source Mute", KSNODETYPE_MUTE)
        .subunit("Source Volume", KSNODETYPE_VOLUME)
        .partVolume({-12.0f, -12.0f}, {-40.0f, 0.0f, 2.0f})
        .chain({"Playback", "Pre Volume", "Loop", "Post Volume", "Source Mute", "Source Volume",
                "Source"});
    b.connect({speakers, 0}, {kFilterA, 0});
    b.connect({kFilterA, 1}, {kFilterB, 0});
    return b.build();
}

class ChainTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(chainMachine());
        qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
        ASSERT_EQ(cards.size(), 1u);
        card = cards[0];
        speakers = utf8(card.connectorMap()[0].owner);
    }
    SoundCard card;
    std::string speakers;
};

TEST_F(ChainTest, NearestNodesComeFirst) {
    // Out and Bridge are one internal link apart, Source a physical link further, Playback
    // and Loop one more internal link. Bridge's mute follows its volume node; Loop has a
    // volume node on each side and takes the one before it.
    expectPath(volumePath(card, speakers),
               {{"Out", KSNODETYPE_SPEAKER, -30.0f, 0.0f, 1.0f, {-3.0f, -3.0f}, true},
                {"Bridge", KSNODETYPE_ANALOG_CONNECTOR, -20.0f, 10.0f, 0.5f, {2.0f, 2.0f}, true},
                {"Source", KSNODETYPE_ANALOG_CONNECTOR, -40.0f, 0.0f, 2.0f, {-12.0f, -12.0f}, true},
                {"Playback", KSNODETYPE_ANALOG_CONNECTOR, -10.0f, 10.0f, 0.5f, {1.0f}, false},
                {"Loop", KSNODETYPE_ANALOG_CONNECTOR, -10.0f, 10.0f, 0.5f, {1.0f}, false}});
}

TEST_F(ChainTest, TheLookupAppendsAndCountsWhatWasThere) {
    qel::Array<SoundCard::VolumeController> controllers;
    controllers.append(SoundCard::VolumeController{});
    EXPECT_EQ(card.volumeController(endpoint(speakers), controllers), 6u);
    // The interface-handle form finds nothing and leaves its array alone.
    qel::Array<VolumeControllerHandle> handles;
    handles.append(VolumeControllerHandle());
    EXPECT_EQ(card.volumeController(endpoint(speakers), handles), 0u);
    EXPECT_EQ(handles.size(), 1u);
}

TEST_F(ChainTest, AConnectorMissingFromTheMapIsReportedAndSkipped) {
    // A connector the endpoint's topology gained after the map was built.
    sim::withMachine([&](model::Machine& m) {
        model::Part extra;
        extra.kind = model::PartKind::Connector;
        extra.localId = 1;
        extra.name = "Late";
        extra.connectorType = model::ConnectorType::SoftwareFixed;
        m.findDevice(speakers)->parts.push_back(extra);
    });
    LogCapture log;
    qel::Array<SoundCard::VolumeController> controllers;
    EXPECT_EQ(card.volumeController(endpoint(speakers), controllers), 5u);
    EXPECT_EQ(numbered(log, kCardLog, kError),
              std::vector<std::string>{
                  "436 m_connectorMap is inconsistent. Please review initialization code"});
    EXPECT_TRUE(contains(scopes(log, kCardLog),
                         "EndpointDeviceEnumeratorCommon::volumeController(const AudioDevice& "
                         "endpoint)"));
}

TEST_F(ChainTest, AnEndpointOfAnotherCardIsNotInTheMap) {
    installBundled("laptop");
    LogCapture log;
    qel::Array<SoundCard::VolumeController> controllers;
    EXPECT_EQ(card.volumeController(endpoint(laptop::kSpeakers), controllers), 0u);
    EXPECT_EQ(countOf(log, kCardLog, kError,
                      "436 m_connectorMap is inconsistent. Please review initialization code"),
              1);
}

TEST(InconsistentMapTest, AFilterThatCannotBeOpenedLeavesUnresolvedLinks) {
    installBundled("laptop");
    sim::addFault(model::Fault{"GetDevice", laptop::kEtopo, {E_FAIL}, true});
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    sim::clearFaults();
    SoundCard codec = cardOf(cards, laptop::kRealtek);
    // Only the endpoints' connectors: each knows its partner but cannot find it.
    ASSERT_EQ(codec.connectorMap().size(), 4u);
    for (const SoundCard::ConnectorEntry& e : codec.connectorMap()) {
        EXPECT_TRUE(e.hasPhysicalLink);
        EXPECT_EQ(e.links.size(), 1u);
        EXPECT_EQ(e.links[0], -1);
    }
    LogCapture log;
    qel::Array<SoundCard::VolumeController> controllers;
    EXPECT_EQ(codec.volumeController(endpoint(laptop::kSpeakers), controllers), 0u);
    EXPECT_EQ(numbered(log, kCardLog, kError),
              std::vector<std::string>{
                  "436 m_connectorMap is inconsistent. Please review initialization code"});
    qel::Array<CComPtr<IAudioInputSelector>> selectors;
    EXPECT_EQ(codec.recordingMux(selectors), 0u);
}

std::vector<std::string> names(const qel::Array<AudioPart>& parts) {
    std::vector<std::string> out;
    for (const AudioPart& p : parts) {
        out.push_back(utf8(p.name()));
    }
    return out;
}

TEST(InputSelectorTest, TheCodecFiltersMultiplexer) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, laptop::kRealtek);
    LogCapture log;
    qel::Array<CComPtr<IAudioInputSelector>> selectors;
    ASSERT_EQ(codec.recordingMux(selectors), 1u);
    EXPECT_EQ(messagesOnly(log, kCardLog, kDebug),
              std::vector<std::string>{"705 Number of internal devices = 1"});
    EXPECT_EQ(
        numbered(log, kCardLog, kInfo),
        std::vector<std::string>{"717 Found an input selector from device " + laptop::kEtopo});

    qel::Array<SoundCard::InputSelector> found;
    ASSERT_EQ(codec.inputSelectors(found), 1u);
    EXPECT_EQ(utf8(found[0].part.name()), "Input Select");
    EXPECT_EQ(utf8(found[0].deviceId), laptop::kEtopo);
    EXPECT_EQ(names(found[0].inputs),
              (std::vector<std::string>{"Microphone Array Mute", "Headset Microphone Mute"}));
    EXPECT_EQ(found[0].selected, 0);

    // Switching the recording source to the headset jack shows on the next reading.
    UINT headset = 0;
    ASSERT_EQ(found[0].inputs[1].part()->GetLocalId(&headset), S_OK);
    ASSERT_EQ(selectors[0]->SetSelection(headset, nullptr), S_OK);
    found.clear();
    codec.inputSelectors(found);
    EXPECT_EQ(found[0].selected, 1);

    // The headset's filter has no multiplexer; what the array held is still counted.
    SoundCard usb = cardOf(cards, laptop::kUsb);
    EXPECT_EQ(usb.recordingMux(selectors), 1u);
}

TEST(InputSelectorTest, TheDesktopCodecSelectsTheRearMicrophone) {
    installBundled("desktop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    qel::Array<SoundCard::InputSelector> found;
    ASSERT_EQ(cardOf(cards, desktop::kRealtek).inputSelectors(found), 1u);
    EXPECT_EQ(names(found[0].inputs),
              (std::vector<std::string>{"Rear Microphone Mute", "Line In Mute",
                                        "Front Microphone Mute"}));
    EXPECT_EQ(found[0].selected, 0);
    EXPECT_EQ(cardOf(cards, desktop::kNvidia).inputSelectors(found), 0u);
}

TEST(InputSelectorTest, OnlyInternalDevicesAreSearched) {
    // The endpoint's own topology has a multiplexer, and there is no adapter filter.
    model::MachineBuilder b("own mux");
    b.adapter("USB\\VID_1234&PID_0003\\1", "Mic");
    b.endpoint(Flow::Capture, "Microphone").endpointDevice();
    b.subunit("Source", KSNODETYPE_MUX).link(0u, 0x10000u);
    sim::installMachine(b.build());
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    ASSERT_EQ(cards.size(), 1u);
    LogCapture log;
    qel::Array<CComPtr<IAudioInputSelector>> selectors;
    selectors.append(CComPtr<IAudioInputSelector>());
    EXPECT_EQ(cards[0].recordingMux(selectors), 1u);
    EXPECT_EQ(messagesOnly(log, kCardLog, kDebug),
              std::vector<std::string>{"705 Number of internal devices = 0"});
}

TEST_F(ChainTest, EachControllerNamesItsOwnNodes) {
    qel::Array<SoundCard::VolumeController> controllers;
    ASSERT_EQ(card.volumeController(endpoint(speakers), controllers), 5u);
    // Playback and Loop both sit beside Pre Volume, which has no mute.
    const std::pair<std::string, std::string> expected[] = {{"Out Volume", "Out Mute"},
                                                            {"Bridge Volume", "Bridge Mute"},
                                                            {"Source Volume", "Source Mute"},
                                                            {"Pre Volume", ""},
                                                            {"Pre Volume", ""}};
    for (qel::Uint32 i = 0; i < controllers.size(); ++i) {
        SCOPED_TRACE(utf8(controllers[i].name));
        EXPECT_EQ(utf8(controllers[i].volumeNode.name()), expected[i].first);
        EXPECT_TRUE(controllers[i].volumeNode.subType() == KSNODETYPE_VOLUME);
        EXPECT_EQ(utf8(controllers[i].muteNode.name()), expected[i].second);
        EXPECT_EQ(controllers[i].muteNode.part() != nullptr, controllers[i].mute != nullptr);
    }
}

TEST(InputSelectorTest, SelectingAnInputByItsPlaceAmongTheInputs) {
    installBundled("desktop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard codec = cardOf(cards, desktop::kRealtek);
    qel::Array<SoundCard::InputSelector> found;
    ASSERT_EQ(codec.inputSelectors(found), 1u);
    ASSERT_EQ(found[0].inputs.size(), 3u);

    EXPECT_TRUE(SoundCard::selectInput(found[0], 2));
    EXPECT_EQ(found[0].selected, 2);
    // The platform holds the choice: a fresh reading shows the front microphone.
    qel::Array<SoundCard::InputSelector> again;
    codec.inputSelectors(again);
    EXPECT_EQ(again[0].selected, 2);

    // No such input: refused, the choice kept.
    EXPECT_FALSE(SoundCard::selectInput(found[0], 3));
    EXPECT_EQ(found[0].selected, 2);
    SoundCard::InputSelector none;
    EXPECT_FALSE(SoundCard::selectInput(none, 0));

    // An input whose link into the selector is gone is refused by the platform.
    sim::withMachine([](model::Machine& m) {
        for (model::TopologyDevice& device : m.devices) {
            std::erase_if(device.links, [&](const model::Link& link) {
                const model::Part* from = device.findPart(link.from);
                return from && from->name == "Line In Mute";
            });
        }
    });
    LogCapture log;
    EXPECT_FALSE(SoundCard::selectInput(found[0], 1));
    EXPECT_EQ(found[0].selected, 2);
    EXPECT_EQ(numbered(log, kCardLog, kError),
              std::vector<std::string>{"730 SetSelection returns 0x80070057"});
}

} // namespace
} // namespace soundcard
