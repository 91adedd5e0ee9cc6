// AudioDeviceTopology: one device topology with its owner's id and its connectors and
// subunits, in index order.
#pragma once

#include "foundation/export.h"
#include "libAudio/AudioPart.h"

class LIBAUDIO_API AudioDeviceTopology {
public:
    AudioDeviceTopology();
    AudioDeviceTopology(const CComPtr<IDeviceTopology>& topology);
    // The topology that contains the component.
    AudioDeviceTopology(const CComPtr<ISubunit>& subunit);
    AudioDeviceTopology(const CComPtr<IConnector>& connector);
    AudioDeviceTopology(const AudioComponent<IConnector>& connector);
    AudioDeviceTopology(const AudioDeviceTopology& other);
    AudioDeviceTopology& operator=(const AudioDeviceTopology& other);
    AudioDeviceTopology& operator=(const CComPtr<IDeviceTopology>& topology);
    ~AudioDeviceTopology();

    bool initialize(const CComPtr<IDeviceTopology>& topology);
    bool initialize(const CComPtr<IConnector>& connector);
    bool initialize(const CComPtr<ISubunit>& subunit);
    bool isInitialized() const { return m_topology != nullptr; }

    CComPtr<IDeviceTopology>& topology() { return m_topology; }
    const CComPtr<IDeviceTopology>& topology() const { return m_topology; }
    qel::String deviceOwner() const { return m_deviceOwner; }
    qel::Array<AudioComponent<IConnector>>& connector() { return m_connectors; }
    const qel::Array<AudioComponent<IConnector>>& connector() const { return m_connectors; }
    qel::Array<AudioComponent<ISubunit>>& subunit() { return m_subunits; }
    const qel::Array<AudioComponent<ISubunit>>& subunit() const { return m_subunits; }

    // Whether a signal path joins the two connectors, in either direction, with no mix of
    // analog and digital on the way. A connector is never linked to itself.
    bool connectorsAreLinked(const AudioComponent<IConnector>& a,
                             const AudioComponent<IConnector>& b) const;

private:
    bool initialize(const CComPtr<IPart>& part);
    template <class Interface> bool initializeHelper(Interface* obj);
    void readConnectors();
    void readSubunits();
    void clear();

    CComPtr<IDeviceTopology> m_topology;
    qel::String m_deviceOwner;
    qel::Array<AudioComponent<IConnector>> m_connectors;
    qel::Array<AudioComponent<ISubunit>> m_subunits;
};
