// SoundCard: the volume and mute nodes along an endpoint's signal paths, found by walking
// the connector map outwards from the endpoint, and the input selectors (recording
// multiplexers) of the card's internal devices.
#include "libAudio/internal/soundcardunit.h"

using soundcardunit::unitLogger;

namespace {

template <class Interface> bool activate(const CComPtr<IPart>& part, CComPtr<Interface>& control) {
    return part &&
           SUCCEEDED(part->Activate(CLSCTX_ALL, platform::iidOf<Interface>(),
                                    reinterpret_cast<void**>(&control))) &&
           control;
}

// Calls f(device, part, selector) for every input selector of the internal devices.
template <class F> void forEachInputSelector(const qel::Array<AudioDevice>& internal, F f) {
    QEL_LOG_AT(PRIORITY_DEBUG, 705, "Number of internal devices = ", internal.size());
    for (const AudioDevice& device : internal) {
        AudioDeviceTopology topology;
        device.deviceTopology(topology);
        qel::Array<AudioPart> parts;
        for (const AudioComponent<IConnector>& connector : topology.connector()) {
            parts.append(connector.part());
        }
        for (const AudioComponent<ISubunit>& subunit : topology.subunit()) {
            parts.append(subunit.part());
        }
        for (const AudioPart& part : parts) {
            CComPtr<IAudioInputSelector> selector;
            if (activate(part.part(), selector)) {
                QEL_LOG_AT(PRIORITY_INFO, 717, "Found an input selector from device ",
                           device.deviceProperty().deviceId);
                f(device, part, selector);
            }
        }
    }
}

} // namespace

bool SoundCard::partFromList(const qel::Array<AudioPart>& partList, const GUID& subType,
                             AudioPart& result) const {
    QEL_TRACE_SCOPE("SoundCard::partFromList");
    for (const AudioPart& part : partList) {
        if (part.subType() == subType) {
            result = part;
            return true;
        }
    }
    return false;
}

bool SoundCard::volumeControllerFromList(
    const qel::Array<AudioPart>& partList, const AudioComponent<IConnector>& connector,
    qel::Array<SoundCard::VolumeController>& controllers) const {
    QEL_TRACE_SCOPE("SoundCard::volumeControllerFromList");
    AudioPart volumeNode;
    if (!partFromList(partList, KSNODETYPE_VOLUME, volumeNode)) {
        QEL_LOG_AT(PRIORITY_INFO, 371, "Supplied part list does not have a volume controller node");
        return false;
    }
    VolumeController controller;
    if (!activate(volumeNode.part(), controller.volume)) {
        return false;
    }
    // The mute beside the volume node: before it, or else after it.
    AudioPart muteNode;
    qel::Array<AudioPart> neighbours;
    volumeNode.incomingPartsList(neighbours);
    bool hasMute = partFromList(neighbours, KSNODETYPE_MUTE, muteNode);
    if (!hasMute) {
        neighbours.clear();
        volumeNode.outgoingPartsList(neighbours);
        hasMute = partFromList(neighbours, KSNODETYPE_MUTE, muteNode);
    }
    if (hasMute && activate(muteNode.part(), controller.mute)) {
        controller.muteNode = muteNode;
    }
    controller.subtype = connector.part().subType();
    controller.name = connector.part().name();
    controller.volumeNode = volumeNode;
    controllers.append(controller);
    return true;
}

bool SoundCard::volumeControllerFromConnector(
    const AudioComponent<IConnector>& connector,
    qel::Array<SoundCard::VolumeController>& controllers) const {
    QEL_TRACE_SCOPE("SoundCard::volumeControllerFromConnector");
    AudioPart part = connector.part();
    qel::Array<AudioPart> neighbours;
    part.incomingPartsList(neighbours);
    if (volumeControllerFromList(neighbours, connector, controllers)) {
        return true;
    }
    neighbours.clear();
    part.outgoingPartsList(neighbours);
    return volumeControllerFromList(neighbours, connector, controllers);
}

qel::Uint32
SoundCard::volumeController(const AudioDevice& endpoint,
                            qel::Array<SoundCard::VolumeController>& controllers) const {
    QEL_TRACE_SCOPE(
        "EndpointDeviceEnumeratorCommon::volumeController(const AudioDevice& endpoint)");
    AudioDeviceTopology topology;
    endpoint.deviceTopology(topology);
    qel::Array<std::int32_t> work;
    for (const AudioComponent<IConnector>& connector : topology.connector()) {
        std::int32_t index = connectorIndex(connector.part().globalId());
        if (index < 0) {
            QEL_LOG_AT(PRIORITY_ERROR, 436,
                       "m_connectorMap is inconsistent. Please review initialization code");
            continue;
        }
        work.append(index);
    }
    // Breadth first, so the nodes nearest the endpoint come first.
    for (qel::Uint32 at = 0; at < work.size(); ++at) {
        const ConnectorEntry& entry = m_connectorMap[qel::Uint32(work[at])];
        volumeControllerFromConnector(entry.connector, controllers);
        for (std::int32_t link : entry.links) {
            // A link to a connector that was never registered is a fault of the map.
            if (link < 0 || qel::Uint32(link) >= m_connectorMap.size()) {
                QEL_LOG_AT(PRIORITY_ERROR, 436,
                           "m_connectorMap is inconsistent. Please review initialization code");
                continue;
            }
            if (!work.contains(link)) {
                work.append(link);
            }
        }
    }
    return controllers.size();
}

qel::Uint32 SoundCard::volumeController(
    const AudioDevice&,
    qel::Array<qel::SharedResource<qel::PointerStorage<VolumeControllerInterface, 0, 3>, 0>>&)
    const {
    return 0;
}

qel::Uint32 SoundCard::recordingMux(qel::Array<CComPtr<IAudioInputSelector>>& selectors) {
    QEL_TRACE_SCOPE("SoundCard::recordingMux");
    // Only internal devices: a selector on an endpoint's own topology is not reported.
    forEachInputSelector(
        snapshot(m_internalDevices),
        [&](const AudioDevice&, const AudioPart&, const CComPtr<IAudioInputSelector>& selector) {
            selectors.append(selector);
        });
    return selectors.size();
}

qel::Uint32 SoundCard::inputSelectors(qel::Array<InputSelector>& selectors) const {
    QEL_TRACE_SCOPE("SoundCard::inputSelectors");
    qel::Uint32 before = selectors.size();
    forEachInputSelector(snapshot(m_internalDevices), [&](const AudioDevice& device,
                                                          const AudioPart& part,
                                                          const CComPtr<IAudioInputSelector>& s) {
        InputSelector found;
        found.selector = s;
        found.part = part;
        found.deviceId = device.deviceProperty().deviceId;
        found.part.incomingPartsList(found.inputs);
        UINT selected = 0;
        if (SUCCEEDED(s->GetSelection(&selected))) {
            for (qel::Uint32 i = 0; i < found.inputs.size(); ++i) {
                UINT localId = 0;
                CComPtr<IPart> input = found.inputs[i].part();
                if (input && SUCCEEDED(input->GetLocalId(&localId)) && localId == selected) {
                    found.selected = std::int32_t(i);
                }
            }
        }
        selectors.append(found);
    });
    return selectors.size() - before;
}

bool SoundCard::selectInput(InputSelector& selector, qel::Uint32 input) {
    QEL_TRACE_SCOPE("SoundCard::selectInput");
    if (!selector.selector || input >= selector.inputs.size()) {
        return false;
    }
    // The selector names its inputs by the local ids of the parts that link into it.
    UINT localId = 0;
    CComPtr<IPart> part = selector.inputs[input].part();
    if (!part || FAILED(part->GetLocalId(&localId))) {
        return false;
    }
    HRESULT hr = selector.selector->SetSelection(localId, nullptr);
    if (FAILED(hr)) {
        QEL_LOG_AT(PRIORITY_ERROR, 730, "SetSelection returns ", soundcardunit::code(hr));
        return false;
    }
    selector.selected = std::int32_t(input);
    return true;
}
