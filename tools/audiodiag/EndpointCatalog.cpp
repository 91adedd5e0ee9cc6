#include "EndpointCatalog.h"

#include "Commands.h"
#include "Report.h"

#include "foundation/moduleSupport.h"
#include "libAudio/EndpointDeviceEnumerator.h"

#include <algorithm>
#include <cctype>

namespace audiodiag {

namespace {

std::string lower(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return std::tolower(c); });
    return s;
}

struct NamedNode {
    const GUID* guid;
    const char* name;
};

const NamedNode nodeNames[] = {
    {&KSNODETYPE_SPEAKER, "SPEAKER"},
    {&KSNODETYPE_HEADPHONES, "HEADPHONES"},
    {&KSNODETYPE_DESKTOP_SPEAKER, "DESKTOP_SPEAKER"},
    {&KSNODETYPE_ROOM_SPEAKER, "ROOM_SPEAKER"},
    {&KSNODETYPE_COMMUNICATION_SPEAKER, "COMMUNICATION_SPEAKER"},
    {&KSNODETYPE_LOW_FREQUENCY_EFFECTS_SPEAKER, "LOW_FREQUENCY_EFFECTS_SPEAKER"},
    {&KSNODETYPE_MICROPHONE, "MICROPHONE"},
    {&KSNODETYPE_DESKTOP_MICROPHONE, "DESKTOP_MICROPHONE"},
    {&KSNODETYPE_PERSONAL_MICROPHONE, "PERSONAL_MICROPHONE"},
    {&KSNODETYPE_OMNI_DIRECTIONAL_MICROPHONE, "OMNI_DIRECTIONAL_MICROPHONE"},
    {&KSNODETYPE_MICROPHONE_ARRAY, "MICROPHONE_ARRAY"},
    {&KSNODETYPE_PROCESSING_MICROPHONE_ARRAY, "PROCESSING_MICROPHONE_ARRAY"},
    {&KSNODETYPE_HEADSET, "HEADSET"},
    {&KSNODETYPE_HANDSET, "HANDSET"},
    {&KSNODETYPE_LINE_CONNECTOR, "LINE_CONNECTOR"},
    {&KSNODETYPE_ANALOG_CONNECTOR, "ANALOG_CONNECTOR"},
    {&KSNODETYPE_SPDIF_INTERFACE, "SPDIF_INTERFACE"},
    {&KSNODETYPE_DIGITAL_AUDIO_INTERFACE, "DIGITAL_AUDIO_INTERFACE"},
    {&KSNODETYPE_HDMI_INTERFACE, "HDMI_INTERFACE"},
    {&KSNODETYPE_DISPLAYPORT_INTERFACE, "DISPLAYPORT_INTERFACE"},
    {&KSNODETYPE_VOLUME, "VOLUME"},
    {&KSNODETYPE_MUTE, "MUTE"},
    {&KSNODETYPE_MUX, "MUX"},
    {&KSNODETYPE_SUM, "SUM"},
    {&KSNODETYPE_DAC, "DAC"},
    {&KSNODETYPE_ADC, "ADC"},
};

void addFlow(EDataFlow flow, std::vector<EndpointEntry>& out) {
    libAudio::EndpointDeviceEnumerator enumerator;
    qel::Array<AudioDevice> devices;
    enumerator.audioDevices(flow, devices);
    for (const AudioDevice& device : devices) {
        out.push_back({device, flow});
    }
}

} // namespace

EndpointCatalog::EndpointCatalog() {
    addFlow(eRender, m_entries);
    addFlow(eCapture, m_entries);
}

const EndpointEntry* EndpointCatalog::find(const std::string& wanted, std::string& why) const {
    const std::string key = lower(wanted);
    if (key.empty()) {
        why = "an empty endpoint id names no endpoint (audiodiag endpoints lists them)";
        return nullptr;
    }
    // From the most to the least exact; the first kind of match that finds any decides.
    std::vector<const EndpointEntry*> byName, byIdPrefix, byNamePrefix;
    for (const EndpointEntry& e : m_entries) {
        const std::string id = lower(text(e.device.deviceProperty().deviceId));
        if (id == key) {
            return &e;
        }
        const std::string name = lower(displayName(e.device));
        if (name == key || lower(text(e.device.deviceProperty().endpointType)) == key) {
            byName.push_back(&e);
        }
        // The GUID part alone may be abbreviated too: "2c4e" for "{0.0.1.00000000}.{2c4e...}".
        const std::string guidPart = id.substr(std::min(id.find("}.{") + 3, id.size()));
        if (id.starts_with(key) || guidPart.starts_with(key)) {
            byIdPrefix.push_back(&e);
        }
        if (name.starts_with(key)) {
            byNamePrefix.push_back(&e);
        }
    }
    for (const auto* matches : {&byName, &byIdPrefix, &byNamePrefix}) {
        if (matches->size() == 1) {
            return matches->front();
        }
        if (!matches->empty()) {
            why = "\"" + wanted + "\" could be any of:";
            for (const EndpointEntry* e : *matches) {
                why += "\n  " + text(e->device.deviceProperty().deviceId) + "  " +
                       displayName(e->device);
            }
            return nullptr;
        }
    }
    why = "no endpoint is \"" + wanted + "\" (audiodiag endpoints lists them)";
    return nullptr;
}

std::string text(const qel::String& s) {
    return s.toStdString();
}

std::string guidText(const GUID& guid) {
    return text(guidToString(&guid));
}

std::string stateName(std::uint32_t state) {
    switch (state) {
    case DEVICE_STATE_ACTIVE:
        return "active";
    case DEVICE_STATE_DISABLED:
        return "disabled";
    case DEVICE_STATE_NOTPRESENT:
        return "notpresent";
    case DEVICE_STATE_UNPLUGGED:
        return "unplugged";
    default:
        return "unknown";
    }
}

std::string flowName(EDataFlow flow) {
    return flow == eRender ? "render" : "capture";
}

std::string displayName(const AudioDevice& device) {
    const AudioDevice::Properties& p = device.deviceProperty();
    return text(p.endpointType) + " (" + text(p.friendlyName) + ")";
}

std::string nodeTypeName(const GUID& nodeType) {
    for (const NamedNode& node : nodeNames) {
        if (*node.guid == nodeType) {
            return node.name;
        }
    }
    return guidText(nodeType);
}

CComPtr<IMMDevice> openDevice(const AudioDevice& device) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    CComPtr<IMMDevice> platformDevice;
    const qel::String& id = device.deviceProperty().deviceId;
    if (FAILED(enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator)) ||
        FAILED(enumerator->GetDevice(platform::wide(id.getUCS2Buffer()), &platformDevice))) {
        return {};
    }
    return platformDevice;
}

// Asked of the platform as the library asks it: a store opened for writing.
int requireAdministrator(const EndpointCatalog& catalog) {
    for (const EndpointEntry& entry : catalog.entries()) {
        CComPtr<IMMDevice> platformDevice = openDevice(entry.device);
        if (!platformDevice) {
            continue;
        }
        CComPtr<IPropertyStore> store;
        if (platformDevice->OpenPropertyStore(STGM_READWRITE, &store) == E_ACCESSDENIED) {
            printError("this command must be run from an elevated (administrator) prompt: without "
                       "administrator rights Windows opens no endpoint's properties for the "
                       "library, and the endpoints would show without names");
            return EXIT_FAILED;
        }
        return EXIT_OK;
    }
    return EXIT_OK;
}

std::optional<std::uint32_t> formFactor(const AudioDevice& device) {
    CComPtr<IMMDevice> platformDevice = openDevice(device);
    CComPtr<IPropertyStore> store;
    if (!platformDevice || FAILED(platformDevice->OpenPropertyStore(STGM_READ, &store))) {
        return std::nullopt;
    }
    PROPVARIANT value;
    PropVariantInit(&value);
    std::optional<std::uint32_t> result;
    if (SUCCEEDED(store->GetValue(PKEY_AudioEndpoint_FormFactor, &value)) && value.vt == VT_UI4) {
        result = value.ulVal;
    }
    PropVariantClear(&value);
    return result;
}

std::string formFactorName(std::optional<std::uint32_t> formFactor) {
    static const char* const names[] = {"RemoteNetworkDevice",
                                        "Speakers",
                                        "LineLevel",
                                        "Headphones",
                                        "Microphone",
                                        "Headset",
                                        "Handset",
                                        "UnknownDigitalPassthrough",
                                        "SPDIF",
                                        "DigitalAudioDisplayDevice",
                                        "UnknownFormFactor"};
    if (!formFactor || *formFactor >= std::size(names)) {
        return "unknown";
    }
    return names[*formFactor];
}

nlohmann::ordered_json endpointSummary(const EndpointEntry& entry) {
    const AudioDevice::Properties& p = entry.device.deviceProperty();
    return {{"id", text(p.deviceId)},
            {"name", displayName(entry.device)},
            {"flow", flowName(entry.flow)},
            {"endpoint_type", text(p.endpointType)},
            {"adapter", text(p.friendlyName)},
            {"node_type", nodeTypeName(p.nodeGuid)},
            {"form_factor", formFactorName(formFactor(entry.device))},
            {"state", stateName(p.state)},
            {"enumerator", text(p.enumeratorName)}};
}

} // namespace audiodiag
