// AudioDevice: construction, initialisation and the refresh of the cached properties; the
// classification of endpoints by what they physically are.
#include "libAudio/AudioDevice.h"
#include "foundation/qelLog.h"
#include "foundation/qelResource.h"
#include "libAudio/EndpointClassification.h"
#include "libAudio/EndpointDeviceEnumerator.h"

#include <cstring>
#include <initializer_list>

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.audioDeviceEndpoint")

qel::Hex code(HRESULT hr) {
    return qel::Hex{(unsigned long long)(DWORD)hr};
}

// A property value that clears itself.
struct Variant {
    PROPVARIANT value;
    Variant() { PropVariantInit(&value); }
    ~Variant() { PropVariantClear(&value); }
};

bool readString(IPropertyStore* store, const PROPERTYKEY& key, qel::String& out) {
    Variant v;
    if (FAILED(store->GetValue(key, &v.value)) || v.value.vt != VT_LPWSTR || !v.value.pwszVal) {
        return false;
    }
    out = platform::ucs2(v.value.pwszVal);
    return true;
}

bool readUnsigned(IPropertyStore* store, const PROPERTYKEY& key, std::uint32_t& out) {
    Variant v;
    if (FAILED(store->GetValue(key, &v.value)) || v.value.vt != VT_UI4) {
        return false;
    }
    out = v.value.ulVal;
    return true;
}
} // namespace

const PROPERTYKEY AudioDevice::m_friendlyName = {
    {0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}}, 6};
const PROPERTYKEY AudioDevice::m_driverNodeStrongName = {
    {0x83DA6326, 0x97A6, 0x4088, {0x94, 0x53, 0xA1, 0x92, 0x3F, 0x57, 0x3B, 0x29}}, 3};
const PROPERTYKEY AudioDevice::m_instancePathKey = {
    {0xB3F8FA53, 0x0004, 0x438E, {0x90, 0x03, 0x51, 0xA4, 0x6E, 0x13, 0x9B, 0xFC}}, 2};

AudioDevice::AudioDevice() = default;

AudioDevice::AudioDevice(IMMDevice* device) {
    initialize(device);
}

AudioDevice::AudioDevice(const qel::String& deviceId) {
    QEL_TRACE_SCOPE("AudioDevice::AudioDevice(String const& deviceId)");
    initialize(deviceId);
}

AudioDevice::AudioDevice(const AudioDevice& other) = default;
AudioDevice& AudioDevice::operator=(const AudioDevice& other) = default;
AudioDevice::~AudioDevice() = default;

bool AudioDevice::operator==(const AudioDevice& other) const {
    return m_properties.deviceId.compareNoCase(other.m_properties.deviceId) == 0;
}

bool AudioDevice::initialize(const qel::String& deviceId) {
    auto& shared = libAudio::AudioDeviceEnumeratorFactory::enumerator();
    IMMDeviceEnumerator* platformEnumerator =
        shared.isEmpty() ? nullptr : shared->deviceEnumerator().get();
    if (!platformEnumerator) {
        QEL_ERROR("Unable to initialize enumerator");
        return false;
    }
    CComPtr<IMMDevice> device;
    HRESULT hr = platformEnumerator->GetDevice(platform::wide(deviceId.getUCS2Buffer()), &device);
    if (FAILED(hr)) {
        QEL_ERROR("IMMDeviceEnumerator::GetDevice returns ", code(hr));
        return false;
    }
    return initialize(device);
}

bool AudioDevice::initialize(IMMDevice* device) {
    QEL_TRACE_SCOPE("AudioDevice::initialize(IMMDevice* device)");
    if (device != m_device) {
        m_device = device;
    }
    LPWSTR id = nullptr;
    if (m_device && SUCCEEDED(m_device->GetId(&id)) && id) {
        m_properties.deviceId = platform::ucs2(id);
    }
    CoTaskMemFree(id);
    if (m_device && !m_topology.isInitialized()) {
        CComPtr<IDeviceTopology> topology;
        m_device->Activate(platform::iidOf<IDeviceTopology>(), CLSCTX_ALL, nullptr,
                           reinterpret_cast<void**>(&topology));
        m_topology = topology;
    }
    bool refreshed = refreshDeviceInformation();
    if (refreshed) {
        m_snapshot = m_properties;
    }
    createVolumeControl();
    return refreshed;
}

bool AudioDevice::reset() {
    bool refreshed = refreshDeviceInformation();
    if (refreshed) {
        m_snapshot = m_properties;
    }
    createVolumeControl();
    return refreshed;
}

bool AudioDevice::refreshDeviceInformation() {
    QEL_TRACE_SCOPE("AudioDevice::refreshDeviceInformation");
    m_propertyStore.Release();
    HRESULT hr =
        m_device ? m_device->OpenPropertyStore(STGM_READWRITE, &m_propertyStore) : E_POINTER;
    if (FAILED(hr)) {
        QEL_INFO("OpenPropertyStore returns ", code(hr));
        return false;
    }
    readProperties();
    refreshDeviceState();
    if (isEndpoint()) {
        readNodeGuid();
    }
    return true;
}

void AudioDevice::readProperties() {
    Properties& p = m_properties;
    IPropertyStore* store = m_propertyStore;
    if (!readString(store, PKEY_Device_DeviceDesc, p.endpointType)) {
        QEL_INFO("Cannot get PKEY_Device_DeviceDesc information.");
    }
    if (!readDeviceFormat()) {
        QEL_INFO("Cannot get PKEY_AudioEngine_DeviceFormat information.");
    }
    if (!readUnsigned(store, PKEY_AudioEndpoint_Supports_EventDriven_Mode, p.eventDriven)) {
        QEL_INFO("Cannot get PKEY_AudioEndpoint_Supports_EventDriven_Mode");
    }
    if (!readString(store, PKEY_Device_EnumeratorName, p.enumeratorName)) {
        QEL_INFO("Fail to get device enumerator name");
    }
    if (!readString(store, m_instancePathKey, p.instancePath)) {
        QEL_INFO("Fail to get instancePathKey value ");
    }
    if (!readString(store, m_driverNodeStrongName, p.driverNodeStrongName)) {
        QEL_INFO("Fail to get driverNodeStrongName value ");
    }
    if (!readString(store, m_friendlyName, p.friendlyName)) {
        QEL_INFO("Fail to get device friendly name ");
    }
    if (!readUnsigned(store, PKEY_AudioEndpoint_PhysicalSpeakers, p.physicalSpeakers)) {
        QEL_INFO("Fail to get physical speaker config ");
    }
    qel::String directSound;
    if (readString(store, PKEY_AudioEndpoint_GUID, directSound) &&
        FAILED(CLSIDFromString(platform::wide(directSound.getUCS2Buffer()), &p.directSoundGuid))) {
        QEL_ERROR("CLSIDFromString cannot convert sting guid to direct sound guid");
    }
}

// The device format counts only as a 40-byte blob.
bool AudioDevice::readDeviceFormat() {
    QEL_TRACE_SCOPE("AudioDevice::getDeviceData");
    Variant v;
    if (FAILED(m_propertyStore->GetValue(PKEY_AudioEngine_DeviceFormat, &v.value)) ||
        v.value.vt != VT_BLOB || v.value.blob.cbSize != sizeof(WAVEFORMATEXTENSIBLE) ||
        !v.value.blob.pBlobData) {
        return false;
    }
    std::memcpy(&m_properties.deviceFormat, v.value.blob.pBlobData, sizeof(WAVEFORMATEXTENSIBLE));
    return true;
}

// The node type is the sub-type of the part on the other side of the first connector.
void AudioDevice::readNodeGuid() {
    qel::Array<AudioComponent<IConnector>> connectors = m_topology.connector();
    QEL_DEBUG("Size of connList = ", connectors.size());
    if (connectors.empty() || !connectors[0].component()) {
        return;
    }
    CComPtr<IConnector> partner;
    HRESULT hr = connectors[0].component()->GetConnectedTo(&partner);
    QEL_DEBUG("IConnector::GetConnectedTo returns ", code(hr));
    if (FAILED(hr) || !partner) {
        return;
    }
    CComPtr<IPart> part;
    if (SUCCEEDED(
            partner->QueryInterface(platform::iidOf<IPart>(), reinterpret_cast<void**>(&part)))) {
        m_properties.nodeGuid = AudioPart(part).subType();
    }
}

unsigned int AudioDevice::refreshDeviceState() {
    QEL_TRACE_SCOPE("AudioDevice::refreshDeviceState()");
    if (m_device) {
        DWORD state = 0;
        HRESULT hr = m_device->GetState(&state);
        if (FAILED(hr)) {
            QEL_ERROR("GetState failed ", code(hr));
        } else {
            m_properties.state = state;
        }
    }
    return m_properties.state;
}

bool AudioDevice::createVolumeControl() {
    QEL_TRACE_SCOPE("AudioDevice::volumeControl");
    if (!isEndpoint()) {
        QEL_ERROR("Not implemented. Subunits don't always have a volume controller");
        return false;
    }
    EndpointVolumeController policy;
    policy.endpointVolume = volumeController();
    policy.ownerType = m_properties.nodeGuid;
    policy.ownerName = m_properties.endpointType;
    m_volumeControl =
        VolumeControllerHandle(new VolumeController<EndpointVolumeController>(policy));
    return true;
}

CComPtr<IAudioEndpointVolume> AudioDevice::volumeController() const {
    CComPtr<IAudioEndpointVolume> volume;
    if (!m_device) {
        QEL_ERROR("No IMMDevice associated with this function call.");
        return volume;
    }
    m_device->Activate(platform::iidOf<IAudioEndpointVolume>(), CLSCTX_ALL, nullptr,
                       reinterpret_cast<void**>(&volume));
    return volume;
}

void AudioDevice::printReferenceCount() const {
    QEL_DEBUG("m_propertyStore has reference count ",
              (unsigned long)m_propertyStore.referenceCount());
    QEL_DEBUG("m_device has reference count ", (unsigned long)m_device.referenceCount());
}

// Endpoint classification: answers from the node type, the enumerator name, the state and
// the jack descriptions of one device.

namespace {

bool nodeIs(const AudioDevice& device, const GUID& nodeType) {
    return device.deviceProperty().nodeGuid == nodeType;
}

bool nodeIsOneOf(const AudioDevice& device, std::initializer_list<const GUID*> nodeTypes) {
    for (const GUID* nodeType : nodeTypes) {
        if (nodeIs(device, *nodeType)) {
            return true;
        }
    }
    return false;
}

bool enumeratedBy(const AudioDevice& device, const char* enumerator) {
    return device.deviceProperty().enumeratorName.compareNoCase(qel::String(enumerator)) == 0;
}

// An ATAPI location or an internal or other-digital connection is how drivers describe
// what is built into the machine.
bool looksInternal(const KSJACK_DESCRIPTION& jack) {
    return jack.GeoLocation == eGeoLocATAPI || jack.ConnectionType == eConnTypeAtapiInternal ||
           jack.ConnectionType == eConnTypeOtherDigital;
}

bool isAnalogJack(const KSJACK_DESCRIPTION& jack) {
    return jack.ConnectionType == eConnType3Point5mm || jack.ConnectionType == eConnTypeQuarter ||
           jack.ConnectionType == eConnTypeRCA;
}

} // namespace

namespace libAudio {

bool isMicrophoneDeviceWithNoJackInfo(AudioDevice& device);
bool isSpeakerDeviceWithNoJackInfo(AudioDevice& device);

bool acceptableSpeakerTypes(const AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::acceptableSpeakerTypes");
    return nodeIsOneOf(device, {&KSNODETYPE_SPEAKER, &KSNODETYPE_DESKTOP_SPEAKER,
                                &KSNODETYPE_ROOM_SPEAKER, &KSNODETYPE_COMMUNICATION_SPEAKER,
                                &KSNODETYPE_LOW_FREQUENCY_EFFECTS_SPEAKER});
}

bool isInternalMicrophone(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isInternalMicrophone");
    const AudioDevice::Properties& p = device.deviceProperty();
    // A plain microphone node is what external jacks report, so it is left out on purpose.
    if (!nodeIsOneOf(device,
                     {&KSNODETYPE_DESKTOP_MICROPHONE, &KSNODETYPE_PERSONAL_MICROPHONE,
                      &KSNODETYPE_OMNI_DIRECTIONAL_MICROPHONE, &KSNODETYPE_MICROPHONE_ARRAY})) {
        QEL_ERROR("Audio device ", p.endpointType, " ", p.friendlyName,
                  " is not a recognized microphone device.");
        return false;
    }
    qel::Array<KSJACK_DESCRIPTION> jacks;
    if (device.jackInfo(jacks) == 0) {
        QEL_ERROR("No jack description available, but endpoint type is ", p.endpointType,
                  " so assume internal mic.");
        return true;
    }
    for (const KSJACK_DESCRIPTION& jack : jacks) {
        if (!looksInternal(jack)) {
            return false;
        }
    }
    return true;
}

bool isInternalSpeaker(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isInternalSpeaker");
    const AudioDevice::Properties& p = device.deviceProperty();
    if (!acceptableSpeakerTypes(device)) {
        QEL_ERROR("Audio device ", p.endpointType, " ", p.friendlyName,
                  " is not a recognized speaker device.");
        return false;
    }
    qel::Array<KSJACK_DESCRIPTION> jacks;
    if (device.jackInfo(jacks) == 0) {
        // A plain speaker node without jacks is as likely external; the special kinds are not.
        if (nodeIs(device, KSNODETYPE_SPEAKER)) {
            return false;
        }
        QEL_ERROR("No jack description available, but endpoint type is ", p.endpointType,
                  " so assume internal speaker.");
        return true;
    }
    bool internal = true;
    for (const KSJACK_DESCRIPTION& jack : jacks) {
        internal = internal && looksInternal(jack);
        QEL_DEBUG("Connection Geolocations: ", (unsigned int)jack.GeoLocation);
        QEL_DEBUG("Connection Genlocations: ", (unsigned int)jack.GenLocation);
        QEL_DEBUG("Connection ConnectionType: ", (unsigned int)jack.ConnectionType);
        QEL_DEBUG("Connection PortConnection: ", (unsigned int)jack.PortConnection);
        QEL_DEBUG("Connection: ", (int)jack.IsConnected);
    }
    return internal;
}

bool isMicrophoneDeviceWithNoJackInfo(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isMicrophoneDeviceWithNoJackInfo");
    const AudioDevice::Properties& p = device.deviceProperty();
    QEL_DEBUG("Friendly Name ", p.friendlyName);
    QEL_DEBUG("Endpoint Type ", p.endpointType);
    if (!nodeIs(device, KSNODETYPE_MICROPHONE)) {
        QEL_DEBUG("Is not a KSNODETYPE_MICROPHONE node");
        return false;
    }
    QEL_DEBUG("Is a KSNODETYPE_MICROPHONE node");
    qel::Array<KSJACK_DESCRIPTION> jacks;
    return device.jackInfo(jacks) == 0;
}

bool isSpeakerDeviceWithNoJackInfo(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isSpeakerDeviceWithNoJackInfo");
    const AudioDevice::Properties& p = device.deviceProperty();
    QEL_DEBUG("Friendly Name ", p.friendlyName);
    QEL_DEBUG("Endpoint Type ", p.endpointType);
    if (!nodeIs(device, KSNODETYPE_SPEAKER)) {
        QEL_DEBUG("Is not a KSNODETYPE_SPEAKER node");
        return false;
    }
    QEL_DEBUG("Is a KSNODETYPE_SPEAKER node");
    qel::Array<KSJACK_DESCRIPTION> jacks;
    return device.jackInfo(jacks) == 0;
}

bool isIntegratedMicrophone(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isIntegratedMicrophone");
    if (enumeratedBy(device, "ROOT")) {
        return false;
    }
    if (enumeratedBy(device, "USB") && nodeIs(device, KSNODETYPE_MICROPHONE)) {
        return true;
    }
    if (isMicrophoneDeviceWithNoJackInfo(device) || isExternalAnalogJack(device)) {
        return false;
    }
    // Asked for its log lines only: whatever it finds, such a microphone counts as built in.
    isInternalMicrophone(device);
    return true;
}

bool isIntegratedSpeaker(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isIntegratedSpeaker");
    if (enumeratedBy(device, "ROOT")) {
        return false;
    }
    if (enumeratedBy(device, "USB") && nodeIs(device, KSNODETYPE_SPEAKER)) {
        return true;
    }
    if (isSpeakerDeviceWithNoJackInfo(device)) {
        return false;
    }
    // No external-jack test for speakers: a line out or headphone jack still counts.
    isInternalSpeaker(device);
    return true;
}

bool isActive(AudioDevice& device) {
    QEL_TRACE_SCOPE("isActive(AudioDevice& dev)");
    if (!device.refreshDeviceInformation()) {
        QEL_DEBUG("Unable to update test device info. Assume not active.");
        return false;
    }
    bool active = device.deviceProperty().state == DEVICE_STATE_ACTIVE;
    QEL_DEBUG("Checking device state using up-to-date information: ", (int)active);
    return active;
}

bool isExternalAnalogJack(AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isExternalAnalogJack");
    QEL_DEBUG(device.deviceProperty().endpointType);
    qel::Array<KSJACK_DESCRIPTION> jacks;
    device.jackInfo(jacks);
    QEL_DEBUG("Number of jack information ", jacks.size());
    for (qel::Uint32 i = 0; i < jacks.size(); ++i) {
        QEL_DEBUG("Jack ", i, " connection type ", (unsigned int)jacks[i].ConnectionType);
        if (isAnalogJack(jacks[i])) {
            return true;
        }
    }
    return false;
}

bool isUSBMicrophone(const AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isUSBMicrophone");
    return enumeratedBy(device, "USB") && nodeIs(device, KSNODETYPE_MICROPHONE);
}

bool isUSBSpeaker(const AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isUSBSpeaker");
    return enumeratedBy(device, "USB") && nodeIs(device, KSNODETYPE_SPEAKER);
}

bool isVirtualDevice(const AudioDevice& device) {
    QEL_TRACE_SCOPE("libAudio::isVirtualDevice");
    return enumeratedBy(device, "ROOT");
}

bool allowExternalMicTesting() {
    QEL_TRACE_SCOPE("libAudio::allowExternalMicTesting");
    qel::String value;
    if (!qel::Resource::getSetting("qelrsysinfodirect", "AllowExternalMicTesting.value", value,
                                   QELLocale::getGlobalLocale())) {
        return false;
    }
    return qel::String::strToBoolean(value.trim());
}

} // namespace libAudio
