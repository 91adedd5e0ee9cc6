// The machine model: a plain description of one PC's audio hardware, independent of the
// component model. The simulated platform answers every platform call from it.
//
// Strings are UTF-8. Ids follow the Windows forms: endpoint ids "{0.0.0.00000000}.{GUID}"
// (render) or "{0.0.1.00000000}.{GUID}" (capture), device instance ids such as
// "HDAUDIO\FUNC_01&VEN_10EC&DEV_0269&SUBSYS_17AA21FA&REV_1002\4&1C0A5E&0&0001".
#pragma once

#include "platform/standin/mmreg.h"
#include "platform/standin/types.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace model {

enum class Flow : std::uint32_t { Render = 0, Capture = 1 };

// DEVICE_STATE_* bits.
enum : std::uint32_t {
    STATE_ACTIVE = 1,
    STATE_DISABLED = 2,
    STATE_NOTPRESENT = 4,
    STATE_UNPLUGGED = 8
};

// EndpointFormFactor values.
enum FormFactor : std::uint32_t {
    RemoteNetworkDevice = 0,
    Speakers = 1,
    LineLevel = 2,
    Headphones = 3,
    Microphone = 4,
    Headset = 5,
    Handset = 6,
    UnknownDigitalPassthrough = 7,
    SPDIF = 8,
    DigitalAudioDisplayDevice = 9,
    UnknownFormFactor = 10,
};

struct PropertyKey {
    GUID fmtid{};
    std::uint32_t pid = 0;
    bool operator<(const PropertyKey& other) const;
    bool operator==(const PropertyKey& other) const;
};

struct PropertyValue {
    enum class Type { String, UInt32, Blob };
    Type type = Type::String;
    std::string text;               // String
    std::uint32_t number = 0;       // UInt32
    std::vector<std::uint8_t> blob; // Blob
    bool operator==(const PropertyValue&) const = default;
};

struct VolumeRange {
    float minDb = -65.25f;
    float maxDb = 0.0f;
    float stepDb = 0.75f;
    bool operator==(const VolumeRange&) const = default;
};

// A level per channel, each with its range. An endpoint's channels share one range.
struct VolumeControl {
    std::vector<float> levelsDb;
    std::vector<VolumeRange> ranges;
    // The scalar (0..1) last set per channel, kept exactly so that a scalar written reads
    // back unchanged; empty: derived from levelsDb by the platform.
    std::vector<float> scalars;
    std::uint32_t channels() const { return std::uint32_t(levelsDb.size()); }
    bool operator==(const VolumeControl&) const = default;
};

// The fields of KSJACK_DESCRIPTION.
struct Jack {
    std::uint32_t channelMapping = 0; // SPEAKER_* mask
    std::uint32_t color = 0;          // 0x00RRGGBB
    std::uint32_t connectionType = 0; // EPcxConnectionType
    std::uint32_t geoLocation = 0;    // EPcxGeoLocation
    std::uint32_t genLocation = 0;    // EPcxGenLocation
    std::uint32_t portConnection = 0; // EPxcPortConnection
    bool isConnected = true;
    bool operator==(const Jack&) const = default;
};

enum class PartKind { Connector, Subunit };

// ConnectorType of the device topology API.
enum class ConnectorType : std::uint32_t {
    Unknown = 0,
    PhysicalInternal = 1,
    PhysicalExternal = 2,
    SoftwareIO = 3,
    SoftwareFixed = 4,
    Network = 5,
};

// Whether a part carries analog or digital signal; a path through both is "mixed".
enum class SignalDomain { Unspecified, Analog, Digital };

struct PartRef {
    std::string device;
    std::uint32_t localId = 0;
    bool operator==(const PartRef&) const = default;
};

// A connector or a subunit of a topology device, with the controls it can activate.
struct Part {
    PartKind kind = PartKind::Subunit;
    std::uint32_t localId = 0;
    std::string name;
    GUID subType{}; // a KSNODETYPE_* value
    SignalDomain domain = SignalDomain::Unspecified;
    // Connectors only.
    ConnectorType connectorType = ConnectorType::Unknown;
    std::uint32_t connectorFlow = 0; // DataFlow: 0 In, 1 Out
    std::optional<PartRef> connectedTo;
    std::vector<Jack> jacks; // non-empty: the part has IKsJackDescription
    // Controls.
    std::optional<VolumeControl> volume;        // IAudioVolumeLevel
    std::optional<bool> mute;                   // IAudioMute
    std::optional<std::uint32_t> selectedInput; // IAudioInputSelector: local id of an input
    bool operator==(const Part&) const = default;
};

// Data flows from part `from` to part `to` inside one device.
struct Link {
    std::uint32_t from = 0;
    std::uint32_t to = 0;
    bool operator==(const Link&) const = default;
};

// One device of the topology graph: an endpoint's own device or an adapter's filter.
struct TopologyDevice {
    std::string id;
    std::vector<Part> parts; // connectors and subunits, each kind in index order
    std::vector<Link> links;

    const Part* findPart(std::uint32_t localId) const;
    Part* findPart(std::uint32_t localId);
    bool operator==(const TopologyDevice&) const = default;
};

struct Adapter {
    std::string instanceId;
    std::string parentInstanceId;
    std::string enumerator; // "HDAUDIO", "USB", "ROOT", ...
    std::string friendlyName;
    std::string driverNodeStrongName;
    bool operator==(const Adapter&) const = default;
};

// What the endpoint's driver accepts for streams. Empty lists take the defaults of an HD
// Audio converter: 44.1, 48 and 96 kHz, 16 and 24 bits, 1 and 2 channels, each with the
// device format's own value added.
struct StreamTraits {
    std::int64_t defaultPeriod = 100000; // 100-ns units: 10 ms
    std::int64_t minimumPeriod = 30000;  // 3 ms
    std::vector<std::uint32_t> rates;
    std::vector<std::uint32_t> bits;
    std::vector<std::uint32_t> channels;
    std::uint32_t alignmentBytes = 128; // exclusive-mode buffers are whole DMA blocks
    // The endpoint's "Allow applications to take exclusive control of this device".
    bool exclusiveAllowed = true;
    // Its "Give exclusive mode applications priority": an exclusive stream cuts off the
    // shared streams of the endpoint instead of being refused while they play.
    bool exclusivePriority = true;
    bool operator==(const StreamTraits&) const = default;
};

struct Endpoint {
    std::string id;
    Flow flow = Flow::Render;
    std::uint32_t state = STATE_ACTIVE;
    std::string adapter;      // the adapter's instance id
    std::string description;  // PKEY_Device_DeviceDesc, e.g. "Speakers"
    std::string friendlyName; // PKEY_Device_FriendlyName, e.g. "Speakers (Realtek Audio)"
    std::uint32_t formFactor = UnknownFormFactor;
    GUID jackSubType{}; // PKEY_AudioEndpoint_JackSubType, a KSNODETYPE_* value
    std::uint32_t physicalSpeakers = 0;
    bool eventDriven = true;
    std::string directSoundGuid; // "{GUID}"
    WAVEFORMATEXTENSIBLE deviceFormat{};
    VolumeControl volume;
    bool muted = false;
    std::string topologyDevice; // id of the endpoint's own topology device; empty: none
    StreamTraits stream;
    // Replaces (a value) or removes (nullopt) a property the model would otherwise derive.
    std::map<PropertyKey, std::optional<PropertyValue>> propertyOverrides;
    bool operator==(const Endpoint& other) const; // the device format compared bytewise
};

// What a render endpoint plays reaches a capture endpoint: the audio engine's wiring.
struct Route {
    std::string render;
    std::string capture;
    double gainDb = 0.0;
    double delayMs = 0.0;
    double noiseDb = -120.0; // noise floor relative to full scale
    // How the capture channels hear the render channels: row c holds the linear weight of
    // each render channel in capture channel c. Empty: channel c hears channel c.
    std::vector<std::vector<double>> channelMix;
    bool operator==(const Route&) const = default;
};

// An injected platform failure: calls of `operation` on `target` ("" = any) answer the
// codes of `results` in turn, then succeed again (or keep failing with the last code
// when `sticky`).
struct Fault {
    std::string operation;
    std::string target;
    std::vector<HRESULT> results;
    bool sticky = false;
    bool operator==(const Fault&) const = default;
};

// A change the simulated platform makes by itself, atMs milliseconds after the machine is
// installed, as a user plugging and unplugging hardware would.
struct ScriptedEvent {
    enum class Kind {
        State,  // the endpoint's state becomes `state`
        Remove, // the endpoint leaves the machine, with its own topology device
        Add,    // the endpoint arrives: back as it left, or for the first time (below)
    };
    std::uint32_t atMs = 0;
    Kind kind = Kind::State;
    std::string endpoint;
    std::uint32_t state = STATE_ACTIVE;
    // An endpoint absent until this Add: it and its own topology device as the description
    // gives them, held here rather than in the machine.
    std::optional<Endpoint> arriving;
    std::optional<TopologyDevice> arrivingDevice;
    bool operator==(const ScriptedEvent&) const = default;
};

// How an endpoint's volume scalar (the slider's position) maps to its level in dB.
enum class VolumeTaper {
    Audio,  // the curve measured on Windows (platform/sim/VolumeTaper.h)
    Linear, // linear in amplitude between the range's ends
};

struct Machine {
    std::string name;
    std::string description;
    std::vector<Adapter> adapters;
    std::vector<Endpoint> endpoints; // in the platform's enumeration order
    std::vector<TopologyDevice> devices;
    std::vector<Route> routes;
    // Default endpoint ids by ERole (console, multimedia, communications); empty: none.
    std::string defaultRender[3];
    std::string defaultCapture[3];
    std::vector<Fault> faults;
    // Without administrator rights the platform opens property stores for reading only.
    bool elevated = true;
    VolumeTaper volumeTaper = VolumeTaper::Audio;
    std::vector<ScriptedEvent> events; // in time order

    Endpoint* findEndpoint(const std::string& id);
    const Endpoint* findEndpoint(const std::string& id) const;
    Adapter* findAdapter(const std::string& instanceId);
    const Adapter* findAdapter(const std::string& instanceId) const;
    TopologyDevice* findDevice(const std::string& id);
    const TopologyDevice* findDevice(const std::string& id) const;
    const Part* findPart(const PartRef& ref) const;
    Part* findPart(const PartRef& ref);
    bool operator==(const Machine&) const = default;
};

} // namespace model
