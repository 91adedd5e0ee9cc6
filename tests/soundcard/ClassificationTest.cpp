// Endpoint classification: each branch of the decision trees over realistic jack records,
// the USB and virtual rules, the state check, the external microphone setting, and what
// the bundled machines' endpoints are.
#include "SoundCardSupport.h"
#include "support/LogMessages.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

namespace soundcard {
namespace {

using model::Flow;

const std::string kCodec = "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0900&SUBSYS_00000001\\4&1&0&0001";
const std::string kUsbAdapter = "USB\\VID_1234&PID_0001&MI_00\\6&1&0&0000";
const std::string kRootAdapter = "ROOT\\MEDIA\\0007";
const std::string kLowerRootAdapter = "SWD\\MEDIA\\0008";

// An endpoint whose own topology is wired to a pin of a filter, the pin carrying the node
// type and the jack descriptions a driver reports.
void pin(model::MachineBuilder& b, Flow flow, const std::string& description, const GUID& nodeType,
         const std::vector<model::Jack>& jacks) {
    b.endpoint(flow, description).endpointDevice();
    std::string endpointId = b.lastEndpoint().id;
    std::string filter = "{2}.\\\\?\\hdaudio#" + description + "#topo";
    b.device(filter).connector(description, nodeType, model::ConnectorType::PhysicalExternal,
                               flow == Flow::Render ? 1 : 0);
    for (const model::Jack& j : jacks) {
        b.jack(j);
    }
    b.connect({endpointId, 0}, {filter, 0});
}

model::Machine classificationMachine() {
    const model::Jack geoOnly = jack(0, kAtapi, 1, 1);      // unknown type at the ATAPI location
    const model::Jack digital = jack(kOtherDigital, kRear); // an internal digital link
    const model::Jack mini = jack(k35mm, kLeft);
    const model::Jack optical = jack(kOptical, kRear);
    model::MachineBuilder b("classes");
    b.adapter(kCodec, "Codec", "PCI\\VEN_8086&DEV_A170\\3&1&0&FB");
    pin(b, Flow::Capture, "Array internal", KSNODETYPE_MICROPHONE_ARRAY, {kInternalJack});
    pin(b, Flow::Capture, "Array no jacks", KSNODETYPE_MICROPHONE_ARRAY, {});
    pin(b, Flow::Capture, "Desktop mic mixed", KSNODETYPE_DESKTOP_MICROPHONE,
        {kInternalJack, mini});
    pin(b, Flow::Capture, "Personal mic digital", KSNODETYPE_PERSONAL_MICROPHONE, {digital});
    pin(b, Flow::Capture, "Omni mic optical", KSNODETYPE_OMNI_DIRECTIONAL_MICROPHONE, {optical});
    pin(b, Flow::Capture, "Plain mic internal", KSNODETYPE_MICROPHONE, {kInternalJack});
    pin(b, Flow::Capture, "Plain mic no jacks", KSNODETYPE_MICROPHONE, {});
    pin(b, Flow::Capture, "Plain mic jack", KSNODETYPE_MICROPHONE, {mini});
    pin(b, Flow::Capture, "Line in quarter", KSNODETYPE_LINE_CONNECTOR, {jack(kQuarter, kRear)});
    pin(b, Flow::Render, "Speaker internal", KSNODETYPE_SPEAKER, {kInternalJack});
    pin(b, Flow::Render, "Speaker no jacks", KSNODETYPE_SPEAKER, {});
    pin(b, Flow::Render, "Desktop speaker no jacks", KSNODETYPE_DESKTOP_SPEAKER, {});
    pin(b, Flow::Render, "Room speaker mixed", KSNODETYPE_ROOM_SPEAKER, {kInternalJack, mini});
    pin(b, Flow::Render, "Communication speaker", KSNODETYPE_COMMUNICATION_SPEAKER, {geoOnly});
    pin(b, Flow::Render, "Subwoofer rca", KSNODETYPE_LOW_FREQUENCY_EFFECTS_SPEAKER,
        {jack(kRca, kRear)});
    pin(b, Flow::Render, "Headphones jack", KSNODETYPE_HEADPHONES, {mini});
    b.adapter(kUsbAdapter, "USB Headset");
    pin(b, Flow::Capture, "USB mic", KSNODETYPE_MICROPHONE, {});
    pin(b, Flow::Capture, "USB array", KSNODETYPE_MICROPHONE_ARRAY, {});
    pin(b, Flow::Render, "USB speaker", KSNODETYPE_SPEAKER, {});
    pin(b, Flow::Render, "USB headphones", KSNODETYPE_HEADPHONES, {});
    b.adapter(kRootAdapter, "Virtual Cable");
    pin(b, Flow::Capture, "Root array", KSNODETYPE_MICROPHONE_ARRAY, {kInternalJack});
    pin(b, Flow::Render, "Root speaker", KSNODETYPE_SPEAKER, {kInternalJack});
    b.adapter(kLowerRootAdapter, "Software Device");
    b.machine().adapters.back().enumerator = "root";
    pin(b, Flow::Capture, "Lower root mic", KSNODETYPE_MICROPHONE, {mini});
    pin(b, Flow::Render, "Lower root speaker", KSNODETYPE_DESKTOP_SPEAKER, {});
    b.endpoint(Flow::Render, "Unplugged speaker").state(model::STATE_UNPLUGGED);
    b.adapter("USB\\VID_1234&PID_0002\\6&2&0&0000", "Mixed Case");
    b.machine().adapters.back().enumerator = "Usb";
    pin(b, Flow::Capture, "Mixed case usb mic", KSNODETYPE_MICROPHONE, {});
    return b.build();
}

// Every endpoint of the installed machine, by description.
AudioDevice byDescription(const std::string& description) {
    libAudio::EndpointDeviceEnumerator enumerator;
    qel::Array<AudioDevice> all;
    enumerator.audioDevices(eAll, all);
    for (const AudioDevice& device : all) {
        if (utf8(device.deviceProperty().endpointType) == description) {
            return device;
        }
    }
    ADD_FAILURE() << "no endpoint " << description;
    return AudioDevice();
}

class ClassificationTest : public ::testing::Test {
protected:
    void SetUp() override { sim::installMachine(classificationMachine()); }
    std::vector<std::string> texts(int priority) {
        return testsupport::messages(log, kEndpointLog, priority);
    }
    bool logged(int priority, const std::string& message) {
        std::vector<std::string> all = texts(priority);
        return std::find(all.begin(), all.end(), message) != all.end();
    }
    LogCapture log;
};

struct MicCase {
    const char* description;
    bool internal, integrated, externalJack, usb, isVirtual;
};

TEST_F(ClassificationTest, MicrophoneDecisionTrees) {
    const MicCase cases[] = {
        // Array with an ATAPI jack: internal, and integrated by the last rule.
        {"Array internal", true, true, false, false, false},
        // No jack descriptions: assumed internal; not a plain microphone, so integrated.
        {"Array no jacks", true, true, false, false, false},
        // One internal-looking jack and one 3.5 mm jack: not internal, and external.
        {"Desktop mic mixed", false, false, true, false, false},
        {"Personal mic digital", true, true, false, false, false},
        // An optical jack neither looks internal nor is an analog jack.
        {"Omni mic optical", false, true, false, false, false},
        // The plain microphone node is never internal; its internal jack still makes it
        // integrated by the last rule, whose call of the internal test is only logged.
        {"Plain mic internal", false, true, false, false, false},
        {"Plain mic no jacks", false, false, false, false, false},
        {"Plain mic jack", false, false, true, false, false},
        {"Line in quarter", false, false, true, false, false},
        {"USB mic", false, true, false, true, false},
        // A USB array is not a USB microphone, but nothing makes it external.
        {"USB array", true, true, false, false, false},
        {"Root array", true, false, false, false, true},
        {"Lower root mic", false, false, true, false, true},
        {"Mixed case usb mic", false, true, false, true, false},
    };
    for (const MicCase& c : cases) {
        SCOPED_TRACE(c.description);
        AudioDevice device = byDescription(c.description);
        EXPECT_EQ(libAudio::isInternalMicrophone(device), c.internal);
        EXPECT_EQ(libAudio::isIntegratedMicrophone(device), c.integrated);
        EXPECT_EQ(libAudio::isExternalAnalogJack(device), c.externalJack);
        EXPECT_EQ(libAudio::isUSBMicrophone(device), c.usb);
        EXPECT_FALSE(libAudio::isUSBSpeaker(device));
        EXPECT_EQ(libAudio::isVirtualDevice(device), c.isVirtual);
    }
}

struct SpeakerCase {
    const char* description;
    bool acceptable, internal, integrated, externalJack, usb, isVirtual;
};

TEST_F(ClassificationTest, SpeakerDecisionTrees) {
    const SpeakerCase cases[] = {
        {"Speaker internal", true, true, true, false, false, false},
        // A plain speaker without jacks is neither internal nor integrated.
        {"Speaker no jacks", true, false, false, false, false, false},
        // Any other speaker kind without jacks is internal.
        {"Desktop speaker no jacks", true, true, true, false, false, false},
        // Speakers have no external-jack rule: a jack still leaves them integrated.
        {"Room speaker mixed", true, false, true, true, false, false},
        {"Communication speaker", true, true, true, false, false, false},
        {"Subwoofer rca", true, false, true, true, false, false},
        {"Headphones jack", false, false, true, true, false, false},
        {"USB speaker", true, false, true, false, true, false},
        {"USB headphones", false, false, true, false, false, false},
        {"Root speaker", true, true, false, false, false, true},
        {"Lower root speaker", true, true, false, false, false, true},
    };
    for (const SpeakerCase& c : cases) {
        SCOPED_TRACE(c.description);
        AudioDevice device = byDescription(c.description);
        EXPECT_EQ(libAudio::acceptableSpeakerTypes(device), c.acceptable);
        EXPECT_EQ(libAudio::isInternalSpeaker(device), c.internal);
        EXPECT_EQ(libAudio::isIntegratedSpeaker(device), c.integrated);
        EXPECT_EQ(libAudio::isExternalAnalogJack(device), c.externalJack);
        EXPECT_EQ(libAudio::isUSBSpeaker(device), c.usb);
        EXPECT_FALSE(libAudio::isUSBMicrophone(device));
        EXPECT_EQ(libAudio::isVirtualDevice(device), c.isVirtual);
    }
}

TEST_F(ClassificationTest, RefusalsAndAssumptionsAreLoggedAsErrors) {
    struct Case {
        const char* description;
        std::function<bool(AudioDevice&)> test;
        const char* message; // nullptr: none
    } cases[] = {
        {"Plain mic internal", libAudio::isInternalMicrophone,
         "Audio device Plain mic internal Codec is not a recognized microphone device."},
        {"Array no jacks", libAudio::isInternalMicrophone,
         "No jack description available, but endpoint type is Array no jacks so assume "
         "internal mic."},
        {"Headphones jack", libAudio::isInternalSpeaker,
         "Audio device Headphones jack Codec is not a recognized speaker device."},
        {"Desktop speaker no jacks", libAudio::isInternalSpeaker,
         "No jack description available, but endpoint type is Desktop speaker no jacks so "
         "assume internal speaker."},
        // The plain speaker without jacks is refused silently.
        {"Speaker no jacks", libAudio::isInternalSpeaker, nullptr},
        {"Speaker internal", libAudio::isInternalSpeaker, nullptr},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.description);
        AudioDevice device = byDescription(c.description);
        log.clear();
        c.test(device);
        std::vector<std::string> errors = texts(kError);
        if (c.message) {
            EXPECT_EQ(errors, std::vector<std::string>{c.message});
        } else {
            EXPECT_TRUE(errors.empty()) << errors[0];
        }
    }
}

TEST_F(ClassificationTest, InternalSpeakerLogsEveryJackInOrder) {
    AudioDevice device = byDescription("Room speaker mixed");
    log.clear();
    EXPECT_FALSE(libAudio::isInternalSpeaker(device));
    std::vector<std::string> jackLines;
    for (const std::string& line : texts(kDebug)) {
        if (line.rfind("Connection", 0) == 0) {
            jackLines.push_back(line);
        }
    }
    EXPECT_EQ(jackLines, (std::vector<std::string>{
                             "Connection Geolocations: 13", "Connection Genlocations: 1",
                             "Connection ConnectionType: 3", "Connection PortConnection: 1",
                             "Connection: 1", "Connection Geolocations: 3",
                             "Connection Genlocations: 0", "Connection ConnectionType: 1",
                             "Connection PortConnection: 0", "Connection: 1"}));
}

TEST_F(ClassificationTest, IntegratedTreesAskTheNoJackTestAndTheExternalJacks) {
    AudioDevice plain = byDescription("Plain mic jack");
    log.clear();
    EXPECT_FALSE(libAudio::isIntegratedMicrophone(plain));
    EXPECT_TRUE(logged(kDebug, "Is a KSNODETYPE_MICROPHONE node"));
    EXPECT_TRUE(logged(kDebug, "Number of jack information 1"));
    EXPECT_TRUE(logged(kDebug, "Jack 0 connection type 1"));

    AudioDevice array = byDescription("Array internal");
    log.clear();
    EXPECT_TRUE(libAudio::isIntegratedMicrophone(array));
    EXPECT_TRUE(logged(kDebug, "Is not a KSNODETYPE_MICROPHONE node"));
    EXPECT_TRUE(logged(kDebug, "Jack 0 connection type 3"));

    AudioDevice speaker = byDescription("Speaker no jacks");
    log.clear();
    EXPECT_FALSE(libAudio::isIntegratedSpeaker(speaker));
    EXPECT_TRUE(logged(kDebug, "Is a KSNODETYPE_SPEAKER node"));

    // The root rule comes first: no other test runs.
    AudioDevice root = byDescription("Root speaker");
    log.clear();
    EXPECT_FALSE(libAudio::isIntegratedSpeaker(root));
    EXPECT_FALSE(logged(kDebug, "Is a KSNODETYPE_SPEAKER node"));
}

TEST_F(ClassificationTest, ActiveReadsTheStateAgain) {
    AudioDevice unplugged = byDescription("Unplugged speaker");
    AudioDevice active = byDescription("Speaker internal");
    EXPECT_FALSE(libAudio::isActive(unplugged));
    EXPECT_TRUE(logged(kDebug, "Checking device state using up-to-date information: 0"));
    EXPECT_TRUE(libAudio::isActive(active));

    // The device was read while unplugged; the check sees the jack plugged in since.
    std::string id = utf8(unplugged.deviceProperty().deviceId);
    ASSERT_TRUE(sim::setEndpointState(id, model::STATE_ACTIVE));
    EXPECT_TRUE(libAudio::isActive(unplugged));
    EXPECT_EQ(unplugged.deviceProperty().state, DEVICE_STATE_ACTIVE);

    sim::addFault(model::Fault{"OpenPropertyStore", id, {E_FAIL}, false});
    log.clear();
    EXPECT_FALSE(libAudio::isActive(unplugged));
    EXPECT_TRUE(logged(kDebug, "Unable to update test device info. Assume not active."));
}

// The setting comes from the file LIBAUDIO_SETTINGS names, read on every lookup.
class ExternalMicSettingTest : public ::testing::Test {
protected:
    void TearDown() override {
        setenv("LIBAUDIO_SETTINGS", "", 1);
        std::remove(m_path.c_str());
    }
    void settings(const std::string& content) {
        std::ofstream(m_path) << content;
        setenv("LIBAUDIO_SETTINGS", m_path.c_str(), 1);
    }
    std::string m_path = ::testing::TempDir() + "soundcard-settings.ini";
};

TEST_F(ExternalMicSettingTest, AbsentIsFalseAndPresentIsReadAsABoolean) {
    setenv("LIBAUDIO_SETTINGS", "", 1);
    EXPECT_FALSE(libAudio::allowExternalMicTesting());

    struct Case {
        const char* file;
        bool allowed;
    } cases[] = {
        {"[other]\nAllowExternalMicTesting.value = yes\n", false},
        {"[qelrsysinfodirect]\nSomethingElse = 1\n", false},
        {"[qelrsysinfodirect]\nAllowExternalMicTesting.value =   yes  \n", true},
        {"[QELRSysInfoDirect]\nallowexternalmictesting.VALUE = TRUE\n", true},
        {"[qelrsysinfodirect]\nAllowExternalMicTesting.value = 1\n", true},
        {"[qelrsysinfodirect]\nAllowExternalMicTesting.value = off\n", false},
        {"[qelrsysinfodirect]\nAllowExternalMicTesting.value = 0\n", false},
        {"[qelrsysinfodirect]\nAllowExternalMicTesting.value =\n", false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        settings(c.file);
        EXPECT_EQ(libAudio::allowExternalMicTesting(), c.allowed);
    }
}

// What the bundled machines' endpoints are, by the flow's own trees.
struct BundledCase {
    std::string id;
    bool internal, integrated, externalJack, usb, isVirtual;
};

void checkBundled(const std::vector<BundledCase>& cases, bool capture) {
    for (const BundledCase& c : cases) {
        SCOPED_TRACE(c.id);
        AudioDevice device = endpoint(c.id);
        if (capture) {
            EXPECT_EQ(libAudio::isInternalMicrophone(device), c.internal);
            EXPECT_EQ(libAudio::isIntegratedMicrophone(device), c.integrated);
            EXPECT_EQ(libAudio::isUSBMicrophone(device), c.usb);
        } else {
            EXPECT_EQ(libAudio::isInternalSpeaker(device), c.internal);
            EXPECT_EQ(libAudio::isIntegratedSpeaker(device), c.integrated);
            EXPECT_EQ(libAudio::isUSBSpeaker(device), c.usb);
        }
        EXPECT_EQ(libAudio::isExternalAnalogJack(device), c.externalJack);
        EXPECT_EQ(libAudio::isVirtualDevice(device), c.isVirtual);
        EXPECT_TRUE(libAudio::isActive(device));
    }
}

TEST(BundledClassificationTest, Laptop) {
    installBundled("laptop");
    using namespace laptop;
    checkBundled({{kSpeakers, true, true, false, false, false},
                  {kHeadphones, false, true, true, false, false},
                  {kHdmi, false, true, false, false, false},
                  {kUsbSpeakers, false, true, false, true, false},
                  {kCable, false, false, false, false, true}},
                 false);
    checkBundled({{kMicArray, true, true, false, false, false},
                  {kHeadsetMic, false, false, true, false, false},
                  {kUsbMic, false, true, false, true, false}},
                 true);
}

TEST(BundledClassificationTest, Desktop) {
    installBundled("desktop");
    using namespace desktop;
    checkBundled({{kSpeakers, false, true, true, false, false},
                  {kHeadphones, false, true, true, false, false},
                  {kSpdif, false, true, false, false, false},
                  {kDisplayPort, false, true, false, false, false}},
                 false);
    checkBundled({{kMicrophone, false, false, true, false, false},
                  {kLineIn, false, false, true, false, false}},
                 true);
    AudioDevice front = endpoint(kFrontMic);
    EXPECT_FALSE(libAudio::isActive(front));
    EXPECT_FALSE(libAudio::isIntegratedMicrophone(front));
}

} // namespace
} // namespace soundcard
