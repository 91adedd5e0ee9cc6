// Sound card assembly: grouping by adapter with capture endpoints first, the refusal of
// duplicate endpoints across flows, picking a card by instance id or parent id, a card's
// identity, copies and equality, and finding a card by the names a person knows.
#include "SoundCardSupport.h"

namespace soundcard {
namespace {

using model::Flow;

TEST(AssemblyTest, LaptopCardsComeCaptureFirst) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    // Intel's render endpoint is listed before the USB headset's, but the headset has a
    // microphone, so its card comes first; playback-only adapters follow in render order.
    EXPECT_EQ(cardIds(cards),
              (std::vector<std::string>{cardId(laptop::kRealtek), cardId(laptop::kUsb),
                                        cardId(laptop::kIntel), cardId(laptop::kRoot)}));
    using namespace laptop;
    struct Expected {
        std::string instance;
        std::vector<std::string> playback, record;
    } expected[] = {{kRealtek, {kSpeakers, kHeadphones}, {kMicArray, kHeadsetMic}},
                    {kUsb, {kUsbSpeakers}, {kUsbMic}},
                    {kIntel, {kHdmi}, {}},
                    {kRoot, {kCable}, {}}};
    ASSERT_EQ(cards.size(), 4u);
    for (qel::Uint32 i = 0; i < cards.size(); ++i) {
        SCOPED_TRACE(expected[i].instance);
        EXPECT_EQ(utf8(cards[i].instanceId()), expected[i].instance);
        EXPECT_EQ(playbackIds(cards[i]), expected[i].playback);
        EXPECT_EQ(recordIds(cards[i]), expected[i].record);
        EXPECT_FALSE(cards[i].isRegisteredForNotifications());
    }
    EXPECT_EQ(utf8(cards[0].friendlyName()), "Realtek High Definition Audio");
    qel::String parent;
    EXPECT_TRUE(cards[1].parentId(parent));
    EXPECT_EQ(utf8(parent), kUsbParent);
}

TEST(AssemblyTest, DesktopCards) {
    installBundled("desktop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using namespace desktop;
    ASSERT_EQ(cardIds(cards), (std::vector<std::string>{cardId(kRealtek), cardId(kNvidia)}));
    EXPECT_EQ(playbackIds(cards[0]), (std::vector<std::string>{kSpeakers, kHeadphones, kSpdif}));
    EXPECT_EQ(recordIds(cards[0]), (std::vector<std::string>{kMicrophone, kLineIn, kFrontMic}));
    EXPECT_EQ(playbackIds(cards[1]), std::vector<std::string>{kDisplayPort});
}

TEST(AssemblyTest, NoEndpointsNoCards) {
    installBundled("empty");
    EXPECT_EQ(SoundCard::enumerateSystemSoundDevices(false).size(), 0u);
    SoundCard card;
    EXPECT_FALSE(SoundCard::createSoundCard(text(""), card, false));
    EXPECT_TRUE(card.deviceId().empty());
}

TEST(AssemblyTest, AnEnumeratorThatCannotBeMadeGivesNoCards) {
    installBundled("laptop");
    LogCapture log;
    sim::addFault(model::Fault{"CoCreateInstance", "MMDeviceEnumerator", {E_FAIL}, false});
    EXPECT_EQ(SoundCard::enumerateSystemSoundDevices(false).size(), 0u);
    EXPECT_EQ(numbered(log, kCardLog, kError),
              std::vector<std::string>{"166 Faild to initialize endpoint device enumerator"});
}

// One adapter with a render and a capture endpoint; the ids are made to clash afterwards,
// as a driver that reports one endpoint twice would.
class DuplicateTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(model::MachineBuilder("dup")
                                .adapter(kAdapter, "Codec")
                                .endpoint(Flow::Render, "Speakers")
                                .endpoint(Flow::Render, "Headphones")
                                .endpoint(Flow::Capture, "Microphone")
                                .build());
    }
    void rename(std::size_t index, const std::string& id) {
        sim::withMachine([&](model::Machine& m) { m.endpoints[index].id = id; });
    }
    const std::string kAdapter = "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0888\\1";
    const std::string kRender = "{0.0.0.00000000}.{aaaaaaaa-0000-0000-0000-000000000001}";
    LogCapture log;
};

TEST_F(DuplicateTest, AnIdSeenAgainInTheSameFlowIsStoredOnce) {
    rename(0, kRender);
    std::string upper = kRender;
    for (char& c : upper) {
        c = char(std::toupper(static_cast<unsigned char>(c)));
    }
    rename(1, upper);
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(playbackIds(cards[0]), std::vector<std::string>{kRender});
    EXPECT_EQ(numbered(log, kCardLog, kError),
              std::vector<std::string>{"78 Cannot add duplicate device " + upper});
}

TEST_F(DuplicateTest, AnIdFiledAsCaptureIsRefusedAsRender) {
    // Capture is filed first, so the render endpoint with the same id is the one refused.
    rename(0, kRender);
    rename(2, kRender);
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    ASSERT_EQ(cards.size(), 1u);
    EXPECT_EQ(recordIds(cards[0]), std::vector<std::string>{kRender});
    EXPECT_EQ(playbackIds(cards[0]).size(), 1u); // only the headphones
    EXPECT_EQ(countOf(log, kCardLog, kError, "78 Cannot add duplicate device " + kRender), 1);
}

TEST(CreateSoundCardTest, ByInstanceIdOrParentIdIgnoringCase) {
    installBundled("laptop");
    auto lower = [](std::string s) {
        for (char& c : s) {
            c = char(std::tolower(static_cast<unsigned char>(c)));
        }
        return s;
    };
    struct Case {
        std::string id;
        std::string card; // the adapter of the card chosen
    } cases[] = {
        {laptop::kIntel, laptop::kIntel},
        {lower(laptop::kIntel), laptop::kIntel},
        {lower(laptop::kUsbParent), laptop::kUsb},
        // Two adapters hang on the same controller: the first card wins.
        {laptop::kPciParent, laptop::kRealtek},
        {lower(laptop::kRoot), laptop::kRoot},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.id);
        SoundCard card;
        ASSERT_TRUE(SoundCard::createSoundCard(text(c.id), card, false));
        EXPECT_EQ(utf8(card.deviceId()), cardId(c.card));
        EXPECT_FALSE(card.isRegisteredForNotifications());
    }

    SoundCard kept;
    ASSERT_TRUE(SoundCard::createSoundCard(text(laptop::kUsb), kept, false));
    EXPECT_FALSE(SoundCard::createSoundCard(text("PCI\\VEN_0000&DEV_0000\\0"), kept, false));
    EXPECT_EQ(utf8(kept.deviceId()), cardId(laptop::kUsb));
    EXPECT_EQ(recordIds(kept), std::vector<std::string>{laptop::kUsbMic});
}

TEST(CreateSoundCardTest, LogsEachCandidateAndItsParent) {
    installBundled("laptop");
    LogCapture log;
    SoundCard card;
    ASSERT_TRUE(SoundCard::createSoundCard(text(laptop::kUsb), card, false));
    // The first candidate does not match; the second does and ends the search.
    EXPECT_EQ(
        numbered(log, kCardLog, kInfo),
        (std::vector<std::string>{
            "219 Parent device id = " + laptop::kPciParent + " device id =" + laptop::kRealtek,
            "222 " + laptop::kRealtek, "223 " + laptop::kUsb,
            "219 Parent device id = " + laptop::kUsbParent + " device id =" + laptop::kUsb,
            "222 " + laptop::kUsb, "223 " + laptop::kUsb}));
}

TEST(CreateSoundCardTest, AnEmptyIdMatchesACardWithoutParent) {
    const std::string orphan = "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0999\\9";
    sim::installMachine(
        model::MachineBuilder("orphan")
            .adapter("HDAUDIO\\FUNC_01&VEN_10EC&DEV_0998\\8", "Codec", "PCI\\VEN_8086&DEV_0001\\1")
            .endpoint(Flow::Capture, "Microphone")
            .adapter(orphan, "Orphan")
            .endpoint(Flow::Render, "Speakers")
            .build());
    LogCapture log;
    SoundCard card;
    ASSERT_TRUE(SoundCard::createSoundCard(text(""), card, false));
    EXPECT_EQ(utf8(card.deviceId()), cardId(orphan));
    EXPECT_EQ(numbered(log, kCardLog, kError),
              std::vector<std::string>{"215 Unable to get parent id from the child id " + orphan});
}

TEST(CardIdentityTest, InstanceIdIsTheSecondPartOfTheCardId) {
    const std::string adapter = "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0777\\7";
    sim::installMachine(
        model::MachineBuilder("ids")
            .adapter(adapter, "Codec")
            .endpoint(Flow::Render, "Speakers")
            .property(
                {{0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}}, 2},
                model::PropertyValue{
                    model::PropertyValue::Type::String, "{1}." + adapter + ".extra.parts", 0, {}})
            .endpoint(Flow::Render, "Line Out")
            .property(
                {{0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}}, 2},
                model::PropertyValue{model::PropertyValue::Type::String, "NoSeparator", 0, {}})
            .build());
    LogCapture log;
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    ASSERT_EQ(cards.size(), 2u);
    EXPECT_EQ(utf8(cards[0].instanceId()), adapter);
    EXPECT_TRUE(cards[1].instanceId().empty());
    EXPECT_EQ(countOf(log, kCardLog, kError, "197 Unrecognized device id format NoSeparator"), 1);
}

TEST(CardIdentityTest, CopiesShareListsButNotTheMap) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    SoundCard original = cards[0];
    SoundCard copy(original);
    SoundCard assigned;
    assigned = original;
    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);
    EXPECT_FALSE(cards[1] == original);
    EXPECT_EQ(copy.connectorMap().size(), original.connectorMap().size());
    // Each copy holds a map of its own.
    EXPECT_NE(&copy.connectorMap(), &original.connectorMap());

    EXPECT_TRUE(original.hasEndpoint(text(laptop::kSpeakers)));
    std::string upperMic = laptop::kMicArray;
    for (char& c : upperMic) {
        c = char(std::toupper(static_cast<unsigned char>(c)));
    }
    EXPECT_TRUE(original.hasEndpoint(text(upperMic)));
    EXPECT_FALSE(original.hasEndpoint(text(laptop::kUsbMic)));
    EXPECT_FALSE(original.hasEndpoint(text("")));
}

TEST(CardIdentityTest, EnumerateSoundCardsAppendsHeapCopies) {
    installBundled("laptop");
    qel::Array<SoundCardResource> cards;
    cards.append(SoundCardResource(new SoundCard()));
    libAudio::enumerateSoundCards(cards);
    ASSERT_EQ(cards.size(), 5u);
    EXPECT_TRUE(cards[0]->deviceId().empty());
    EXPECT_EQ(utf8(cards[1]->deviceId()), cardId(laptop::kRealtek));
    EXPECT_EQ(utf8(cards[4]->deviceId()), cardId(laptop::kRoot));
    EXPECT_FALSE(cards[1]->isRegisteredForNotifications());
    EXPECT_FALSE(cards[1]->connectorMap().empty());
    for (const SoundCardResource& card : cards) {
        qel::PointerStorage<SoundCard, 0, 3>::release(card.get());
    }
}

TEST(FindSoundCardTest, ByTheNamesAPersonKnows) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using libAudio::CardLookup;
    struct Case {
        std::string name;
        CardLookup result;
        qel::Uint32 index;
    } cases[] = {
        {cardId(laptop::kRoot), CardLookup::Found, 3},
        {"{1}.root\\media\\0000", CardLookup::Found, 3},
        {laptop::kIntel, CardLookup::Found, 2},
        {"intel(r) display audio", CardLookup::Found, 2},
        {"realtek", CardLookup::Found, 0},
        // Instance id and parent id of the same card: one card.
        {"usb\\vid_046d", CardLookup::Found, 1},
        {laptop::kUsbParent, CardLookup::Found, 1},
        // The laptop's codec and its display audio share their controller.
        {laptop::kPciParent, CardLookup::Ambiguous, 0},
        {"hdaudio", CardLookup::Ambiguous, 0},
        {"sound blaster", CardLookup::NotFound, 0},
        {"", CardLookup::NotFound, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        qel::Uint32 index = 99;
        EXPECT_EQ(libAudio::findSoundCard(cards, text(c.name), index), c.result);
        if (c.result == CardLookup::Found) {
            EXPECT_EQ(index, c.index);
        } else {
            EXPECT_EQ(index, 99u);
        }
    }
}

TEST(FindSoundCardTest, TheCardsANameFits) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    using libAudio::CardLookup;
    auto matching = [&](const std::string& name, CardLookup expected) {
        qel::Array<qel::Uint32> matches;
        matches.append(99); // kept: the matches are appended
        EXPECT_EQ(libAudio::findSoundCard(cards, text(name), matches), expected) << name;
        std::vector<qel::Uint32> out(matches.begin(), matches.end());
        return out;
    };
    EXPECT_EQ(matching(laptop::kPciParent, CardLookup::Ambiguous),
              (std::vector<qel::Uint32>{99, 0, 2}));
    EXPECT_EQ(matching("{1}.", CardLookup::Ambiguous), (std::vector<qel::Uint32>{99, 0, 1, 2, 3}));
    EXPECT_EQ(matching("USB HEADSET", CardLookup::Found), (std::vector<qel::Uint32>{99, 1}));
    EXPECT_EQ(matching("nothing", CardLookup::NotFound), std::vector<qel::Uint32>{99});
}

TEST(FindSoundCardTest, AnExactNameBeatsALongerOne) {
    model::MachineBuilder b("two");
    b.adapter("USB\\VID_1111&PID_0001\\1", "USB Audio").endpoint(Flow::Render, "Speakers");
    b.adapter("USB\\VID_1111&PID_0002\\1", "USB Audio Device").endpoint(Flow::Render, "Speakers");
    sim::installMachine(b.build());
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    ASSERT_EQ(cards.size(), 2u);
    qel::Uint32 index = 99;
    EXPECT_EQ(libAudio::findSoundCard(cards, text("usb audio"), index),
              libAudio::CardLookup::Found);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(libAudio::findSoundCard(cards, text("usb audio d"), index),
              libAudio::CardLookup::Found);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(libAudio::findSoundCard(cards, text("usb au"), index),
              libAudio::CardLookup::Ambiguous);
}

TEST(AssemblyTest, EachCardsBus) {
    installBundled("laptop");
    qel::Array<SoundCard> cards = SoundCard::enumerateSystemSoundDevices(false);
    std::vector<std::string> buses;
    for (const SoundCard& card : cards) {
        buses.push_back(utf8(card.enumeratorName()));
    }
    EXPECT_EQ(buses, (std::vector<std::string>{"HDAUDIO", "USB", "HDAUDIO", "ROOT"}));
    EXPECT_TRUE(SoundCard().enumeratorName().empty());
}

} // namespace
} // namespace soundcard
