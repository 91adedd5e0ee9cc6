// AudioDevice: what the device is (flow, default role, jacks, legacy number) and what it
// can be asked for (audio client, filter, formats).
#include "foundation/comTaskMemStorage.h"
#include "foundation/moduleSupport.h"
#include "foundation/qelLog.h"
#include "libAudio/AudioDevice.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.audioDeviceEndpoint")

qel::Hex code(HRESULT hr) {
    return qel::Hex{(unsigned long long)(DWORD)hr};
}

constexpr unsigned int NO_LEGACY_DEVICE = 0xFFFFFFFF;

qel::String takeString(LPWSTR text) {
    qel::String copy(platform::ucs2(text));
    CoTaskMemFree(text);
    return copy;
}
} // namespace

bool AudioDevice::dataFlow(EDataFlow& flow) const {
    if (!m_device) {
        return false;
    }
    CComPtr<IMMEndpoint> endpoint;
    HRESULT hr = m_device.QueryInterface(&endpoint);
    if (FAILED(hr)) {
        QEL_ERROR("QueryInterface for IMMEndpoint failed ", code(hr));
        return false;
    }
    return SUCCEEDED(endpoint->GetDataFlow(&flow));
}

bool AudioDevice::isEndpoint() const {
    CComPtr<IMMEndpoint> endpoint;
    HRESULT hr = m_device ? m_device.QueryInterface(&endpoint) : E_POINTER;
    if (FAILED(hr)) {
        QEL_ERROR("QueryInterface for IMMEndpoint failed ", code(hr));
        return false;
    }
    return true;
}

bool AudioDevice::isDefaultEndpoint() const {
    QEL_TRACE_SCOPE("AudioDevice::isDefaultEndpoint()");
    CComPtr<IMMDeviceEnumerator> enumerator;
    HRESULT hr =
        enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER);
    if (FAILED(hr)) {
        QEL_ERROR("CoCreateInstance for MMDeviceEnumerator returns ", code(hr));
        return false;
    }
    CComPtr<IMMEndpoint> endpoint;
    hr = m_device ? m_device.QueryInterface(&endpoint) : E_POINTER;
    if (FAILED(hr)) {
        QEL_ERROR("QueryInterface returns ", code(hr));
        return false;
    }
    EDataFlow flow = eRender;
    if (FAILED(hr = endpoint->GetDataFlow(&flow))) {
        QEL_ERROR("GetDataFlow returns ", code(hr));
        return false;
    }
    CComPtr<IMMDevice> defaultDevice;
    if (FAILED(hr = enumerator->GetDefaultAudioEndpoint(flow, eConsole, &defaultDevice))) {
        QEL_ERROR("GetDefaultAudioEndpoint returns ", code(hr));
        return false;
    }
    LPWSTR id = nullptr;
    if (FAILED(hr = defaultDevice->GetId(&id))) {
        QEL_ERROR("GetId returns ", code(hr));
        return false;
    }
    return takeString(id) == m_properties.deviceId;
}

unsigned int AudioDevice::connector(qel::Array<AudioComponent<IConnector>>& list) const {
    list = m_topology.connector();
    return list.size();
}

CComPtr<IAudioClient> AudioDevice::audioClient() const {
    CComPtr<IAudioClient> client;
    if (!m_device || FAILED(m_device->Activate(platform::iidOf<IAudioClient>(), CLSCTX_ALL, nullptr,
                                               reinterpret_cast<void**>(&client)))) {
        QEL_ERROR("Device ", m_properties.deviceId, " has no IAudioClient interface");
        client.Release();
    }
    return client;
}

CComPtr<IBaseFilter> AudioDevice::baseFilter() const {
    CComPtr<IBaseFilter> filter;
    if (!m_device || FAILED(m_device->Activate(platform::iidOf<IBaseFilter>(), CLSCTX_ALL, nullptr,
                                               reinterpret_cast<void**>(&filter)))) {
        QEL_ERROR("Device ", m_properties.deviceId, " has no IBaseFilter interface");
        filter.Release();
    }
    return filter;
}

unsigned int AudioDevice::compatibleFormats(qel::Array<WAVEFORMATEX>& formats,
                                            AUDCLNT_SHAREMODE mode) const {
    formats.clear();
    CComPtr<IAudioClient> client = audioClient();
    if (!client) {
        QEL_ERROR("AudioDevice has not been initialized correctly");
        return 0;
    }
    return libAudio::enumerateCompatibleFormat(*client, mode, formats);
}

bool AudioDevice::setFormat(const WAVEFORMATEXTENSIBLE& format) {
    QEL_TRACE_SCOPE("AudioDevice::setFormat");
    if (!m_propertyStore) {
        QEL_ERROR("m_propertyStore is not set to a valid property store instance");
        return false;
    }
    PROPVARIANT value;
    PropVariantInit(&value);
    value.vt = VT_BLOB;
    value.blob.cbSize = sizeof format;
    value.blob.pBlobData = reinterpret_cast<BYTE*>(const_cast<WAVEFORMATEXTENSIBLE*>(&format));
    HRESULT hr = m_propertyStore->SetValue(PKEY_AudioEngine_DeviceFormat, value);
    if (FAILED(hr)) {
        QEL_ERROR("IPropertyStore::SetValue failed ", code(hr));
        return false;
    }
    m_propertyStore->Commit();
    m_propertyStore.Release();
    if (FAILED(hr = m_device->OpenPropertyStore(STGM_READWRITE, &m_propertyStore))) {
        QEL_ERROR("Cannot open a new property store ", code(hr));
        return false;
    }
    return refreshDeviceInformation();
}

unsigned int AudioDevice::jackInfo(qel::Array<KSJACK_DESCRIPTION>& jacks) const {
    QEL_TRACE_SCOPE("AudioDevice::jackInfo");
    jacks.clear();
    const CComPtr<IDeviceTopology>& topology = m_topology.topology();
    if (!topology) {
        QEL_DEBUG("Audio device has no topology");
        return 0;
    }
    CComPtr<IConnector> connector;
    for (UINT i = 0; SUCCEEDED(topology->GetConnector(i, &connector)); ++i) {
        CComPtr<IConnector> partner;
        CComPtr<IPart> part;
        CComPtr<IKsJackDescription> description;
        if (FAILED(connector->GetConnectedTo(&partner))) {
            QEL_DEBUG("No Jack Info for non-active device");
        } else if (FAILED(partner.QueryInterface(&part))) {
            QEL_DEBUG("No jack info. Can't find IPart");
        } else if (SUCCEEDED(part->Activate(CLSCTX_INPROC_SERVER,
                                            platform::iidOf<IKsJackDescription>(),
                                            reinterpret_cast<void**>(&description)))) {
            UINT count = 0;
            description->GetJackCount(&count);
            for (UINT j = 0; j < count; ++j) {
                KSJACK_DESCRIPTION jack{};
                if (SUCCEEDED(description->GetJackDescription(j, &jack))) {
                    jacks.append(jack);
                }
            }
        }
    }
    return jacks.size();
}

unsigned int AudioDevice::waveMessage(EDataFlow flow, unsigned int deviceNumber,
                                      unsigned int message, DWORD_PTR param1,
                                      DWORD_PTR param2) const {
    if (flow != eRender) {
        return waveInMessage(reinterpret_cast<HWAVEIN>(static_cast<DWORD_PTR>(deviceNumber)),
                             message, param1, param2);
    }
    return waveOutMessage(reinterpret_cast<HWAVEOUT>(static_cast<DWORD_PTR>(deviceNumber)), message,
                          param1, param2);
}

unsigned int AudioDevice::waveLegacyDeviceID() const {
    QEL_TRACE_SCOPE("waveLegacyDeviceID");
    EDataFlow flow = eAll;
    if (!dataFlow(flow)) {
        QEL_ERROR("Audio stream flow cannot be determined");
        return NO_LEGACY_DEVICE;
    }
    if (flow == eAll) {
        QEL_ERROR("Getting a legacy device id with eAll data flow is not possible");
        return NO_LEGACY_DEVICE;
    }
    QEL_DEBUG("EDataFlow = ", int(flow));
    unsigned int count = flow == eCapture ? waveInGetNumDevs() : waveOutGetNumDevs();
    for (unsigned int number = 0; number < count; ++number) {
        bool stop = false;
        if (legacyIdMatches(flow, number, stop)) {
            const Properties& p = m_properties;
            QEL_INFO("Endpoint device ", p.endpointType, " ", p.friendlyName, " ", p.deviceId,
                     " has wave id = ", number);
            return number;
        }
        if (stop) {
            return NO_LEGACY_DEVICE;
        }
    }
    return NO_LEGACY_DEVICE;
}

// Asks device `deviceNumber` for the id of its endpoint and compares it with ours.
bool AudioDevice::legacyIdMatches(EDataFlow flow, unsigned int deviceNumber, bool& stop) const {
    // winmm writes the size as wide as a pointer (Microsoft's own sample passes a size_t).
    DWORD_PTR size = 0;
    unsigned int result = waveMessage(flow, deviceNumber, DRV_QUERYFUNCTIONINSTANCEIDSIZE,
                                      reinterpret_cast<DWORD_PTR>(&size), 0);
    if (result != MMSYSERR_NOERROR) {
        QEL_ERROR("waveMessage returns an error ", result);
        return false;
    }
    qel::SharedResource<ComTaskMemStorage<unsigned short>, 1> buffer(
        static_cast<unsigned short*>(CoTaskMemAlloc(size)));
    if (buffer.isEmpty()) {
        QEL_ERROR("Cannot allocate device id buffer");
        stop = true;
        return false;
    }
    result = waveMessage(flow, deviceNumber, DRV_QUERYFUNCTIONINSTANCEID,
                         reinterpret_cast<DWORD_PTR>(buffer.get()), size);
    if (result != MMSYSERR_NOERROR) {
        QEL_ERROR("waveMessage returns an error ", result);
        return false;
    }
    qel::String id = qel::String::fromUnits(buffer.get(), std::uint32_t(size / 2));
    qel::String terminated(id.getUCS2Buffer()); // stop at the first terminator
    return terminated == m_properties.deviceId;
}

void AudioDevice::Properties::logPropertyInfo() const {
    QEL_TRACE_SCOPE("AudioDevice::Properties::logPropertyInfo()");
    QEL_INFO("Friendly Name ", friendlyName);
    QEL_INFO("Endpoint Type ", endpointType);
    QEL_INFO("State is ", (unsigned int)state);
    QEL_INFO("Device ID ", deviceId);
    QEL_INFO("Device Instance Path ", instancePath);
    QEL_INFO("Driver Node Strong Name ", driverNodeStrongName);
    QEL_INFO("Physical Speaker Config ", qel::Hex{physicalSpeakers, 8});
    QEL_INFO("Enumerator name ", enumeratorName.empty() ? qel::String("AC97") : enumeratorName);
    QEL_INFO("Device ", eventDriven == 0 ? "does not " : "", " support event-driven mode.");
    QEL_INFO("Node GUID ", guidToString(&nodeGuid));
    QEL_INFO("Direct Sound GUID ", guidToString(&directSoundGuid));
}
