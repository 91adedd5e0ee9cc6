// The library run by a user without administrator rights: the platform refuses to open a
// property store for writing, and the library opens every store for reading and writing, so
// each endpoint's refresh fails and its properties stay empty. The process's rights come
// from the machine ("elevated") or from LIBAUDIO_ELEVATED.
#include "DeviceModelSupport.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/EndpointDeviceEnumerator.h"

#include <cstdlib>

namespace devicemodel {
namespace {

using testsupport::LogCapture;

const std::string kSpeakers = model::generatedEndpointId(model::Flow::Render, 0);
const std::string kMicrophone = model::generatedEndpointId(model::Flow::Capture, 1);
const std::string kDenied = "OpenPropertyStore returns " + hex(E_ACCESSDENIED);

model::Machine codec(bool elevated) {
    model::MachineBuilder b("rights");
    b.adapter(kAdapter, "Codec");
    b.endpoint(model::Flow::Render, "Speakers", model::Speakers).volume({-12, -12});
    b.endpoint(model::Flow::Capture, "Microphone", model::Microphone);
    b.machine().elevated = elevated;
    return b.build();
}

// Sets LIBAUDIO_ELEVATED for one test and puts back what was there.
class ElevationVariable {
public:
    explicit ElevationVariable(const char* value) {
        const char* before = std::getenv(kName);
        m_before = before ? std::optional<std::string>(before) : std::nullopt;
        set(value);
    }
    ~ElevationVariable() { set(m_before ? m_before->c_str() : nullptr); }
    ElevationVariable(const ElevationVariable&) = delete;
    ElevationVariable& operator=(const ElevationVariable&) = delete;

private:
    static void set(const char* value) {
        if (value) {
            setenv(kName, value, 1);
        } else {
            unsetenv(kName);
        }
    }
    static constexpr const char* kName = "LIBAUDIO_ELEVATED";
    std::optional<std::string> m_before;
};

class ElevationTest : public ::testing::Test {
protected:
    LogCapture log;
};

TEST_F(ElevationTest, AUserWithoutRightsGetsEndpointsWithoutProperties) {
    sim::installMachine(codec(false));
    AudioDevice speakers;
    EXPECT_FALSE(speakers.initialize(platformDevice(kSpeakers)));
    EXPECT_TRUE(speakers.isInitialized());
    EXPECT_TRUE(logged(log, kEndpointLog, kInfo, kDenied));
    const AudioDevice::Properties& p = speakers.deviceProperty();
    EXPECT_EQ(utf8(p.deviceId), kSpeakers) << "the id comes from the device, not its store";
    EXPECT_TRUE(p.friendlyName.empty());
    EXPECT_TRUE(p.endpointType.empty());
    EXPECT_EQ(p.deviceFormat.Format.wFormatTag, 0);
    EXPECT_EQ(p.state, 0xFFFFFFFFu) << "the refresh stops before it reads the state";
    EXPECT_FALSE(speakers.refreshDeviceInformation());
    WAVEFORMATEXTENSIBLE format{};
    EXPECT_FALSE(speakers.setFormat(format));

    // The volume needs no store: the controller works all the same.
    ASSERT_FALSE(speakers.volumeControl().isEmpty());
    EXPECT_FLOAT_EQ(speakers.volumeControl()->masterVolumeLevelDecibel(), -12.0f);

    // Enumeration still lists every endpoint, each as empty.
    EndpointDeviceEnumeratorCommon render(eRender);
    qel::Array<AudioDevice> active = render.activeDevice();
    ASSERT_EQ(active.size(), 1u);
    EXPECT_TRUE(active[0].deviceProperty().friendlyName.empty());
    EXPECT_GE(countOf(log, kEndpointLog, kInfo, kDenied), 2);
}

TEST_F(ElevationTest, TheEnvironmentTakesTheRightsAwayButCannotGrantThem) {
    sim::installMachine(codec(true));
    {
        ElevationVariable user("0");
        AudioDevice microphone;
        EXPECT_FALSE(microphone.initialize(platformDevice(kMicrophone)));
        EXPECT_TRUE(logged(log, kEndpointLog, kInfo, kDenied));
    }
    for (const char* value : {"1", "yes", ""}) {
        ElevationVariable admin(value);
        AudioDevice microphone;
        EXPECT_TRUE(microphone.initialize(platformDevice(kMicrophone))) << value;
        EXPECT_EQ(utf8(microphone.deviceProperty().friendlyName), "Codec") << value;
        EXPECT_EQ(utf8(microphone.deviceProperty().endpointType), "Microphone") << value;
    }
    EXPECT_EQ(countOf(log, kEndpointLog, kInfo, kDenied), 1);

    sim::installMachine(codec(false));
    ElevationVariable admin("1");
    AudioDevice speakers;
    EXPECT_FALSE(speakers.initialize(platformDevice(kSpeakers)))
        << "the machine's user has no rights to grant";
}

} // namespace
} // namespace devicemodel
