#include "libAudio/AudioDeviceTopology.h"
#include "foundation/qelLog.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.audioDeviceTopology")

qel::Hex code(HRESULT hr) {
    return qel::Hex{(unsigned long long)(DWORD)hr};
}
} // namespace

AudioDeviceTopology::AudioDeviceTopology() = default;

AudioDeviceTopology::AudioDeviceTopology(const CComPtr<IDeviceTopology>& topology) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::AudioDeviceTopology(IDeviceTopology* deviceTopology)");
    initialize(topology);
}

AudioDeviceTopology::AudioDeviceTopology(const CComPtr<ISubunit>& subunit) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::AudioDeviceTopology(ISubunit* subunit)");
    initializeHelper<ISubunit>(subunit);
}

AudioDeviceTopology::AudioDeviceTopology(const CComPtr<IConnector>& connector) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::AudioDeviceTopology(IConnector* connector)");
    initializeHelper<IConnector>(connector);
}

AudioDeviceTopology::AudioDeviceTopology(const AudioComponent<IConnector>& connector) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::AudioDeviceTopology(IConnector* connector)");
    initializeHelper<IConnector>(connector.component());
}

AudioDeviceTopology::AudioDeviceTopology(const AudioDeviceTopology& other) = default;
AudioDeviceTopology& AudioDeviceTopology::operator=(const AudioDeviceTopology& other) = default;
AudioDeviceTopology::~AudioDeviceTopology() = default;

AudioDeviceTopology& AudioDeviceTopology::operator=(const CComPtr<IDeviceTopology>& topology) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::operator=(const CComPtr<IDeviceTopology>& topology)");
    initialize(topology);
    return *this;
}

bool AudioDeviceTopology::initialize(const CComPtr<IDeviceTopology>& topology) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::initialize(IDeviceTopology* deviceTopology)");
    // The argument may be our own topology (t.initialize(t.topology())): clearing would
    // release it before it is read.
    CComPtr<IDeviceTopology> kept = topology;
    clear();
    m_topology = kept;
    if (!m_topology) {
        QEL_INFO("Using NULL deviceTopology invalidates this object");
        return false;
    }
    LPWSTR owner = nullptr;
    HRESULT hr = m_topology->GetDeviceId(&owner);
    if (owner) {
        m_deviceOwner = platform::ucs2(owner);
        CoTaskMemFree(owner);
    }
    if (FAILED(hr)) {
        QEL_ERROR("Unable to retrieve device id from topology ", code(hr));
    }
    readConnectors();
    readSubunits();
    return true;
}

void AudioDeviceTopology::readConnectors() {
    UINT count = 0;
    m_topology->GetConnectorCount(&count);
    QEL_INFO("Num connector = ", count);
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IConnector> connector;
        HRESULT hr = m_topology->GetConnector(i, &connector);
        if (FAILED(hr)) {
            QEL_ERROR("Unable to retrieve connector index ", i, " ", code(hr));
            continue;
        }
        m_connectors.append(AudioComponent<IConnector>(connector));
    }
}

void AudioDeviceTopology::readSubunits() {
    UINT count = 0;
    m_topology->GetSubunitCount(&count);
    QEL_INFO("Subunit count = ", count);
    for (UINT i = 0; i < count; ++i) {
        CComPtr<ISubunit> subunit;
        HRESULT hr = m_topology->GetSubunit(i, &subunit);
        if (FAILED(hr)) {
            QEL_ERROR("Unable to retrieve subunit index ", i, " ", code(hr));
            continue;
        }
        m_subunits.append(AudioComponent<ISubunit>(subunit));
    }
}

bool AudioDeviceTopology::initialize(const CComPtr<IConnector>& connector) {
    return initializeHelper<IConnector>(connector);
}

bool AudioDeviceTopology::initialize(const CComPtr<ISubunit>& subunit) {
    return initializeHelper<ISubunit>(subunit);
}

template <class Interface> bool AudioDeviceTopology::initializeHelper(Interface* obj) {
    QEL_TRACE_SCOPE(
        "template <class Interface> bool AudioDeviceTopology::initializeHelper(Interface* obj)");
    // The object may be one of our own components, whose last reference clear() drops.
    CComPtr<Interface> kept = obj;
    clear();
    if (!kept) {
        QEL_ERROR("Cannot use NULL as parameter");
        return false;
    }
    CComPtr<IPart> part;
    if (FAILED(kept->QueryInterface(platform::iidOf<IPart>(), reinterpret_cast<void**>(&part)))) {
        QEL_ERROR("No part interface found");
        return false;
    }
    return initialize(part);
}

bool AudioDeviceTopology::initialize(const CComPtr<IPart>& part) {
    QEL_TRACE_SCOPE("AudioDeviceTopology::initialize(CComPtr<IPart>& part)");
    if (!part) {
        QEL_ERROR("Cannot use NULL part to get device topology");
        return false;
    }
    CComPtr<IDeviceTopology> topology;
    HRESULT hr = platform::topologyOf(part, &topology);
    if (FAILED(hr)) {
        QEL_ERROR("GetTopologyObject fails ", code(hr));
    }
    return initialize(topology);
}

bool AudioDeviceTopology::connectorsAreLinked(const AudioComponent<IConnector>& a,
                                              const AudioComponent<IConnector>& b) const {
    QEL_TRACE_SCOPE("AudioDeviceTopology::connectorsAreLinked");
    if (a.part().globalId().compareNoCase(b.part().globalId()) == 0) {
        QEL_ERROR("Function treats the same connectors as unlinked");
        return false;
    }
    CComPtr<IPart> from = a.part().part();
    CComPtr<IPart> to = b.part().part();
    if (!from || !to || !m_topology) {
        QEL_ERROR("One of the connectors is invalid");
        return false;
    }
    CComPtr<IPartsList> path;
    if (SUCCEEDED(m_topology->GetSignalPath(from, to, TRUE, &path))) {
        return true;
    }
    QEL_ERROR("No signal path from ", a.part().globalId(), " to ", b.part().globalId());
    if (SUCCEEDED(m_topology->GetSignalPath(to, from, TRUE, &path))) {
        return true;
    }
    QEL_ERROR("No signal path from ", b.part().globalId(), " to ", a.part().globalId());
    return false;
}

void AudioDeviceTopology::clear() {
    QEL_TRACE_SCOPE("AudioDeviceTopology::clear()");
    m_topology.Release();
    m_deviceOwner.clear();
    m_connectors.clear();
    m_subunits.clear();
}
