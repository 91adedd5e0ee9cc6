// Endpoint enumeration: the lists by state, the all-state listings, observers and
// notification clients, and the process-wide enumerator.
#include "DeviceModelSupport.h"
#include "libAudio/EndpointDeviceEnumerator.h"
#include "platform/model/JsonLoader.h"
#include "platform/sim/MachineEvents.h"
#include "platform/sim/Notifier.h"

namespace devicemodel {
namespace {

using testsupport::LogCapture;

std::string renderId(int n) {
    return model::generatedEndpointId(model::Flow::Render, std::size_t(n));
}

// Render endpoints 0-5: active, disabled, not present, unplugged, active, active; one
// capture endpoint that no render listing may show.
model::Machine stateMachine() {
    model::MachineBuilder b("states");
    b.adapter(kAdapter, "Codec");
    for (std::uint32_t state : {model::STATE_ACTIVE, model::STATE_DISABLED, model::STATE_NOTPRESENT,
                                model::STATE_UNPLUGGED, model::STATE_ACTIVE, model::STATE_ACTIVE}) {
        b.endpoint(model::Flow::Render).state(state);
    }
    b.endpoint(model::Flow::Capture);
    return b.build();
}

std::vector<std::string> ids(const qel::Array<AudioDevice>& devices) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < devices.size(); ++i) {
        out.push_back(utf8(devices[i].deviceProperty().deviceId));
    }
    return out;
}

class EnumeratorTest : public ::testing::Test {
protected:
    void SetUp() override { sim::installMachine(stateMachine()); }
    LogCapture log;
};

TEST_F(EnumeratorTest, EndpointsAreSplitByStateInMachineOrder) {
    EndpointDeviceEnumeratorCommon e(eRender);
    EXPECT_TRUE(e.enumerator());
    EXPECT_EQ(ids(e.activeDevice()), (std::vector{renderId(0), renderId(4), renderId(5)}));
    EXPECT_EQ(ids(e.disabledDevice()), std::vector{renderId(1)});
    EXPECT_EQ(ids(e.notPresentDevice()), std::vector{renderId(2)});
    EXPECT_EQ(ids(e.unpluggedDevice()), std::vector{renderId(3)});
    EXPECT_EQ(e.disabledDevice()[0].deviceProperty().state, 2u);

    // A second refresh rebuilds the lists instead of adding to them.
    log.clear();
    e.refresh(eRender);
    EXPECT_EQ(e.activeDevice().size(), 3u);
    EXPECT_EQ(
        messages(log, kEnumeratorLog, kInfo),
        (std::vector<std::string>{
            "Device state index 0 found 3 devices", "Device state index 0currently has 0 devices",
            "Device state index 1 found 1 devices", "Device state index 1currently has 0 devices",
            "Device state index 2 found 1 devices", "Device state index 2currently has 0 devices",
            "Device state index 3 found 1 devices",
            "Device state index 3currently has 0 devices"}));
}

// A copy and an assignment carry the four lists and share the platform enumerator; the
// assigned object had other lists and another enumerator before.
TEST_F(EnumeratorTest, CopiesCarryEveryListAndTheEnumerator) {
    EndpointDeviceEnumeratorCommon original(eRender);
    EndpointDeviceEnumeratorCommon copied(original), assigned(eCapture);
    ASSERT_EQ(assigned.activeDevice().size(), 1u);
    assigned = original;
    auto lists = [](const EndpointDeviceEnumeratorCommon& e) {
        return std::vector{ids(e.activeDevice()), ids(e.disabledDevice()),
                           ids(e.notPresentDevice()), ids(e.unpluggedDevice())};
    };
    for (const auto* e : {&copied, &assigned}) {
        SCOPED_TRACE(e == &copied ? "copy" : "assignment");
        EXPECT_EQ(lists(*e), lists(original));
        EXPECT_EQ(e->enumerator(), original.enumerator());
    }
    EXPECT_EQ(ids(assigned.unpluggedDevice()), std::vector{renderId(3)});
}

TEST_F(EnumeratorTest, NoEndpointsGiveFourEmptyLists) {
    sim::installMachine(model::loadMachine("empty"));
    EndpointDeviceEnumeratorCommon e(eCapture);
    EXPECT_EQ(e.activeDevice().size() + e.disabledDevice().size() + e.notPresentDevice().size() +
                  e.unpluggedDevice().size(),
              0u);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(countOf(log, kEnumeratorLog, kInfo,
                          "Device state index " + std::to_string(i) + " found 0 devices"),
                  1);
    }
}

TEST_F(EnumeratorTest, ItemThatCannotBeFetchedIsSkipped) {
    fault("Item", renderId(4), {kNotFound});
    fault("OpenPropertyStore", renderId(5)); // a device whose refresh fails is still listed
    EndpointDeviceEnumeratorCommon e(eRender);
    EXPECT_EQ(ids(e.activeDevice()), (std::vector{renderId(0), renderId(5)}));
    EXPECT_TRUE(e.activeDevice()[1].deviceProperty().friendlyName.empty());
    EXPECT_EQ(messages(log, kEnumeratorLog, kError),
              std::vector<std::string>{"IMMDeviceCollection::Item failed " + hex(kNotFound)});
}

TEST_F(EnumeratorTest, EnumerationFailuresLeaveNothingListed) {
    fault("EnumAudioEndpoints", "render", {kFail}, true);
    EndpointDeviceEnumeratorCommon listed(eRender);
    EXPECT_EQ(listed.activeDevice().size(), 0u);

    libAudio::EndpointDeviceEnumerator all;
    qel::Array<AudioDevice> devices;
    EXPECT_EQ(all.audioDevices(eRender, devices), 0u);
    EXPECT_TRUE(logged(log, kEnumeratorLog, kDebug,
                       "EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection) returns " +
                           hex(kFail)));
    sim::clearFaults();

    fault("CoCreateInstance", "MMDeviceEnumerator", {kFail}, true);
    log.clear();
    EndpointDeviceEnumeratorCommon common;
    EXPECT_FALSE(common.enumerate(eRender));
    EXPECT_FALSE(common.enumerator());
    libAudio::EndpointDeviceEnumerator uninitialized;
    EXPECT_FALSE(uninitialized.isInitialized());
    EXPECT_EQ(uninitialized.audioDevices(eRender, devices), 0u);
    libAudio::OwnedAudioDeviceEnumerator owned = libAudio::enumerator();
    EXPECT_FALSE(owned->initialize());
    EXPECT_EQ(countOf(log, kEnumeratorLog, kError, "CoCreateInstance returns " + hex(kFail)), 3);
}

TEST_F(EnumeratorTest, AllStateListingsCountEveryEndpointOfTheFlow) {
    libAudio::EndpointDeviceEnumerator all;
    qel::Array<AudioDevice> devices;
    devices.append(AudioDevice());
    EXPECT_EQ(all.audioDevices(eRender, devices), 6u);
    EXPECT_EQ(ids(devices)[3], renderId(3));
    EXPECT_TRUE(logged(log, kEnumeratorLog, kInfo, "Device state index 15 found 6 devices"));
    EXPECT_TRUE(
        logged(log, kEnumeratorLog, kDebug,
               "EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection) returns " + hex(S_OK)));

    libAudio::OwnedAudioDeviceEnumerator owned = libAudio::enumerator();
    EXPECT_EQ(owned->audioDevices(eCapture, devices), 0u); // not initialised yet
    EXPECT_TRUE(devices.empty());
    ASSERT_TRUE(owned->initialize());
    EXPECT_EQ(owned->audioDevices(eRender, devices), 6u);
    EXPECT_EQ(ids(devices)[2], renderId(2));
    EXPECT_TRUE(logged(log, kEnumeratorLog, kInfo, "Found 6 devices"));
    EXPECT_EQ(owned->audioDevices(eCapture, devices), 1u);
}

TEST_F(EnumeratorTest, SecondObserverReplacesTheFirst) {
    EndpointDeviceEnumeratorCommon e(eRender);
    CountingClient first, second;
    e.registerNotificationObserver(&first);
    sim::setEndpointState(renderId(0), model::STATE_DISABLED);
    sim::waitForNotifications();
    EXPECT_EQ(first.stateChanges, 1);

    e.registerNotificationObserver(&second);
    e.registerNotificationObserver(nullptr); // changes nothing
    sim::setEndpointState(renderId(0), model::STATE_ACTIVE);
    sim::waitForNotifications();
    EXPECT_EQ(first.stateChanges, 1);
    EXPECT_EQ(second.stateChanges, 1);
    EXPECT_EQ(first.references(), 1); // the platform let go of it

    // The enumerator keeps its observer registered; the platform must not outlive it here.
    EXPECT_EQ(e.enumerator()->UnregisterEndpointNotificationCallback(&second), S_OK);
}

TEST_F(EnumeratorTest, NotificationClientsStayUntilTheEnumeratorGoes) {
    CountingClient client;
    {
        libAudio::OwnedAudioDeviceEnumerator owned = libAudio::enumerator();
        fault("RegisterEndpointNotificationCallback", "");
        EXPECT_FALSE(owned->addNotificationClient(&client));
        EXPECT_TRUE(logged(log, kEnumeratorLog, kError,
                           "Fail to register notification callback " + hex(kFail)));
        EXPECT_EQ(client.references(), 1); // nobody keeps a client that was refused
        EXPECT_TRUE(owned->addNotificationClient(&client));
        sim::setEndpointState(renderId(1), model::STATE_ACTIVE);
        sim::waitForNotifications();
        EXPECT_EQ(client.stateChanges, 1);
    }
    sim::setEndpointState(renderId(1), model::STATE_DISABLED);
    sim::waitForNotifications();
    EXPECT_EQ(client.stateChanges, 1);
    EXPECT_EQ(client.references(), 1);

    fault("CoCreateInstance", "MMDeviceEnumerator", {kFail}, true);
    EXPECT_FALSE(libAudio::enumerator()->addNotificationClient(&client));
    EXPECT_TRUE(logged(log, kEnumeratorLog, kError, "Fail to instantiate IMMDeviceNumerator"));
}

TEST_F(EnumeratorTest, ProcessWideEnumeratorIsOneAndTheFreeFunctionMakesNewOnes) {
    libAudio::SharedAudioDeviceEnumerator& shared =
        libAudio::AudioDeviceEnumeratorFactory::enumerator();
    EXPECT_FALSE(shared.isEmpty());
    EXPECT_EQ(&libAudio::AudioDeviceEnumeratorFactory::enumerator(), &shared);
    EXPECT_EQ(libAudio::AudioDeviceEnumeratorFactory::enumerator().get(), shared.get());
    libAudio::OwnedAudioDeviceEnumerator a = libAudio::enumerator(), b = libAudio::enumerator();
    EXPECT_NE(a.get(), b.get());
    EXPECT_NE(a.get(), shared.get());
    EXPECT_NE(b.get(), shared.get());
}

} // namespace
} // namespace devicemodel
