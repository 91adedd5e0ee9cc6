// Volume controllers of both kinds over the simulated platform, and the notification
// object that the endpoint kind registers.
#include "DeviceModelSupport.h"
#include "foundation/qelAssert.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/VolumeChangeNotification.h"
#include "libAudio/VolumeController.h"
#include "platform/sim/Notifier.h"
#include "platform/sim/control.h"

#include <cmath>

namespace devicemodel {
namespace {

using testsupport::LogCapture;
using EndpointController = VolumeController<EndpointVolumeController>;
using RegularController = VolumeController<RegularVolumeController>;

const std::string kEndpoint = model::generatedEndpointId(model::Flow::Render, 0);

model::Machine volumeMachine() {
    model::MachineBuilder b("volume");
    b.adapter(kAdapter, "Codec");
    b.endpoint(model::Flow::Render, "Speakers").volume({-20, -20}).endpointDevice();
    b.device("filter")
        .connector("Speaker", KSNODETYPE_SPEAKER, model::ConnectorType::PhysicalInternal, 1)
        .subunit("Volume", KSNODETYPE_VOLUME)
        .partVolume({-10, -30}, model::VolumeRange{-40, 0, 0.5})
        .subunit("Mute", KSNODETYPE_MUTE);
    b.connect({kEndpoint, 0}, {"filter", 0});
    return b.build();
}

EndpointController endpointController() {
    EndpointVolumeController policy;
    platformDevice(kEndpoint)->Activate(IID_IAudioEndpointVolume, CLSCTX_ALL, nullptr,
                                        reinterpret_cast<void**>(&policy.endpointVolume));
    EXPECT_TRUE(policy.endpointVolume);
    policy.ownerName = "Speakers";
    return EndpointController(policy);
}

// The filter's Volume and Mute subunits, reached through the endpoint's topology.
RegularVolumeController regularPolicy() {
    AudioDevice d;
    d.initialize(platformDevice(kEndpoint));
    qel::Array<AudioComponent<IConnector>> own;
    d.connector(own);
    CComPtr<IConnector> partner;
    EXPECT_EQ(own[0].component()->GetConnectedTo(&partner), S_OK);
    AudioDeviceTopology filter(partner);
    RegularVolumeController policy;
    filter.subunit()[0].part().part()->Activate(CLSCTX_INPROC_SERVER, IID_IAudioVolumeLevel,
                                                reinterpret_cast<void**>(&policy.volumeLevel));
    filter.subunit()[1].part().part()->Activate(CLSCTX_INPROC_SERVER, IID_IAudioMute,
                                                reinterpret_cast<void**>(&policy.mute));
    EXPECT_TRUE(policy.volumeLevel && policy.mute);
    policy.ownerType = KSNODETYPE_VOLUME;
    policy.ownerName = "Volume";
    return policy;
}

class VolumeTest : public ::testing::Test {
protected:
    void SetUp() override {
        sim::installMachine(volumeMachine());
        sim::takePostedMessages();
    }
    // Changes still on their way would reach the callbacks of the next test.
    void TearDown() override { sim::waitForNotifications(); }
    LogCapture log;
};

TEST_F(VolumeTest, EndpointPercentRoundsHalfUpInSinglePrecision) {
    EndpointController c = endpointController();
    // 0.005f times 100 rounds to exactly 0.5 in single precision; in double it stays below.
    const std::pair<float, unsigned int> cases[] = {
        {0.994f, 99}, {0.995f, 100}, {0.005f, 1}, {0.0f, 0}, {1.0f, 100}};
    for (auto [scalar, percent] : cases) {
        SCOPED_TRACE(scalar);
        sim::withMachine([scalar = scalar](model::Machine& m) {
            m.findEndpoint(kEndpoint)->volume.scalars = {scalar, scalar};
        });
        EXPECT_EQ(c.masterVolumeLevelPercent(), percent);
        EXPECT_EQ(c.volumeLevelPercent(1), percent);
    }
    EXPECT_TRUE(c.setMasterVolumeLevelPercent(37));
    EXPECT_EQ(c.masterVolumeLevelPercent(), 37u);
    EXPECT_FALSE(c.setVolumeLevelPercent(1, 101)); // not clamped: the platform refuses it
    EXPECT_TRUE(c.setVolumeLevelDecibel(0, -30.0f));
    EXPECT_EQ(c.volumeLevelDecibel(0), -30.0f);
    VolumeControllerInterface::DbVolumeRange a{}, b{};
    EXPECT_TRUE(c.volumeRangeDecibel(0, a));
    EXPECT_TRUE(c.volumeRangeDecibel(7, b)); // the channel is not asked
    EXPECT_EQ(std::make_tuple(a.minDb, a.maxDb, a.stepDb), std::make_tuple(-65.25f, 0.0f, 0.75f));
    EXPECT_EQ(std::make_tuple(b.minDb, b.maxDb, b.stepDb), std::make_tuple(-65.25f, 0.0f, 0.75f));
}

TEST_F(VolumeTest, EndpointControllerWithoutInterfaceIsNeutral) {
    EndpointController c{EndpointVolumeController{}};
    VolumeControllerInterface::DbVolumeRange range{1, 2, 3};
    EXPECT_EQ(c.numChannel(), 0u);
    EXPECT_EQ(c.masterVolumeLevelPercent() + c.volumeLevelPercent(0), 0u);
    EXPECT_EQ(c.masterVolumeLevelDecibel(), 0.0f);
    EXPECT_EQ(c.volumeLevelDecibel(0), 0.0f);
    EXPECT_FALSE(c.volumeRangeDecibel(0, range));
    EXPECT_EQ(range.minDb + range.maxDb + range.stepDb, 6.0f);
    EXPECT_TRUE(c.isMuted() && c.hasVolumeControl() && c.hasMuteControl());
    EXPECT_FALSE(c.setMute(false) || c.setMasterVolumeLevelPercent(50) ||
                 c.setMasterVolumeLevelDecibel(-1) || c.setVolumeLevelPercent(0, 50) ||
                 c.setVolumeLevelDecibel(0, -1));
    CComPtr<VolumeChangeNotification> n;
    n.Attach(new VolumeChangeNotification);
    EXPECT_FALSE(c.registerVolumeChangeNotification(n));
    EXPECT_EQ(messages(log, kVolumeLog, kError),
              std::vector<std::string>{"Volume controller has not been initialized yet"});
}

void countCall(void* counter) {
    ++*static_cast<std::atomic<int>*>(counter);
}

TEST_F(VolumeTest, SecondNotificationReplacesTheFirst) {
    std::atomic<int> first{0}, second{0};
    CComPtr<VolumeChangeNotification> n1, n2;
    n1.Attach(new VolumeChangeNotification);
    n2.Attach(new VolumeChangeNotification);
    n1->setCallbackFunction(countCall, &first);
    n2->setCallbackFunction(countCall, &second);
    {
        EndpointController c = endpointController();
        EXPECT_TRUE(c.registerVolumeChangeNotification(n1));
        EXPECT_TRUE(c.setMute(true));
        sim::waitForNotifications();
        EXPECT_EQ(first, 1);

        EXPECT_TRUE(c.registerVolumeChangeNotification(n2));
        EXPECT_TRUE(c.setMute(false));
        sim::waitForNotifications();
        EXPECT_EQ(first, 1);
        EXPECT_EQ(second, 1);
        EXPECT_EQ(n1.referenceCount(), 1u); // neither the platform nor the controller holds it
    }
    // The controller's destruction unregistered the second one as well.
    EXPECT_EQ(n2.referenceCount(), 1u);
    EXPECT_EQ(sim::takePostedMessages().size(), 2u);

    EndpointController c = endpointController();
    fault("RegisterControlChangeNotify", kEndpoint);
    EXPECT_FALSE(c.registerVolumeChangeNotification(n1));
    EXPECT_EQ(messages(log, kVolumeLog, kError),
              std::vector<std::string>{"Unable to register control change notification " +
                                       std::to_string(long(kFail))});
}

// Mute changes that reached the notification's callback.
struct MuteProbe {
    std::atomic<int> calls{0};
    CComPtr<VolumeChangeNotification> notification;
    MuteProbe() {
        notification.Attach(new VolumeChangeNotification);
        notification->setCallbackFunction(countCall, &calls);
    }
    // Toggles the endpoint's mute through c and says whether the notification heard it.
    bool hears(EndpointController& c) {
        int before = calls;
        EXPECT_TRUE(c.setMute(!c.isMuted()));
        sim::waitForNotifications();
        return calls > before;
    }
};

TEST_F(VolumeTest, EndpointCopyRegistersItsOwnNotificationAndUnregistersItWhenDestroyed) {
    MuteProbe probe;
    EndpointController original = endpointController();
    {
        EndpointController copy(original);
        EXPECT_TRUE(copy.registerVolumeChangeNotification(probe.notification));
        EXPECT_EQ(probe.notification.referenceCount(), 3u); // ours, the copy's, the platform's
        EXPECT_TRUE(probe.hears(original));
    }
    EXPECT_EQ(probe.notification.referenceCount(), 1u);
    EXPECT_FALSE(probe.hears(original));
    {
        EndpointController assigned{EndpointVolumeController{}};
        assigned = original;
        EXPECT_TRUE(assigned.registerVolumeChangeNotification(probe.notification));
        EXPECT_TRUE(probe.hears(original));
    }
    EXPECT_EQ(probe.notification.referenceCount(), 1u);
    EXPECT_FALSE(probe.hears(original));
}

// A copy shares its original's notification, and the end of any copy unregisters it.
TEST_F(VolumeTest, CopiesShareTheNotificationAndEachOneEndingUnregistersIt) {
    MuteProbe probe;
    EndpointController original = endpointController();
    ASSERT_TRUE(original.registerVolumeChangeNotification(probe.notification));
    {
        EndpointController copy(original);
        EXPECT_EQ(probe.notification.referenceCount(), 4u);
    }
    EXPECT_EQ(probe.notification.referenceCount(), 2u);
    EXPECT_FALSE(probe.hears(original));

    ASSERT_TRUE(original.registerVolumeChangeNotification(probe.notification));
    {
        EndpointController assigned{EndpointVolumeController{}};
        assigned = original;
        EXPECT_TRUE(probe.hears(assigned));
    }
    EXPECT_FALSE(probe.hears(original));
}

TEST_F(VolumeTest, NotificationCopiesCarryTheReferenceCountAndTheTargets) {
    std::atomic<int> calls{0};
    VolumeChangeNotification source;
    source.setCallbackFunction(countCall, &calls);
    source.setCallbackWindow(reinterpret_cast<HWND>(0x77));
    source.AddRef();
    source.AddRef();
    VolumeChangeNotification copy(source);
    VolumeChangeNotification assigned;
    assigned = source;
    EXPECT_EQ(copy.AddRef(), 4u);
    EXPECT_EQ(assigned.AddRef(), 4u);
    EXPECT_EQ(source.AddRef(), 4u); // copying left the source's own count alone
    EXPECT_EQ(copy.OnNotify(nullptr), S_OK);
    EXPECT_EQ(assigned.OnNotify(nullptr), S_OK);
    EXPECT_EQ(calls, 2);
    std::vector<sim::PostedMessage> posted = sim::takePostedMessages();
    ASSERT_EQ(posted.size(), 2u);
    for (const sim::PostedMessage& m : posted) {
        EXPECT_EQ(m.window, reinterpret_cast<HWND>(0x77));
    }
}

// The master level is the loudest channel's; setting it moves every channel alike.
TEST_F(VolumeTest, EndpointChannelsAndMasterLevelAreTheLiveEndpoints) {
    sim::withMachine([](model::Machine& m) {
        model::VolumeControl& v = m.findEndpoint(kEndpoint)->volume;
        v.levelsDb = {-30.0f, -9.0f, -19.5f};
        v.scalars.clear();
    });
    EndpointController c = endpointController();
    auto levels = [&c] {
        return std::make_tuple(c.volumeLevelDecibel(0), c.volumeLevelDecibel(1),
                               c.volumeLevelDecibel(2));
    };
    EXPECT_EQ(c.numChannel(), 3u);
    EXPECT_EQ(c.masterVolumeLevelDecibel(), -9.0f);
    EXPECT_TRUE(c.setMasterVolumeLevelDecibel(-15.0f));
    EXPECT_EQ(c.masterVolumeLevelDecibel(), -15.0f);
    EXPECT_EQ(levels(), std::make_tuple(-36.0f, -15.0f, -25.5f));
    EXPECT_FALSE(c.setMasterVolumeLevelDecibel(6.0f)); // above the range: refused
    EXPECT_EQ(levels(), std::make_tuple(-36.0f, -15.0f, -25.5f));
}

TEST_F(VolumeTest, RegularPercentsFollowTheRangeWithTheMasterShiftedByHalf) {
    RegularController c(regularPolicy());
    EXPECT_EQ(c.numChannel(), 2u);
    EXPECT_EQ(c.masterVolumeLevelDecibel(), -20.0f); // mean of -10 and -30
    const struct {
        float db;
        unsigned int master, channel;
    } cases[] = {{-40, 50, 0}, {0, 150, 100}, {-20, 100, 50}, {-10, 125, 75}};
    for (const auto& level : cases) {
        SCOPED_TRACE(level.db);
        EXPECT_TRUE(c.setMasterVolumeLevelDecibel(level.db));
        EXPECT_EQ(c.masterVolumeLevelPercent(), level.master);
        EXPECT_EQ(c.volumeLevelPercent(1), level.channel);
    }
    EXPECT_TRUE(c.setVolumeLevelPercent(1, 25));
    EXPECT_EQ(c.volumeLevelDecibel(1), -30.0f);
    EXPECT_FALSE(c.setVolumeLevelPercent(1, 101)); // above the range: refused
    EXPECT_TRUE(c.setMute(true));
    EXPECT_TRUE(c.isMuted());

    // Neither a scalar master level nor notifications; the levels stay as they were.
    EXPECT_FALSE(c.setMasterVolumeLevelPercent(50));
    EXPECT_EQ(std::make_pair(c.volumeLevelDecibel(0), c.volumeLevelDecibel(1)),
              std::make_pair(-10.0f, -30.0f));
    CComPtr<VolumeChangeNotification> n;
    n.Attach(new VolumeChangeNotification);
    EXPECT_FALSE(c.registerVolumeChangeNotification(n));
    EXPECT_EQ(n.referenceCount(), 1u);
    EXPECT_TRUE(messages(log, kVolumeLog, kError).empty());
}

TEST_F(VolumeTest, RegularControllerWithMissingInterfaces) {
    RegularVolumeController policy = regularPolicy();
    policy.mute.Release();
    RegularController levelOnly(policy);
    EXPECT_TRUE(levelOnly.hasVolumeControl());
    EXPECT_FALSE(levelOnly.hasMuteControl());
    EXPECT_TRUE(levelOnly.isMuted());
    EXPECT_FALSE(levelOnly.setMute(false));

    RegularController none{RegularVolumeController{}};
    EXPECT_FALSE(none.hasVolumeControl() || none.hasMuteControl());
    EXPECT_EQ(none.numChannel() + none.volumeLevelPercent(0), 0u);
    EXPECT_FALSE(none.setVolumeLevelPercent(0, 50) || none.setVolumeLevelDecibel(0, -1) ||
                 none.setMasterVolumeLevelDecibel(-1));
    EXPECT_TRUE(std::isnan(none.masterVolumeLevelDecibel()));
    try {
        none.masterVolumeLevelPercent();
        ADD_FAILURE() << "no assertion for a level without channels";
    } catch (const qel::AssertionException& e) {
        EXPECT_EQ(e.expression(), "numChannel() > 0");
    }
}

struct Probe : VolumeChangeNotification {
    explicit Probe(bool& destroyed) : destroyed(destroyed) {}
    ~Probe() override { destroyed = true; }
    bool& destroyed;
};

TEST_F(VolumeTest, NotificationObjectAnswersItsInterfacesAndPostsEveryChange) {
    bool destroyed = false;
    auto* n = new Probe(destroyed);
    void* object = n;
    EXPECT_EQ(n->QueryInterface(IID_IMMDevice, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
    for (const IID* iid : {&IID_IUnknown, &IID_IAudioEndpointVolumeCallback}) {
        EXPECT_EQ(n->QueryInterface(*iid, &object), S_OK);
        EXPECT_EQ(object, static_cast<IAudioEndpointVolumeCallback*>(n));
    }
    EXPECT_EQ(n->AddRef(), 4u);
    EXPECT_EQ(n->Release(), 3u);

    EXPECT_EQ(n->OnNotify(nullptr), S_OK); // no targets: still posted, to no window
    std::atomic<int> calls{0};
    n->setCallbackFunction(countCall, &calls);
    n->setCallbackWindow(reinterpret_cast<HWND>(0x1234));
    EXPECT_EQ(n->OnNotify(nullptr), S_OK);
    EXPECT_EQ(calls, 1);
    std::vector<sim::PostedMessage> posted = sim::takePostedMessages();
    ASSERT_EQ(posted.size(), 2u);
    EXPECT_EQ(posted[0].window, nullptr);
    EXPECT_EQ(posted[1].window, reinterpret_cast<HWND>(0x1234));
    for (const sim::PostedMessage& m : posted) {
        EXPECT_EQ(std::make_tuple(m.message, m.wParam, m.lParam),
                  std::make_tuple(977u, WPARAM(0), LPARAM(0)));
    }

    EXPECT_EQ(n->Release(), 2u);
    EXPECT_EQ(n->Release(), 1u);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(n->Release(), 0u);
    EXPECT_TRUE(destroyed);
}

} // namespace
} // namespace devicemodel
