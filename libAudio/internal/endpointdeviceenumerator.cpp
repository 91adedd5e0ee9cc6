#include "libAudio/EndpointDeviceEnumerator.h"
#include "foundation/qelLog.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.endpointDeviceEnumerator")

qel::Hex code(HRESULT hr) {
    return qel::Hex{(unsigned long long)(DWORD)hr};
}

HRESULT createPlatformEnumerator(CComPtr<IMMDeviceEnumerator>& out) {
    return out.CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER);
}

void appendItems(IMMDeviceCollection* collection, UINT count, qel::Array<AudioDevice>& devices) {
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        collection->Item(i, &device);
        devices.append(AudioDevice(device));
    }
}
} // namespace

EndpointDeviceEnumeratorCommon::EndpointDeviceEnumeratorCommon() {
    QEL_TRACE_SCOPE("EndpointDeviceEnumeratorCommon::EndpointDeviceEnumeratorCommon()");
}

EndpointDeviceEnumeratorCommon::EndpointDeviceEnumeratorCommon(EDataFlow flow)
    : EndpointDeviceEnumeratorCommon() {
    enumerate(flow);
}

EndpointDeviceEnumeratorCommon::EndpointDeviceEnumeratorCommon(
    const EndpointDeviceEnumeratorCommon& other) = default;
EndpointDeviceEnumeratorCommon&
EndpointDeviceEnumeratorCommon::operator=(const EndpointDeviceEnumeratorCommon& other) = default;

EndpointDeviceEnumeratorCommon::~EndpointDeviceEnumeratorCommon() {
    QEL_TRACE_SCOPE("EndpointDeviceEnumeratorCommon::~EndpointDeviceEnumeratorCommon()");
    clear();
}

bool EndpointDeviceEnumeratorCommon::enumerate(EDataFlow flow) {
    QEL_TRACE_SCOPE("EndpointDeviceEnumeratorCommon::enumerate(EDataFlow flow)");
    clear();
    HRESULT hr = createPlatformEnumerator(m_enumerator);
    if (FAILED(hr)) {
        QEL_ERROR("CoCreateInstance returns ", code(hr));
        return false;
    }
    refresh(flow);
    return true;
}

void EndpointDeviceEnumeratorCommon::refresh(EDataFlow flow) {
    QEL_TRACE_SCOPE("EndpointDeviceEnumeratorCommon::refresh");
    clearDeviceList();
    struct StateList {
        DWORD mask;
        qel::Array<AudioDevice>* list;
    };
    const StateList table[] = {{DEVICE_STATE_ACTIVE, &m_active},
                               {DEVICE_STATE_DISABLED, &m_disabled},
                               {DEVICE_STATE_NOTPRESENT, &m_notPresent},
                               {DEVICE_STATE_UNPLUGGED, &m_unplugged}};
    for (unsigned int i = 0; i < 4 && m_enumerator; ++i) {
        CComPtr<IMMDeviceCollection> collection;
        UINT count = 0;
        m_enumerator->EnumAudioEndpoints(flow, table[i].mask, &collection);
        if (collection) {
            collection->GetCount(&count);
        }
        QEL_INFO("Device state index ", i, " found ", count, " devices");
        QEL_INFO("Device state index ", i, "currently has ", table[i].list->size(), " devices");
        for (UINT item = 0; item < count; ++item) {
            CComPtr<IMMDevice> device;
            HRESULT hr = collection->Item(item, &device);
            if (FAILED(hr)) {
                QEL_ERROR("IMMDeviceCollection::Item failed ", code(hr));
                continue;
            }
            table[i].list->append(AudioDevice(device));
        }
    }
}

void EndpointDeviceEnumeratorCommon::registerNotificationObserver(IMMNotificationClient* client) {
    if (!client || !m_enumerator) {
        return;
    }
    unregisterNotificationObserver();
    m_observer = client;
    m_enumerator->RegisterEndpointNotificationCallback(m_observer);
}

void EndpointDeviceEnumeratorCommon::unregisterNotificationObserver() {
    if (m_observer && m_enumerator) {
        m_enumerator->UnregisterEndpointNotificationCallback(m_observer);
    }
    m_observer = nullptr;
}

void EndpointDeviceEnumeratorCommon::clear() {
    QEL_TRACE_SCOPE("EndpointDeviceEnumeratorCommon::clear()");
    m_enumerator.Release();
    clearDeviceList();
}

void EndpointDeviceEnumeratorCommon::clearDeviceList() {
    m_active.clear();
    m_notPresent.clear();
    m_disabled.clear();
    m_unplugged.clear();
}

namespace libAudio {

EndpointDeviceEnumerator::EndpointDeviceEnumerator() {
    QEL_TRACE_SCOPE("EndpointDeviceEnumerator::EndpointDeviceEnumerator()");
    initialize();
}

EndpointDeviceEnumerator::~EndpointDeviceEnumerator() {
    QEL_TRACE_SCOPE("EndpointDeviceEnumerator::~EndpointDeviceEnumerator()");
    m_enumerator.Release();
}

bool EndpointDeviceEnumerator::initialize() {
    QEL_TRACE_SCOPE("EndpointDeviceEnumerator::initialize()");
    HRESULT hr = createPlatformEnumerator(m_enumerator);
    if (FAILED(hr)) {
        QEL_ERROR("CoCreateInstance returns ", code(hr));
        return false;
    }
    return true;
}

unsigned int EndpointDeviceEnumerator::audioDevices(EDataFlow flow,
                                                    qel::Array<AudioDevice>& devices) {
    QEL_TRACE_SCOPE("EndpointDeviceEnumerator::audioDevices");
    devices.clear();
    if (!m_enumerator) {
        return 0;
    }
    CComPtr<IMMDeviceCollection> collection;
    HRESULT hr = m_enumerator->EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection);
    QEL_DEBUG("EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection) returns ", code(hr));
    UINT count = 0;
    if (collection) {
        collection->GetCount(&count);
    }
    // The mask stands where the state index stands in the other listings.
    QEL_INFO("Device state index ", DEVICE_STATEMASK_ALL, " found ", count, " devices");
    if (collection) {
        appendItems(collection, count, devices);
    }
    return devices.size();
}

AudioDeviceEnumerator::AudioDeviceEnumerator() = default;

AudioDeviceEnumerator::~AudioDeviceEnumerator() {
    if (!m_enumerator) {
        return;
    }
    for (CComPtr<IMMNotificationClient>& client : m_clients) {
        m_enumerator->UnregisterEndpointNotificationCallback(client);
        client.Release();
    }
    m_clients.clear();
    m_enumerator.Release();
}

bool AudioDeviceEnumerator::initialize() {
    QEL_TRACE_SCOPE("AudioDeviceEnumerator::initialize");
    HRESULT hr = createPlatformEnumerator(m_enumerator);
    if (FAILED(hr)) {
        QEL_ERROR("CoCreateInstance returns ", code(hr));
        return false;
    }
    return true;
}

qel::CopiedResource<qel::PointerStorage<IMMDeviceEnumerator, 3, 2>>
AudioDeviceEnumerator::deviceEnumerator() {
    QEL_TRACE_SCOPE("AudioDeviceEnumerator::deviceEnumerator()");
    if (!m_enumerator) {
        initialize();
    }
    return qel::CopiedResource<qel::PointerStorage<IMMDeviceEnumerator, 3, 2>>(m_enumerator.p);
}

unsigned int AudioDeviceEnumerator::audioDevices(EDataFlow flow, qel::Array<AudioDevice>& devices) {
    QEL_TRACE_SCOPE("AudioDeviceEnumerator::audioDevices");
    devices.clear();
    if (!m_enumerator) {
        return 0;
    }
    UINT count = 0;
    CComPtr<IMMDeviceCollection> collection;
    HRESULT hr = m_enumerator->EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection);
    QEL_DEBUG("EnumAudioEndpoints(flow, DEVICE_STATEMASK_ALL, &collection) returns ", code(hr));
    if (collection) {
        collection->GetCount(&count);
    }
    QEL_INFO("Found ", count, " devices");
    if (collection) {
        appendItems(collection, count, devices);
    }
    return devices.size();
}

bool AudioDeviceEnumerator::addNotificationClient(const CComPtr<IMMNotificationClient>& client) {
    QEL_TRACE_SCOPE("AudioDeviceEnumerator::addNotificationClient");
    if (!m_enumerator) {
        initialize();
    }
    if (!m_enumerator) {
        QEL_ERROR("Fail to instantiate IMMDeviceNumerator");
        return false;
    }
    HRESULT hr = m_enumerator->RegisterEndpointNotificationCallback(client);
    if (FAILED(hr)) {
        QEL_ERROR("Fail to register notification callback ", code(hr));
        return false;
    }
    m_clients.append(client);
    return true;
}

SharedAudioDeviceEnumerator& AudioDeviceEnumeratorFactory::enumerator() {
    // Lives to the end of the process, by design: never destroyed.
    static SharedAudioDeviceEnumerator* shared = new SharedAudioDeviceEnumerator();
    if (shared->isEmpty()) {
        *shared = SharedAudioDeviceEnumerator(new AudioDeviceEnumerator());
    }
    return *shared;
}

OwnedAudioDeviceEnumerator enumerator() {
    return OwnedAudioDeviceEnumerator(new AudioDeviceEnumerator());
}

} // namespace libAudio
