// AudioDevice over the simulated platform: the property refresh and its tolerance of
// missing properties, the node type, jacks, identity comparisons and the legacy number.
#include "DeviceModelSupport.h"
#include "platform/sim/control.h"
#include "libAudio/AudioDevice.h"
#include "libAudio/EndpointDeviceEnumerator.h"

#include <cstring>

namespace devicemodel {
namespace {

using testsupport::LogCapture;

const std::string kSpeakers = "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000a1}";
const std::string kDisabled = "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000a2}";
const std::string kLine = "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000a3}";
// The speakers' id in another case: a different endpoint to the platform.
const std::string kSpeakersUpper = "{0.0.0.00000000}.{00000000-0000-0000-0000-0000000000A1}";
const std::string kMic = "{0.0.1.00000000}.{00000000-0000-0000-0000-0000000000b1}";

model::Jack jackOfColor(std::uint32_t color) {
    model::Jack jack;
    jack.color = color;
    return jack;
}

// Legacy render numbers: speakers 0, line 1, upper-case speakers 2 (the disabled one has
// none). The speakers' first connector leads to the filter's Speaker; the line's first
// connector is unconnected and its second leads to a pin with two jacks.
model::Machine deviceMachine() {
    model::MachineBuilder b("devices");
    b.adapter(kAdapter, "Codec");
    b.machine().adapters.back().driverNodeStrongName = "oem7.inf:codec";
    b.endpoint(model::Flow::Render, "Speakers", model::Speakers).id(kSpeakers).endpointDevice();
    b.connector("second", GUID{}, model::ConnectorType::SoftwareFixed, 0);
    b.endpoint(model::Flow::Render, "Disabled").id(kDisabled).state(model::STATE_DISABLED);
    b.endpoint(model::Flow::Render, "Line Out", model::LineLevel).id(kLine).endpointDevice();
    b.connector("wired", GUID{}, model::ConnectorType::SoftwareFixed, 0);
    b.endpoint(model::Flow::Render, "Speakers").id(kSpeakersUpper);
    b.endpoint(model::Flow::Capture, "Microphone", model::Microphone).id(kMic);
    b.device("filter")
        .connector("Speaker", KSNODETYPE_SPEAKER, model::ConnectorType::PhysicalInternal, 1)
        .jack(jackOfColor(0x111111))
        .connector("Headphone", KSNODETYPE_HEADPHONES, model::ConnectorType::PhysicalExternal, 1)
        .jack(jackOfColor(0x222222))
        .connector("Line", KSNODETYPE_LINE_CONNECTOR, model::ConnectorType::PhysicalExternal, 1)
        .jack(jackOfColor(0x333333))
        .jack(jackOfColor(0x444444));
    b.connect({kSpeakers, 0}, {"filter", 0}).connect({kSpeakers, 1}, {"filter", 1});
    b.connect({kLine, 1}, {"filter", 2});
    b.defaultEndpoint(model::Flow::Render, kSpeakers);
    return b.build();
}

class AudioDeviceTest : public ::testing::Test {
protected:
    void SetUp() override { sim::installMachine(deviceMachine()); }

    static AudioDevice device(const std::string& id) {
        AudioDevice d;
        EXPECT_TRUE(d.initialize(platformDevice(id))) << id;
        return d;
    }
    LogCapture log;
};

using Props = AudioDevice::Properties;
std::string formatBytes(const Props& p) {
    return std::string(reinterpret_cast<const char*>(&p.deviceFormat), sizeof p.deviceFormat);
}

// A property's row in the record, as text.
std::string row(const Props& p, int n) {
    const qel::String* texts[] = {&p.endpointType,   nullptr,         nullptr,
                                  &p.enumeratorName, &p.instancePath, &p.driverNodeStrongName,
                                  &p.friendlyName};
    return n == 1   ? formatBytes(p)
           : n == 2 ? std::to_string(p.eventDriven)
           : n == 7 ? std::to_string(p.physicalSpeakers)
                    : utf8(*texts[n]);
}

struct PropertyCase {
    PROPERTYKEY key;
    const char* message;
};

// In the order the refresh reads them; the position selects the row.
const PropertyCase kProperties[] = {
    {PKEY_Device_DeviceDesc, "Cannot get PKEY_Device_DeviceDesc information."},
    {PKEY_AudioEngine_DeviceFormat, "Cannot get PKEY_AudioEngine_DeviceFormat information."},
    {PKEY_AudioEndpoint_Supports_EventDriven_Mode,
     "Cannot get PKEY_AudioEndpoint_Supports_EventDriven_Mode"},
    {PKEY_Device_EnumeratorName, "Fail to get device enumerator name"},
    {AudioDevice::m_instancePathKey, "Fail to get instancePathKey value "},
    {AudioDevice::m_driverNodeStrongName, "Fail to get driverNodeStrongName value "},
    {AudioDevice::m_friendlyName, "Fail to get device friendly name "},
    {PKEY_AudioEndpoint_PhysicalSpeakers, "Fail to get physical speaker config "},
};

TEST_F(AudioDeviceTest, MissingPropertiesAreLoggedInReadOrderAndDoNotFailTheRefresh) {
    for (const PropertyCase& c : kProperties) {
        overrideProperty(kSpeakers, c.key, std::nullopt);
    }
    overrideProperty(kSpeakers, PKEY_AudioEndpoint_GUID, std::nullopt); // silent when missing
    AudioDevice d;
    EXPECT_TRUE(d.initialize(platformDevice(kSpeakers)));
    std::vector<std::string> expected;
    for (int n = 0; n < 8; ++n) {
        expected.push_back(kProperties[n].message);
        EXPECT_EQ(row(d.deviceProperty(), n), row(Props{}, n)) << kProperties[n].message;
    }
    EXPECT_EQ(messages(log, kEndpointLog, kInfo), expected);
    EXPECT_TRUE(messages(log, kEndpointLog, kError).empty());
    EXPECT_EQ(utf8(d.deviceProperty().deviceId), kSpeakers);
    EXPECT_EQ(d.deviceProperty().state, 1u);
}

TEST_F(AudioDeviceTest, AMissingPropertyKeepsItsEarlierValueAndTheRestIsStillRead) {
    for (int n = 0; n < 8; ++n) {
        const PropertyCase& c = kProperties[n];
        SCOPED_TRACE(c.message);
        sim::installMachine(deviceMachine());
        AudioDevice d = device(kSpeakers);
        std::string before = row(d.deviceProperty(), n);
        ASSERT_NE(before, row(Props{}, n)); // else keeping it would prove nothing
        overrideProperty(kSpeakers, c.key, std::nullopt);
        // Read last of all: a new value shows that the refresh went on to the end.
        overrideProperty(kSpeakers, PKEY_AudioEndpoint_GUID,
                         textValue("{0A0B0C0D-0000-0000-0000-000000000001}"));
        log.clear();
        EXPECT_TRUE(d.refreshDeviceInformation());
        EXPECT_EQ(row(d.deviceProperty(), n), before);
        EXPECT_EQ(d.deviceProperty().directSoundGuid.Data1, 0x0A0B0C0Du);
        EXPECT_EQ(messages(log, kEndpointLog, kInfo), std::vector<std::string>{c.message});
    }
}

TEST_F(AudioDeviceTest, DeviceFormatIsTakenOnlyFromA40ByteBlob) {
    std::vector<std::uint8_t> forty(40);
    for (std::size_t i = 0; i < forty.size(); ++i) {
        forty[i] = std::uint8_t(0xC0 + i);
    }
    const struct {
        const char* name;
        model::PropertyValue value;
        bool accepted;
    } cases[] = {
        {"39 bytes", blobValue(std::vector<std::uint8_t>(forty.begin(), forty.end() - 1)), false},
        {"41 bytes", blobValue([&] {
             auto v = forty;
             v.push_back(0);
             return v;
         }()),
         false},
        {"a number", numberValue(40), false},
        {"a string", textValue(std::string(40, 'x')), false},
        {"40 bytes", blobValue(forty), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AudioDevice d = device(kSpeakers);
        std::string before = formatBytes(d.deviceProperty());
        overrideProperty(kSpeakers, PKEY_AudioEngine_DeviceFormat, c.value);
        log.clear();
        EXPECT_TRUE(d.refreshDeviceInformation());
        std::string expected = c.accepted ? std::string(forty.begin(), forty.end()) : before;
        EXPECT_EQ(formatBytes(d.deviceProperty()), expected);
        EXPECT_EQ(countOf(log, kEndpointLog, kInfo,
                          "Cannot get PKEY_AudioEngine_DeviceFormat information."),
                  c.accepted ? 0 : 1);
    }
}

TEST_F(AudioDeviceTest, DirectSoundGuidThatIsNoGuidIsAnError) {
    overrideProperty(kSpeakers, PKEY_AudioEndpoint_GUID, textValue("not a guid"));
    AudioDevice d = device(kSpeakers);
    EXPECT_TRUE(logged(log, kEndpointLog, kError,
                       "CLSIDFromString cannot convert sting guid to direct sound guid"));
}

TEST_F(AudioDeviceTest, PropertyStoreFailureFailsTheRefreshButNotTheVolumeControl) {
    fault("OpenPropertyStore", kSpeakers);
    AudioDevice d;
    EXPECT_FALSE(d.initialize(platformDevice(kSpeakers)));
    EXPECT_TRUE(logged(log, kEndpointLog, kInfo, "OpenPropertyStore returns " + hex(kFail)));
    EXPECT_EQ(utf8(d.deviceProperty().deviceId), kSpeakers); // read before the store
    EXPECT_TRUE(d.deviceProperty().friendlyName.empty());
    EXPECT_FALSE(d.volumeControl().isEmpty());
    EXPECT_TRUE(d.refreshDeviceInformation()); // the fault was for one call only
    EXPECT_EQ(utf8(d.deviceProperty().friendlyName), "Codec");
}

TEST_F(AudioDeviceTest, StateFailureKeepsTheLastState) {
    AudioDevice d = device(kSpeakers);
    fault("GetState", kSpeakers);
    EXPECT_EQ(d.refreshDeviceState(), 1u);
    EXPECT_TRUE(logged(log, kEndpointLog, kError, "GetState failed " + hex(kFail)));
    EXPECT_EQ(AudioDevice().refreshDeviceState(), 0xFFFFFFFFu);
    EXPECT_EQ(device(kDisabled).deviceProperty().state, 2u);
}

TEST_F(AudioDeviceTest, DeviceThatIsNoEndpointGetsNoVolumeControl) {
    fault("QueryInterface.IMMEndpoint", kSpeakers, {kFail}, true);
    AudioDevice d = device(kSpeakers);
    EXPECT_TRUE(d.volumeControl().isEmpty());
    EXPECT_TRUE(
        logged(log, kEndpointLog, kError, "QueryInterface for IMMEndpoint failed " + hex(kFail)));
    EXPECT_TRUE(logged(log, kEndpointLog, kError,
                       "Not implemented. Subunits don't always have a volume controller"));
}

TEST_F(AudioDeviceTest, NodeGuidComesFromThePartnerOfTheFirstConnector) {
    AudioDevice speakers = device(kSpeakers);
    EXPECT_EQ(speakers.deviceProperty().nodeGuid, KSNODETYPE_SPEAKER);
    EXPECT_TRUE(logged(log, kEndpointLog, kDebug, "Size of connList = 2"));
    EXPECT_TRUE(
        logged(log, kEndpointLog, kDebug, "IConnector::GetConnectedTo returns " + hex(S_OK)));

    // A failed connection query keeps the earlier node type, even when the partner changed.
    sim::withMachine([](model::Machine& m) {
        m.findPart({"filter", 0})->subType = KSNODETYPE_LINE_CONNECTOR;
    });
    fault("GetConnectedTo", kSpeakers + "/00000000");
    log.clear();
    EXPECT_TRUE(speakers.refreshDeviceInformation());
    EXPECT_EQ(speakers.deviceProperty().nodeGuid, KSNODETYPE_SPEAKER);
    EXPECT_TRUE(
        logged(log, kEndpointLog, kDebug, "IConnector::GetConnectedTo returns " + hex(kFail)));
    EXPECT_TRUE(speakers.refreshDeviceInformation());
    EXPECT_EQ(speakers.deviceProperty().nodeGuid, KSNODETYPE_LINE_CONNECTOR);

    log.clear();
    EXPECT_EQ(device(kLine).deviceProperty().nodeGuid, GUID{}); // first connector unconnected
    EXPECT_TRUE(
        logged(log, kEndpointLog, kDebug, "IConnector::GetConnectedTo returns " + hex(E_NOTFOUND)));
    log.clear();
    EXPECT_EQ(device(kSpeakersUpper).deviceProperty().nodeGuid, GUID{}); // no topology at all
    EXPECT_TRUE(logged(log, kEndpointLog, kDebug, "Size of connList = 0"));
}

std::vector<std::uint32_t> jackColors(const AudioDevice& d) {
    qel::Array<KSJACK_DESCRIPTION> jacks;
    jacks.append(KSJACK_DESCRIPTION{}); // emptied first
    std::vector<std::uint32_t> colors;
    unsigned int n = d.jackInfo(jacks);
    EXPECT_EQ(n, jacks.size());
    for (unsigned int i = 0; i < jacks.size(); ++i) {
        colors.push_back(jacks[i].Color);
    }
    return colors;
}

TEST_F(AudioDeviceTest, JackInfoSkipsConnectorsThatLeadNowhere) {
    EXPECT_EQ(jackColors(device(kSpeakers)), (std::vector<std::uint32_t>{0x111111, 0x222222}));
    AudioDevice line = device(kLine);
    log.clear();
    EXPECT_EQ(jackColors(line), (std::vector<std::uint32_t>{0x333333, 0x444444}));
    EXPECT_EQ(countOf(log, kEndpointLog, kDebug, "No Jack Info for non-active device"), 1);
    EXPECT_FALSE(logged(log, kEndpointLog, kDebug, "No jack info. Can't find IPart"));

    fault("QueryInterface.IPart", "filter/00000002");
    EXPECT_TRUE(jackColors(line).empty());
    EXPECT_TRUE(logged(log, kEndpointLog, kDebug, "No jack info. Can't find IPart"));

    log.clear();
    EXPECT_TRUE(jackColors(device(kSpeakersUpper)).empty());
    // A jack and connector detail, not a failure.
    EXPECT_TRUE(logged(log, kEndpointLog, kDebug, "Audio device has no topology"));
    EXPECT_TRUE(messages(log, kEndpointLog, kError).empty());
}

TEST_F(AudioDeviceTest, EqualityIgnoresCaseButTheDefaultTestAndLegacySearchDoNot) {
    AudioDevice speakers = device(kSpeakers), upper = device(kSpeakersUpper);
    AudioDevice line = device(kLine), mic = device(kMic);
    EXPECT_TRUE(speakers == upper);
    EXPECT_FALSE(speakers == line);
    EXPECT_TRUE(speakers.isDefaultEndpoint());
    EXPECT_FALSE(upper.isDefaultEndpoint());
    EXPECT_FALSE(line.isDefaultEndpoint());

    EXPECT_EQ(speakers.waveLegacyDeviceID(), 0u);
    EXPECT_EQ(line.waveLegacyDeviceID(), 1u); // the disabled endpoint has no number
    EXPECT_EQ(mic.waveLegacyDeviceID(), 0u);  // capture devices are numbered apart
    log.clear();
    EXPECT_EQ(upper.waveLegacyDeviceID(), 2u);
    const Props& p = upper.deviceProperty();
    EXPECT_EQ(messages(log, kEndpointLog, kInfo),
              std::vector<std::string>{"Endpoint device " + utf8(p.endpointType) + " " +
                                       utf8(p.friendlyName) + " " + kSpeakersUpper +
                                       " has wave id = 2"});
}

// The driver's result is a small number; accepted in decimal or in hexadecimal.
bool isWaveError(const std::string& text, unsigned int code) {
    const std::string prefix = "waveMessage returns an error ";
    if (text.rfind(prefix, 0) != 0) {
        return false;
    }
    std::string rest = text.substr(prefix.size());
    return rest == std::to_string(code) || rest == hex(HRESULT(code));
}

TEST_F(AudioDeviceTest, LegacySearchGoesOnPastDevicesThatRefuseAMessage) {
    AudioDevice line = device(kLine);
    const HRESULT kNoMemory = HRESULT(MMSYSERR_NOMEM);
    // Device 0 refuses the size query, then (second round) the id query.
    for (std::vector<HRESULT> results :
         {std::vector<HRESULT>{kNoMemory}, std::vector<HRESULT>{S_OK, kNoMemory}}) {
        fault("waveOutMessage", kSpeakers, results);
        log.clear();
        EXPECT_EQ(line.waveLegacyDeviceID(), 1u);
        std::vector<std::string> errors = messages(log, kEndpointLog, kError);
        ASSERT_EQ(errors.size(), 1u);
        EXPECT_TRUE(isWaveError(errors[0], MMSYSERR_NOMEM)) << errors[0];
    }
    fault("waveOutMessage", kLine, {kNoMemory}, true);
    EXPECT_EQ(line.waveLegacyDeviceID(), 0xFFFFFFFFu);
    sim::clearFaults();
    fault("GetDataFlow", kLine);
    EXPECT_EQ(line.waveLegacyDeviceID(), 0xFFFFFFFFu);
    EXPECT_TRUE(logged(log, kEndpointLog, kError, "Audio stream flow cannot be determined"));
}

TEST_F(AudioDeviceTest, LegacySearchStopsWhenTheIdBufferCannotBeHad) {
    AudioDevice line = device(kLine);
    sim::failNextCoTaskMemAlloc();
    EXPECT_EQ(line.waveLegacyDeviceID(), 0xFFFFFFFFu);
    EXPECT_TRUE(logged(log, kEndpointLog, kError, "Cannot allocate device id buffer"));
    // The search stopped at device 0 although device 1 is the line's.
    for (const std::string& text : messages(log, kEndpointLog, kInfo)) {
        EXPECT_EQ(text.find("has wave id"), std::string::npos) << text;
    }
    EXPECT_EQ(line.waveLegacyDeviceID(), 1u);
}

TEST_F(AudioDeviceTest, DefaultEndpointTestFailsAtEachStep) {
    AudioDevice speakers = device(kSpeakers);
    const struct {
        const char* operation;
        std::string target;
        std::string message;
    } steps[] = {
        {"CoCreateInstance", "MMDeviceEnumerator",
         "CoCreateInstance for MMDeviceEnumerator returns "},
        {"QueryInterface.IMMEndpoint", kSpeakers, "QueryInterface returns "},
        {"GetDataFlow", kSpeakers, "GetDataFlow returns "},
        {"GetDefaultAudioEndpoint", "render", "GetDefaultAudioEndpoint returns "},
        {"GetId", kSpeakers, "GetId returns "},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.operation);
        fault(step.operation, step.target, {kNotFound});
        log.clear();
        EXPECT_FALSE(speakers.isDefaultEndpoint());
        EXPECT_EQ(messages(log, kEndpointLog, kError),
                  std::vector<std::string>{step.message + hex(kNotFound)});
        EXPECT_TRUE(speakers.isDefaultEndpoint());
    }
}

TEST_F(AudioDeviceTest, SetFormatWritesReopensAndRereads) {
    WAVEFORMATEXTENSIBLE format{};
    format.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    format.Format.nChannels = 6;
    format.Format.nSamplesPerSec = 96000;
    format.Format.cbSize = 22;
    EXPECT_FALSE(AudioDevice().setFormat(format));
    EXPECT_TRUE(logged(log, kEndpointLog, kError,
                       "m_propertyStore is not set to a valid property store instance"));

    AudioDevice d = device(kSpeakers);
    fault("SetValue", kSpeakers);
    EXPECT_FALSE(d.setFormat(format));
    EXPECT_TRUE(logged(log, kEndpointLog, kError, "IPropertyStore::SetValue failed " + hex(kFail)));
    fault("OpenPropertyStore", kSpeakers);
    EXPECT_FALSE(d.setFormat(format));
    EXPECT_TRUE(
        logged(log, kEndpointLog, kError, "Cannot open a new property store " + hex(kFail)));
    EXPECT_FALSE(d.setFormat(format)); // the store was let go with the failure
    EXPECT_TRUE(d.refreshDeviceInformation());
    EXPECT_TRUE(d.setFormat(format));
    EXPECT_EQ(std::memcmp(&d.deviceProperty().deviceFormat, &format, sizeof format), 0);
}

TEST_F(AudioDeviceTest, MissingClientAndFilterAreReported) {
    qel::Array<WAVEFORMATEX> formats;
    formats.append(WAVEFORMATEX{});
    EXPECT_EQ(AudioDevice().compatibleFormats(formats, AUDCLNT_SHAREMODE_SHARED), 0u);
    EXPECT_EQ(formats.size(), 0u);
    EXPECT_TRUE(logged(log, kEndpointLog, kError, "Device  has no IAudioClient interface"));
    EXPECT_TRUE(
        logged(log, kEndpointLog, kError, "AudioDevice has not been initialized correctly"));
    AudioDevice d = device(kSpeakers);
    fault("Activate.IBaseFilter", kSpeakers);
    EXPECT_FALSE(d.baseFilter());
    EXPECT_TRUE(
        logged(log, kEndpointLog, kError, "Device " + kSpeakers + " has no IBaseFilter interface"));
    EXPECT_TRUE(d.baseFilter());
}

TEST_F(AudioDeviceTest, PropertyLogNamesAnEmptyEnumeratorAC97) {
    overrideProperty(kSpeakers, PKEY_Device_EnumeratorName, textValue(""));
    overrideProperty(kSpeakers, PKEY_AudioEndpoint_Supports_EventDriven_Mode, numberValue(0));
    device(kSpeakers).deviceProperty().logPropertyInfo();
    device(kLine).deviceProperty().logPropertyInfo();
    EXPECT_EQ(countOf(log, kEndpointLog, kInfo, "Enumerator name AC97"), 1);
    EXPECT_EQ(countOf(log, kEndpointLog, kInfo, "Enumerator name HDAUDIO"), 1);
    EXPECT_EQ(countOf(log, kEndpointLog, kInfo, "Device does not  support event-driven mode."), 1);
    EXPECT_EQ(countOf(log, kEndpointLog, kInfo, "Device  support event-driven mode."), 1);
}

TEST_F(AudioDeviceTest, PropertyLogListsTheRecordInOrder) {
    overrideProperty(kSpeakers, PKEY_AudioEndpoint_PhysicalSpeakers, numberValue(0x63F));
    overrideProperty(kSpeakers, PKEY_AudioEndpoint_GUID,
                     textValue("{0A0B0C0D-1111-2222-3333-444455556666}"));
    AudioDevice d = device(kSpeakers);
    log.clear();
    d.deviceProperty().logPropertyInfo();
    EXPECT_EQ(messages(log, kEndpointLog, kInfo),
              (std::vector<std::string>{
                  "Friendly Name Codec", "Endpoint Type Speakers", "State is 1",
                  "Device ID " + kSpeakers, "Device Instance Path {1}." + kAdapter,
                  "Driver Node Strong Name oem7.inf:codec", "Physical Speaker Config 0x0000063F",
                  "Enumerator name HDAUDIO", "Device  support event-driven mode.",
                  "Node GUID {DFF21CE1-F70F-11D0-B917-00A0C9223196}",
                  "Direct Sound GUID {0A0B0C0D-1111-2222-3333-444455556666}"}));
}

// Reset re-reads the properties and builds a new volume controller, even when the reading
// fails; the controller is named after the type read last.
TEST_F(AudioDeviceTest, ResetRereadsAndRebuildsTheVolumeControl) {
    AudioDevice d = device(kSpeakers);
    VolumeControllerHandle first = d.volumeControl();
    overrideProperty(kSpeakers, PKEY_Device_DeviceDesc, textValue("Lautsprecher"));
    EXPECT_TRUE(d.reset());
    EXPECT_EQ(utf8(d.deviceProperty().endpointType), "Lautsprecher");
    VolumeControllerHandle second = d.volumeControl();
    ASSERT_FALSE(second.isEmpty());
    EXPECT_NE(second.get(), first.get());
    EXPECT_EQ(utf8(second->ownerName()), "Lautsprecher");
    EXPECT_EQ(second->ownerType(), KSNODETYPE_SPEAKER);
    EXPECT_EQ(second->numChannel(), 2u);

    overrideProperty(kSpeakers, PKEY_Device_DeviceDesc, textValue("Speakers"));
    fault("OpenPropertyStore", kSpeakers);
    log.clear();
    EXPECT_FALSE(d.reset());
    EXPECT_TRUE(logged(log, kEndpointLog, kInfo, "OpenPropertyStore returns " + hex(kFail)));
    EXPECT_EQ(utf8(d.deviceProperty().endpointType), "Lautsprecher");
    ASSERT_FALSE(d.volumeControl().isEmpty());
    EXPECT_NE(d.volumeControl().get(), second.get());
    EXPECT_EQ(d.volumeControl()->numChannel(), 2u);

    EXPECT_FALSE(AudioDevice().reset()); // nothing to read
}

std::string formatText(const WAVEFORMATEX& f) {
    return std::to_string(f.nChannels) + "ch " + std::to_string(f.wBitsPerSample) + "bit " +
           std::to_string(f.nSamplesPerSec);
}

// Channels, then bits, then rates, each ascending; only exactly S_OK counts. The shared
// engine takes any depth at its own rate and channel count (2 channels, 48 kHz here), whatever
// the driver takes exclusively, and offers its closest match (S_FALSE) for the rest.
TEST_F(AudioDeviceTest, CompatibleFormatsAreTheCandidatesTheClientTakesExactly) {
    sim::withMachine([](model::Machine& m) {
        model::StreamTraits& traits = m.findEndpoint(kSpeakers)->stream;
        traits.rates = {96000, 44100};
        traits.bits = {24, 16};
        traits.channels = {2, 1};
    });
    AudioDevice d = device(kSpeakers);
    qel::Array<WAVEFORMATEX> formats;
    formats.append(WAVEFORMATEX{}); // emptied first
    EXPECT_EQ(d.compatibleFormats(formats, AUDCLNT_SHAREMODE_EXCLUSIVE), 8u);
    std::vector<std::string> listed;
    for (const WAVEFORMATEX& f : formats) {
        listed.push_back(formatText(f));
        // By value: the fields of the packed record are not aligned.
        const unsigned align = unsigned(f.nChannels) * f.wBitsPerSample / 8;
        EXPECT_EQ(std::make_tuple(unsigned(f.wFormatTag), unsigned(f.cbSize),
                                  unsigned(f.nBlockAlign), unsigned(f.nAvgBytesPerSec)),
                  std::make_tuple(unsigned(WAVE_FORMAT_PCM), 0u, align,
                                  align * unsigned(f.nSamplesPerSec)));
    }
    const std::vector<std::string> all = {"1ch 16bit 44100", "1ch 16bit 96000", "1ch 24bit 44100",
                                          "1ch 24bit 96000", "2ch 16bit 44100", "2ch 16bit 96000",
                                          "2ch 24bit 44100", "2ch 24bit 96000"};
    EXPECT_EQ(listed, all);
    std::vector<std::string> logLines;
    for (const std::string& text : messages(log, "libAudio.pcmsupport", kDebug)) {
        if (text.rfind("Waveformatex : ", 0) == 0) {
            logLines.push_back(text);
        }
    }
    ASSERT_EQ(logLines.size(), 8u);
    EXPECT_EQ(logLines.front(), "Waveformatex : 1 chan 16 bits 44100Hz");
    EXPECT_EQ(logLines.back(), "Waveformatex : 2 chan 24 bits 96000Hz");

    // The first candidate, 1 channel 16 bits 44.1 kHz, answered S_FALSE.
    fault("IsFormatSupported", kSpeakers, {S_FALSE});
    EXPECT_EQ(d.compatibleFormats(formats, AUDCLNT_SHAREMODE_EXCLUSIVE), 7u);
    EXPECT_EQ(formatText(formats[0]), "1ch 16bit 96000");

    EXPECT_EQ(d.compatibleFormats(formats, AUDCLNT_SHAREMODE_SHARED), 2u);
    listed.clear();
    for (const WAVEFORMATEX& f : formats) {
        listed.push_back(formatText(f));
    }
    EXPECT_EQ(listed, (std::vector<std::string>{"2ch 16bit 48000", "2ch 24bit 48000"}));
}

// Only this test makes the process-wide enumerator reach the platform, so its first step
// finds it without a platform enumerator even when all tests share one process.
TEST_F(AudioDeviceTest, DeviceByIdGoesThroughTheProcessWideEnumerator) {
    fault("CoCreateInstance", "MMDeviceEnumerator");
    AudioDevice none(qel::String(kSpeakers.c_str()));
    EXPECT_FALSE(none.isInitialized());
    EXPECT_TRUE(logged(log, kEndpointLog, kError, "Unable to initialize enumerator"));

    fault("GetDevice", kLine, {kNotFound});
    AudioDevice missing;
    EXPECT_FALSE(missing.initialize(qel::String(kLine.c_str())));
    EXPECT_TRUE(logged(log, kEndpointLog, kError,
                       "IMMDeviceEnumerator::GetDevice returns " + hex(kNotFound)));

    AudioDevice found(qel::String(kLine.c_str()));
    EXPECT_TRUE(found.isInitialized());
    EXPECT_EQ(utf8(found.deviceProperty().friendlyName), "Codec");
}

} // namespace
} // namespace devicemodel
