// AudioDevice: construction, initialisation and the refresh of the cached properties.
#include "libAudio/AudioDevice.h"
#include "foundation/qelLog.h"
#include "libAudio/EndpointDeviceEnumerator.h"

#include <cstring>

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
