// SoundCard: the connector map, the card's signal graph over the topologies of its
// endpoints and of the adapter devices they are wired to. Built once per card; the volume
// lookup, the recording multiplexer and callers that draw the graph read it.
#include "libAudio/internal/soundcardunit.h"

using soundcardunit::sameText;
using soundcardunit::takeString;
using soundcardunit::unitLogger;

namespace {

bool contains(const qel::Array<qel::String>& ids, const qel::String& id) {
    for (const qel::String& known : ids) {
        if (sameText(known, id)) {
            return true;
        }
    }
    return false;
}

// The id of the device on the other side of a connector; empty when it is not connected.
qel::String connectedDeviceId(const AudioComponent<IConnector>& connector) {
    LPWSTR text = nullptr;
    if (!connector.component() || FAILED(connector.component()->GetDeviceIdConnectedTo(&text))) {
        CoTaskMemFree(text);
        return qel::String();
    }
    return takeString(text);
}

} // namespace

std::int32_t SoundCard::connectorIndex(const qel::String& globalId) const {
    for (qel::Uint32 i = 0; i < m_connectorMap.size(); ++i) {
        if (sameText(m_connectorMap[i].connector.part().globalId(), globalId)) {
            return std::int32_t(i);
        }
    }
    return -1;
}

void SoundCard::registerConnectors(const AudioDeviceTopology& deviceTopology) {
    QEL_TRACE_SCOPE("SoundCard::registerConnectors(const AudioDeviceTopology& deviceTopology)");
    for (const AudioComponent<IConnector>& connector : deviceTopology.connector()) {
        if (connectorIndex(connector.part().globalId()) < 0) {
            ConnectorEntry entry;
            entry.connector = connector;
            entry.owner = deviceTopology.deviceOwner();
            m_connectorMap.append(entry);
        }
    }
}

void SoundCard::registerConnectors(const qel::Array<AudioDevice>& deviceList) {
    QEL_TRACE_SCOPE("SoundCard::registerConnectors(const Array<AudioDevice>& deviceList)");
    for (const AudioDevice& device : deviceList) {
        AudioDeviceTopology topology;
        device.deviceTopology(topology);
        registerConnectors(topology);
    }
}

void SoundCard::initializeConnectorMap() {
    QEL_TRACE_SCOPE("SoundCard::initializeConnectorMap");
    m_connectorMap.clear();
    {
        std::lock_guard lock(m_state->lists);
        m_internalDevices->clear();
    }
    // Copies: a registered card's lists may change while the map is built.
    qel::Array<AudioDevice> playback = snapshot(m_playbackDevices);
    qel::Array<AudioDevice> record = snapshot(m_recordDevices);
    registerConnectors(playback);
    registerConnectors(record);
    qel::Array<qel::String> visited;
    for (const qel::Array<AudioDevice>* list : {&playback, &record}) {
        for (const AudioDevice& device : *list) {
            visited.append(device.deviceProperty().deviceId);
        }
    }

    // Physical connections, breadth first: the map grows while it is walked, so the
    // connectors of devices found on the way are visited too.
    for (qel::Uint32 i = 0; i < m_connectorMap.size(); ++i) {
        // A copy: appending may move the entries.
        AudioComponent<IConnector> connector = m_connectorMap[i].connector;
        qel::String otherId = connectedDeviceId(connector);
        if (!contains(visited, otherId) && !hasEndpoint(otherId)) {
            AudioDevice other;
            if (otherId.empty() || !(other = AudioDevice(otherId)).isInitialized()) {
                // Not a device the platform opens: at least the connector's own topology,
                // unless the device is known already (opening it reads every part).
                const qel::String& knownOwner = m_connectorMap[i].owner;
                if (knownOwner.empty() || !contains(visited, knownOwner)) {
                    AudioDeviceTopology owner(connector);
                    if (!contains(visited, owner.deviceOwner())) {
                        registerConnectors(owner);
                        visited.append(owner.deviceOwner());
                    }
                }
            } else {
                {
                    std::lock_guard lock(m_state->lists);
                    m_internalDevices->append(other);
                }
                visited.append(otherId);
                registerConnectors(snapshot(m_internalDevices));
            }
        }
        CComPtr<IConnector> partner;
        if (connector.component() && SUCCEEDED(connector.component()->GetConnectedTo(&partner)) &&
            partner) {
            // Stored even when the partner is not in the map (-1): readers report it.
            m_connectorMap[i].links.append(
                connectorIndex(AudioComponent<IConnector>(partner).part().globalId()));
            m_connectorMap[i].hasPhysicalLink = true;
        }
    }

    // Signal paths inside one device, stored on both ends. A path never leaves its device's
    // topology, so connectors of different devices are not asked. Each device's topology is
    // opened once, for all of its connectors: opening one reads every part of the device.
    qel::Array<AudioDeviceTopology> topologies;
    qel::Array<qel::Uint32> topologyOf;
    for (ConnectorEntry& entry : m_connectorMap) {
        qel::Uint32 t = 0;
        while (t < topologies.size() &&
               (entry.owner.empty() || !sameText(topologies[t].deviceOwner(), entry.owner))) {
            ++t;
        }
        if (t == topologies.size()) {
            topologies.append(AudioDeviceTopology(entry.connector));
            entry.owner = topologies[t].deviceOwner();
        }
        topologyOf.append(t);
    }
    for (qel::Uint32 i = 0; i < m_connectorMap.size(); ++i) {
        for (qel::Uint32 j = i + 1; j < m_connectorMap.size(); ++j) {
            if (sameText(m_connectorMap[i].owner, m_connectorMap[j].owner) &&
                topologies[topologyOf[i]].connectorsAreLinked(m_connectorMap[i].connector,
                                                              m_connectorMap[j].connector)) {
                m_connectorMap[i].links.append(std::int32_t(j));
                m_connectorMap[j].links.append(std::int32_t(i));
            }
        }
    }
}

qel::Uint32 SoundCard::internalDevices(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::internalDevices");
    std::lock_guard lock(m_state->lists);
    for (const AudioDevice& device : *m_internalDevices) {
        result.append(device);
    }
    return m_internalDevices->size();
}
