// The device change updater: hot-plug through the platform's notification thread reaches
// every copy of a card and its observers, endpoints of other adapters change nothing, and
// the updater's own rules (no duplicate test, E_FAIL for endpoints it does not hold, its
// interface, its setters) hold when it is called directly.
#include "SoundCardSupport.h"

namespace soundcard {
namespace {

using model::Flow;

std::string renderId(int n) {
    char text[64];
    std::snprintf(text, sizeof text, "{0.0.0.00000000}.{5ca1ab1e-0000-4000-8000-%012d}", n);
    return text;
}

std::string captureId(int n) {
    char text[64];
    std::snprintf(text, sizeof text, "{0.0.1.00000000}.{5ca1ab1e-0000-4000-9000-%012d}", n);
    return text;
}

bool plug(const std::string& id, Flow flow, const std::string& adapter) {
    return sim::addEndpoint(newEndpoint(id, flow, adapter, "Line Out"));
}

std::vector<std::string> withState(const SoundCard& card, qel::Uint32 filter) {
    qel::Array<AudioDevice> devices;
    card.allPlaybackDevice(devices, filter);
    card.allRecordDevice(devices, filter);
    return ids(devices);
}

typedef std::vector<std::string> Ids;

class HotPlugTest : public ::testing::Test {
protected:
    void SetUp() override {
        installBundled("laptop");
        cards = SoundCard::enumerateSystemSoundDevices(false);
        codec = cardOf(cards, laptop::kRealtek);
    }
    qel::Array<SoundCard> cards;
    SoundCard codec;
};

TEST_F(HotPlugTest, ChangesReachEveryCopyAndTheObserversOfTheirFlow) {
    SoundCard copy(codec); // made before the card was registered
    CountingObserver playback, record;
    Registration p(codec, Registration::Playback, playback);
    Registration r(codec, Registration::Record, record);
    ASSERT_TRUE(p.registered && r.registered);
    EXPECT_TRUE(codec.isRegisteredForNotifications());
    SoundCard assigned;
    assigned = codec;
    const SoundCard* all[] = {&codec, &copy, &assigned, &cards[0]};

    ASSERT_TRUE(plug(renderId(1), Flow::Render, laptop::kRealtek));
    sim::waitForNotifications();
    for (const SoundCard* card : all) {
        EXPECT_EQ(playbackIds(*card), (Ids{laptop::kSpeakers, laptop::kHeadphones, renderId(1)}));
    }
    EXPECT_EQ(playback.added, 1);
    EXPECT_EQ(record.total(), 0);

    ASSERT_TRUE(plug(captureId(1), Flow::Capture, laptop::kRealtek));
    sim::waitForNotifications();
    for (const SoundCard* card : all) {
        EXPECT_EQ(recordIds(*card), (Ids{laptop::kMicArray, laptop::kHeadsetMic, captureId(1)}));
    }
    EXPECT_EQ(record.added, 1);
    EXPECT_EQ(playback.added, 1);

    ASSERT_TRUE(sim::setEndpointState(renderId(1), model::STATE_UNPLUGGED));
    ASSERT_TRUE(sim::setEndpointState(laptop::kHeadsetMic, model::STATE_DISABLED));
    sim::waitForNotifications();
    for (const SoundCard* card : all) {
        EXPECT_EQ(withState(*card, DEVICE_STATE_UNPLUGGED | DEVICE_STATE_DISABLED),
                  (Ids{renderId(1), laptop::kHeadsetMic}));
    }
    EXPECT_EQ(playback.stateChanged, 1);
    EXPECT_EQ(record.stateChanged, 1);

    ASSERT_TRUE(sim::removeEndpoint(renderId(1)));
    ASSERT_TRUE(sim::removeEndpoint(laptop::kMicArray));
    sim::waitForNotifications();
    for (const SoundCard* card : all) {
        EXPECT_EQ(playbackIds(*card), (Ids{laptop::kSpeakers, laptop::kHeadphones}));
        EXPECT_EQ(recordIds(*card), (Ids{laptop::kHeadsetMic, captureId(1)}));
    }
    EXPECT_EQ(playback.removed, 1);
    EXPECT_EQ(record.removed, 1);
    // The map is built once and stays as it was.
    EXPECT_EQ(codec.connectorMap().size(), 10u);
}

TEST_F(HotPlugTest, EndpointsOfAnotherAdapterChangeNothing) {
    CountingObserver playback, record, headset;
    Registration p(codec, Registration::Playback, playback);
    Registration r(codec, Registration::Record, record);
    SoundCard usb = cardOf(cards, laptop::kUsb);
    Registration h(usb, Registration::Record, headset);

    ASSERT_TRUE(plug(renderId(2), Flow::Render, laptop::kUsb));
    ASSERT_TRUE(plug(captureId(2), Flow::Capture, laptop::kIntel));
    ASSERT_TRUE(sim::setEndpointState(laptop::kUsbMic, model::STATE_DISABLED));
    ASSERT_TRUE(sim::removeEndpoint(laptop::kUsbSpeakers));
    ASSERT_TRUE(sim::setDefaultEndpoint(Flow::Render, eConsole, laptop::kHdmi));
    sim::waitForNotifications();

    EXPECT_EQ(playbackIds(codec), (Ids{laptop::kSpeakers, laptop::kHeadphones}));
    EXPECT_EQ(recordIds(codec), (Ids{laptop::kMicArray, laptop::kHeadsetMic}));
    EXPECT_EQ(playback.total() + record.total(), 0);
    // The headset's own card followed.
    EXPECT_EQ(playbackIds(usb), Ids{renderId(2)});
    EXPECT_EQ(withState(usb, DEVICE_STATE_DISABLED), Ids{laptop::kUsbMic});
    EXPECT_EQ(headset.stateChanged, 1);
    EXPECT_EQ(headset.added + headset.removed, 0);
}

TEST_F(HotPlugTest, CardsEnumeratedForNotificationsFollowWithoutObservers) {
    qel::Array<SoundCard> registered = SoundCard::enumerateSystemSoundDevices(true);
    for (const SoundCard& card : registered) {
        EXPECT_TRUE(card.isRegisteredForNotifications());
    }
    ASSERT_TRUE(plug(renderId(3), Flow::Render, laptop::kRoot));
    sim::waitForNotifications();
    EXPECT_EQ(playbackIds(cardOf(registered, laptop::kRoot)), (Ids{laptop::kCable, renderId(3)}));
    // The cards enumerated without notifications did not hear of it.
    EXPECT_EQ(playbackIds(cardOf(cards, laptop::kRoot)), Ids{laptop::kCable});
}

TEST_F(HotPlugTest, CopiesRegisteringSeparatelyShareOneRegistration) {
    SoundCard first(codec), second(codec);
    CountingObserver a, b;
    Registration ra(first, Registration::Playback, a);
    // The platform would refuse a second registration: the copy does not ask for one.
    sim::addFault(model::Fault{"RegisterEndpointNotificationCallback", "", {E_FAIL}, false});
    Registration rb(second, Registration::Playback, b);
    EXPECT_TRUE(second.isRegisteredForNotifications());
    SoundCard usb = cardOf(cards, laptop::kUsb);
    CountingObserver c;
    Registration rc(usb, Registration::Record, c);
    EXPECT_FALSE(usb.isRegisteredForNotifications());
    sim::clearFaults();
    ASSERT_TRUE(plug(renderId(4), Flow::Render, laptop::kRealtek));
    sim::waitForNotifications();
    // Registered twice, the updater would have stored the endpoint twice and told each
    // observer twice.
    EXPECT_EQ(playbackIds(codec), (Ids{laptop::kSpeakers, laptop::kHeadphones, renderId(4)}));
    EXPECT_EQ(a.added, 1);
    EXPECT_EQ(b.added, 1);
}

TEST_F(HotPlugTest, AnEndpointWhoseFlowCannotBeReadIsNotFiled) {
    CountingObserver playback, record;
    Registration p(codec, Registration::Playback, playback);
    Registration r(codec, Registration::Record, record);
    // Removed while it was being read: it opens, but says no more what it is.
    sim::addFault(model::Fault{"GetDataFlow", renderId(9), {E_FAIL}, true});
    ASSERT_TRUE(plug(renderId(9), Flow::Render, laptop::kRealtek));
    sim::waitForNotifications();
    sim::clearFaults();
    EXPECT_EQ(playbackIds(codec), (Ids{laptop::kSpeakers, laptop::kHeadphones}));
    EXPECT_EQ(recordIds(codec), (Ids{laptop::kMicArray, laptop::kHeadsetMic}));
    EXPECT_EQ(playback.total() + record.total(), 0);
}

TEST_F(HotPlugTest, AStateChangeForAnEndpointTheCardMissedFails) {
    // Plugged in while nobody listened; then the card starts listening.
    ASSERT_TRUE(plug(renderId(5), Flow::Render, laptop::kRealtek));
    sim::waitForNotifications();
    CountingObserver playback;
    Registration p(codec, Registration::Playback, playback);
    LogCapture log;
    ASSERT_TRUE(sim::setEndpointState(renderId(5), model::STATE_UNPLUGGED));
    sim::waitForNotifications();
    // Cards of earlier tests in the same process may be listening too, and say the same.
    EXPECT_GE(countOf(log, kCardLog, kDebug, "891 Returning E_FAIL."), 1);
    EXPECT_GE(countOf(log, kCardLog, kDebug,
                      "877 Device Realtek High Definition Audio id " + renderId(5) +
                          " state changed to 8"),
              1);
    EXPECT_EQ(playback.total(), 0);
    EXPECT_EQ(playbackIds(codec), (Ids{laptop::kSpeakers, laptop::kHeadphones}));
}

TEST_F(HotPlugTest, UnregisteredObserversAreNotCalled) {
    CountingObserver kept, dropped;
    Registration k(codec, Registration::Playback, kept);
    ASSERT_TRUE(codec.registerPlaybackObserver(dropped.handle()));
    EXPECT_TRUE(codec.unregisterPlaybackObserver(dropped.handle()));
    EXPECT_FALSE(codec.unregisterPlaybackObserver(dropped.handle()));
    EXPECT_FALSE(codec.unregisterRecordObserver(kept.handle()));
    ASSERT_TRUE(plug(renderId(6), Flow::Render, laptop::kRealtek));
    sim::waitForNotifications();
    EXPECT_EQ(kept.added, 1);
    EXPECT_EQ(dropped.total(), 0);
}

// Unregisters itself from inside its first call.
class OneShotObserver : public CountingObserver {
public:
    explicit OneShotObserver(const SoundCard& card) : m_card(card) {}
    void deviceAdded() override {
        CountingObserver::deviceAdded();
        unregistered = m_card.unregisterPlaybackObserver(handle());
    }
    bool unregistered = false;

private:
    SoundCard m_card;
};

TEST_F(HotPlugTest, AnObserverMayUnregisterItselfDuringItsCall) {
    OneShotObserver once(codec);
    CountingObserver after;
    ASSERT_TRUE(codec.registerPlaybackObserver(once.handle()));
    Registration a(codec, Registration::Playback, after);
    ASSERT_TRUE(plug(renderId(7), Flow::Render, laptop::kRealtek));
    ASSERT_TRUE(plug(renderId(8), Flow::Render, laptop::kRealtek));
    sim::waitForNotifications();
    EXPECT_TRUE(once.unregistered);
    EXPECT_EQ(once.added, 1);
    EXPECT_EQ(after.added, 2);
}

TEST_F(HotPlugTest, RegisteringNothingIsRefused) {
    LogCapture log;
    EXPECT_FALSE(codec.registerPlaybackObserver(SoundCardObserverPtr()));
    EXPECT_FALSE(codec.registerRecordObserver(SoundCardObserverPtr()));
    EXPECT_EQ(numbered(log, kCardLog, kError), (Ids{"759 Unable to register playback observer",
                                                    "739 Unable to register record observer"}));
    EXPECT_FALSE(codec.isRegisteredForNotifications());
    std::vector<std::string> entered = scopes(log, kCardLog);
    EXPECT_TRUE(contains(entered, "SoundCard::registerPlaybackObserver"));
    EXPECT_TRUE(contains(entered, "SoundCard::registerRecordObserver"));
}

// The updater called as the platform would, wired to lists of the test's own.
class UpdaterTest : public ::testing::Test {
protected:
    void SetUp() override {
        installBundled("laptop");
        updater = SoundCard::SoundCardDeviceUpdater::createUpdater();
        updater->setOwnerId(owner);
        ASSERT_TRUE(updater->setPlaybackDeviceList(playback));
        ASSERT_TRUE(updater->setRecordDeviceList(record));
        ASSERT_TRUE(updater->setPlaybackObserver(playbackObservers));
        ASSERT_TRUE(updater->setRecordObserver(recordObservers));
        playbackObservers->append(playbackCounter.handle());
        recordObservers->append(recordCounter.handle());
    }
    HRESULT added(const std::string& id) { return updater->OnDeviceAdded(wide(id).c_str()); }
    HRESULT removed(const std::string& id) { return updater->OnDeviceRemoved(wide(id).c_str()); }
    HRESULT changed(const std::string& id, DWORD state) {
        return updater->OnDeviceStateChanged(wide(id).c_str(), state);
    }
    static std::basic_string<WCHAR> wide(const std::string& ascii) {
        return std::basic_string<WCHAR>(ascii.begin(), ascii.end());
    }

    CComPtr<SoundCard::SoundCardDeviceUpdater> updater;
    SoundCard::SharedId owner{new qel::String(text(cardId(laptop::kRealtek)))};
    SoundCard::DeviceList playback{new qel::Array<AudioDevice>()};
    SoundCard::DeviceList record{new qel::Array<AudioDevice>()};
    SoundCard::ObserverList playbackObservers{new qel::Array<SoundCardObserverPtr>()};
    SoundCard::ObserverList recordObservers{new qel::Array<SoundCardObserverPtr>()};
    CountingObserver playbackCounter, recordCounter;
    LogCapture log;
};

TEST_F(UpdaterTest, AddedTwiceIsStoredTwice) {
    EXPECT_EQ(added(laptop::kSpeakers), S_OK);
    EXPECT_EQ(added(laptop::kSpeakers), S_OK);
    EXPECT_EQ(added(laptop::kMicArray), S_OK);
    EXPECT_EQ(ids(*playback), (Ids{laptop::kSpeakers, laptop::kSpeakers}));
    EXPECT_EQ(ids(*record), Ids{laptop::kMicArray});
    EXPECT_EQ(playbackCounter.added, 2);
    EXPECT_EQ(recordCounter.added, 1);
    EXPECT_EQ(
        countOf(log, kCardLog, kDebug, "851 Device " + laptop::kSpeakers + " has been added."), 2);
}

TEST_F(UpdaterTest, EndpointsItDoesNotHoldFail) {
    added(laptop::kSpeakers);
    EXPECT_EQ(changed(laptop::kHeadphones, DEVICE_STATE_UNPLUGGED), E_FAIL);
    EXPECT_EQ(messagesOnly(log, kCardLog, kDebug).back(), "891 Returning E_FAIL.");
    log.clear();
    // A removal in the same situation fails without a word.
    EXPECT_EQ(removed(laptop::kHeadphones), E_FAIL);
    EXPECT_EQ(messagesOnly(log, kCardLog, kDebug),
              Ids{"912 Device " + laptop::kHeadphones + " has been removed."});
    EXPECT_EQ(playbackCounter.stateChanged + playbackCounter.removed, 0);

    sim::setEndpointState(laptop::kSpeakers, model::STATE_DISABLED);
    sim::waitForNotifications();
    EXPECT_EQ(changed(laptop::kSpeakers, DEVICE_STATE_DISABLED), S_OK);
    EXPECT_EQ((*playback)[0].deviceProperty().state, DEVICE_STATE_DISABLED);
    EXPECT_EQ(removed(laptop::kSpeakers), S_OK);
    EXPECT_TRUE(playback->empty());
    EXPECT_EQ(playbackCounter.stateChanged, 1);
    EXPECT_EQ(playbackCounter.removed, 1);
}

TEST_F(UpdaterTest, OtherAdaptersAndOtherNotificationsChangeNothing) {
    EXPECT_EQ(added(laptop::kUsbMic), S_OK);
    EXPECT_EQ(changed(laptop::kUsbMic, DEVICE_STATE_DISABLED), S_OK);
    EXPECT_EQ(removed(laptop::kUsbMic), S_OK);
    EXPECT_EQ(changed("{0.0.0.00000000}.{00000000-0000-0000-0000-00000000dead}", 1), S_OK);
    EXPECT_EQ(updater->OnDefaultDeviceChanged(eRender, eConsole, wide(laptop::kSpeakers).c_str()),
              S_OK);
    EXPECT_EQ(updater->OnPropertyValueChanged(wide(laptop::kSpeakers).c_str(), PROPERTYKEY{}),
              S_OK);
    EXPECT_TRUE(playback->empty() && record->empty());
    EXPECT_EQ(playbackCounter.total() + recordCounter.total(), 0);
    EXPECT_EQ(countOf(log, kCardLog, kDebug,
                      "811 Default Device Has Changed To This Device " + laptop::kSpeakers),
              1);
    EXPECT_EQ(countOf(log, kCardLog, kDebug, "891 Returning E_FAIL."), 0);
}

TEST_F(UpdaterTest, InterfaceAndReferenceCount) {
    // Created with one reference, which it keeps for the process; the pointer adds its own.
    EXPECT_EQ(updater.referenceCount(), 2u);
    EXPECT_EQ(updater->AddRef(), 3u);
    EXPECT_EQ(updater->Release(), 2u);

    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(updater->QueryInterface(platform::iidOf<IAudioEndpointVolumeCallback>(), &object),
              E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(updater->QueryInterface(platform::iidOf<IMMNotificationClient>(), &object), S_OK);
    EXPECT_EQ(object, static_cast<IMMNotificationClient*>(updater.p));
    EXPECT_EQ(updater.referenceCount(), 3u);
    static_cast<IMMNotificationClient*>(object)->Release();
    EXPECT_EQ(updater->QueryInterface(platform::iidOf<IUnknown>(), &object), S_OK);
    static_cast<IUnknown*>(object)->Release();
    EXPECT_EQ(updater.referenceCount(), 2u);
    std::vector<std::string> entered = scopes(log, kCardLog);
    EXPECT_TRUE(contains(entered, "SoundCard::SoundCardDeviceUpdater::QueryInterface"));
    // AddRef opens its scope under Release's name.
    EXPECT_FALSE(contains(entered, "SoundCard::SoundCardDeviceUpdater::AddRef"));
    EXPECT_TRUE(contains(entered, "SoundCard::SoundCardDeviceUpdater::Release"));
}

TEST_F(UpdaterTest, SettersRefuseEmptyHandlesAndKeepTheOldOnes) {
    log.clear();
    EXPECT_FALSE(updater->setRecordDeviceList(SoundCard::DeviceList()));
    EXPECT_FALSE(updater->setPlaybackDeviceList(SoundCard::DeviceList()));
    EXPECT_FALSE(updater->setPlaybackObserver(SoundCard::ObserverList()));
    EXPECT_FALSE(updater->setRecordObserver(SoundCard::ObserverList()));
    EXPECT_EQ(numbered(log, kCardLog, kError),
              (Ids{"950 Cannot use an empty eCapture device list",
                   "962 Cannot use an empty eRender device list", "975 Cannot use NULL pointer",
                   "987 Cannot use NULL pointer"}));
    EXPECT_TRUE(
        contains(scopes(log, kCardLog), "SoundCard::SoundCardDeviceUpdatersetRecordDeviceList"));
    added(laptop::kSpeakers);
    added(laptop::kHeadsetMic);
    EXPECT_EQ(ids(*playback), Ids{laptop::kSpeakers});
    EXPECT_EQ(ids(*record), Ids{laptop::kHeadsetMic});
    EXPECT_EQ(playbackCounter.added + recordCounter.added, 2);
}

} // namespace
} // namespace soundcard
