// SoundCard: which of the card's endpoints is of a kind (microphone, line in, S/PDIF, HDMI,
// DisplayPort, speakers or headphones), by node type and device state.
#include "foundation/moduleSupport.h"
#include "libAudio/internal/soundcardunit.h"

#include <initializer_list>

using soundcardunit::sameText;
using soundcardunit::unitLogger;

namespace {

// DEVICE_STATE_ACTIVE | DISABLED | NOTPRESENT | UNPLUGGED.
constexpr qel::Uint32 ANY_STATE = 15;

} // namespace

qel::Uint32 SoundCard::findEndpoint(const qel::Array<AudioDevice>& searchFrom,
                                    qel::Array<AudioDevice>& result, qel::Uint32 filter) const {
    QEL_TRACE_SCOPE("SoundCard::findEndpoint(const Array<AudioDevice>& searchFrom, "
                    "Array<AudioDevice>& result, Uint32 filter)");
    std::lock_guard lock(m_state->lists);
    qel::Uint32 before = result.size();
    QEL_LOG_AT(PRIORITY_DEBUG, 508, "searchFrom.size() = ", searchFrom.size(),
               " device filter = ", filter);
    for (const AudioDevice& device : searchFrom) {
        const AudioDevice::Properties& p = device.deviceProperty();
        if ((p.state & filter) == 0) {
            continue;
        }
        result.append(device);
        QEL_LOG_AT(PRIORITY_DEBUG, 516, "Appending device ", p.endpointType);
        // Reported only: the node type decides nothing here.
        if (p.nodeGuid == KSNODETYPE_SPEAKER) {
            QEL_LOG_AT(PRIORITY_DEBUG, 517, "Device has NodeType KSNODETYPE_SPEAKER");
        } else if (p.nodeGuid == KSNODETYPE_HEADPHONES) {
            QEL_LOG_AT(PRIORITY_DEBUG, 518, "Device has NodeType KSNODETYPE_HEADPHONES");
        } else {
            QEL_LOG_AT(PRIORITY_DEBUG, 519, "Device has no SPEAKER or HEADPHONE NodeType");
        }
    }
    qel::Uint32 found = result.size() - before;
    QEL_LOG_AT(PRIORITY_DEBUG, 522, "Number of found device = ", found);
    return found;
}

qel::Uint32 SoundCard::findEndpoint(const qel::Array<AudioDevice>& searchFrom,
                                    const GUID& deviceType, qel::Array<AudioDevice>& result,
                                    qel::Uint32 filter) const {
    QEL_TRACE_SCOPE("SoundCard::findEndpoint(const Array<AudioDevice>& searchFrom, const GUID& "
                    "deviceType, Array<AudioDevice>& result, Uint32 filter)");
    std::lock_guard lock(m_state->lists);
    QEL_LOG_AT(PRIORITY_DEBUG, 537, "searchFrom.size() = ", searchFrom.size(),
               " device filter = ", filter, " DeviceGUID ", guidToString(&deviceType));
    qel::Uint32 found = 0;
    for (const AudioDevice& device : searchFrom) {
        const AudioDevice::Properties& p = device.deviceProperty();
        if (p.nodeGuid == deviceType && (p.state & filter) != 0) {
            result.append(device);
            ++found;
            QEL_LOG_AT(PRIORITY_DEBUG, 544, "Appending device ", p.endpointType);
        }
    }
    QEL_LOG_AT(PRIORITY_DEBUG, 547, "Number of found device = ", found);
    return found;
}

qel::Uint32 SoundCard::findEndpoint(qel::Array<AudioDevice>& searchFrom, const GUID& deviceType,
                                    qel::Array<AudioDevicePtr>& result) {
    QEL_TRACE_SCOPE("SoundCard::findEndpoint(const Array<AudioDevice>& searchFrom, const GUID& "
                    "deviceType, Array<AudioDevicePtr>& result)");
    std::lock_guard lock(m_state->lists);
    qel::Uint32 found = 0;
    for (const AudioDevice& device : searchFrom) {
        if (!(device.deviceProperty().nodeGuid == deviceType)) {
            continue;
        }
        // The list's own elements move when it changes; the handle gets a copy that stays.
        AudioDevice* pinned = nullptr;
        for (const auto& kept : m_state->pinned) {
            if (sameText(kept->deviceProperty().deviceId, device.deviceProperty().deviceId)) {
                pinned = kept.get();
                break;
            }
        }
        if (!pinned) {
            m_state->pinned.append(qel::SharedResource<qel::PointerStorage<AudioDevice, 0, 3>, 1>(
                new AudioDevice(device)));
            pinned = m_state->pinned[m_state->pinned.size() - 1].get();
        }
        result.append(AudioDevicePtr(pinned));
        ++found;
    }
    return found;
}

qel::Uint32 SoundCard::microphoneEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::microphoneEndpointDevice");
    // Only the plain microphone; the filtered form takes every microphone kind.
    return findEndpoint(*m_recordDevices, KSNODETYPE_MICROPHONE, result, ANY_STATE);
}

qel::Uint32 SoundCard::microphoneEndpointDevice(qel::Array<AudioDevice>& result,
                                                qel::Uint32 filter) const {
    qel::Uint32 found = 0;
    for (const GUID* type :
         {&KSNODETYPE_OMNI_DIRECTIONAL_MICROPHONE, &KSNODETYPE_PERSONAL_MICROPHONE,
          &KSNODETYPE_DESKTOP_MICROPHONE, &KSNODETYPE_MICROPHONE_ARRAY, &KSNODETYPE_MICROPHONE}) {
        found += findEndpoint(*m_recordDevices, *type, result, filter);
    }
    return found;
}

qel::Uint32 SoundCard::lineInEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::lineInEndpointDevice");
    return findEndpoint(*m_recordDevices, KSNODETYPE_LINE_CONNECTOR, result, ANY_STATE);
}

qel::Uint32 SoundCard::lineInEndpointDevice(qel::Array<AudioDevice>& result,
                                            qel::Uint32 filter) const {
    return findEndpoint(*m_recordDevices, KSNODETYPE_LINE_CONNECTOR, result, filter);
}

qel::Uint32 SoundCard::spdifInEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::spdifInEndpointDevice");
    return findEndpoint(*m_recordDevices, KSNODETYPE_SPDIF_INTERFACE, result, ANY_STATE);
}

qel::Uint32 SoundCard::spdifInEndpointDevice(qel::Array<AudioDevice>& result,
                                             qel::Uint32 filter) const {
    return findEndpoint(*m_recordDevices, KSNODETYPE_SPDIF_INTERFACE, result, filter);
}

qel::Uint32 SoundCard::spdifOutEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::spdifOutEndpointDevice");
    return findEndpoint(*m_playbackDevices, KSNODETYPE_SPDIF_INTERFACE, result, ANY_STATE);
}

qel::Uint32 SoundCard::spdifOutEndpointDevice(qel::Array<AudioDevice>& result,
                                              qel::Uint32 filter) const {
    return findEndpoint(*m_playbackDevices, KSNODETYPE_SPDIF_INTERFACE, result, filter);
}

qel::Uint32 SoundCard::hdmiOutEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::hdmiOutEndpointDevice");
    return findEndpoint(*m_playbackDevices, KSNODETYPE_HDMI_INTERFACE, result, ANY_STATE);
}

qel::Uint32 SoundCard::hdmiOutEndpointDevice(qel::Array<AudioDevice>& result,
                                             qel::Uint32 filter) const {
    return findEndpoint(*m_playbackDevices, KSNODETYPE_HDMI_INTERFACE, result, filter);
}

qel::Uint32 SoundCard::displayportOutEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::displayportOutEndpointDevice");
    return findEndpoint(*m_playbackDevices, KSNODETYPE_DISPLAYPORT_INTERFACE, result, ANY_STATE);
}

qel::Uint32 SoundCard::displayportOutEndpointDevice(qel::Array<AudioDevice>& result,
                                                    qel::Uint32 filter) const {
    return findEndpoint(*m_playbackDevices, KSNODETYPE_DISPLAYPORT_INTERFACE, result, filter);
}

qel::Uint32 SoundCard::waveOutEndpointDevice(qel::Array<AudioDevice>& result) const {
    QEL_TRACE_SCOPE("SoundCard::waveOutEndpointDevice");
    return waveOutEndpointDevice(result, ANY_STATE);
}

qel::Uint32 SoundCard::waveOutEndpointDevice(qel::Array<AudioDevice>& result,
                                             qel::Uint32 filter) const {
    return findEndpoint(*m_playbackDevices, KSNODETYPE_HEADPHONES, result, filter) +
           findEndpoint(*m_playbackDevices, KSNODETYPE_SPEAKER, result, filter);
}

qel::Uint32 SoundCard::speakerEndpointDevice(qel::Array<AudioDevice>& result,
                                             qel::Uint32 filter) const {
    return findEndpoint(*m_playbackDevices, KSNODETYPE_SPEAKER, result, filter);
}

qel::Uint32 SoundCard::allPlaybackDevice(qel::Array<AudioDevice>& result) const {
    return findEndpoint(*m_playbackDevices, result, ANY_STATE);
}

qel::Uint32 SoundCard::allPlaybackDevice(qel::Array<AudioDevice>& result,
                                         qel::Uint32 filter) const {
    QEL_TRACE_SCOPE("SoundCard::allActiveEndpointDevice");
    return findEndpoint(*m_playbackDevices, result, filter);
}

qel::Uint32 SoundCard::allRecordDevice(qel::Array<AudioDevice>& result) const {
    return allRecordDevice(result, ANY_STATE);
}

qel::Uint32 SoundCard::allRecordDevice(qel::Array<AudioDevice>& result, qel::Uint32 filter) const {
    QEL_TRACE_SCOPE("SoundCard::allRecordDevice");
    return findEndpoint(*m_recordDevices, result, filter);
}

qel::Uint32 SoundCard::loopbackMixEndpointDevice(qel::Array<AudioDevice>&) const {
    QEL_TRACE_SCOPE("SoundCard::loopbackMixEndpointDevice");
    return 0;
}

qel::Uint32 SoundCard::microphoneEndpointDevice(qel::Array<AudioDevicePtr>& result) {
    return findEndpoint(*m_recordDevices, KSNODETYPE_MICROPHONE, result);
}

qel::Uint32 SoundCard::speakerEndpointDevice(qel::Array<AudioDevicePtr>& result) {
    return findEndpoint(*m_playbackDevices, KSNODETYPE_SPEAKER, result);
}

qel::Uint32 SoundCard::waveOutEndpointDevice(qel::Array<AudioDevicePtr>& result) {
    QEL_TRACE_SCOPE("SoundCard::waveOutEndpointDevice");
    return findEndpoint(*m_playbackDevices, KSNODETYPE_HEADPHONES, result) +
           findEndpoint(*m_playbackDevices, KSNODETYPE_SPEAKER, result);
}

qel::Uint32 SoundCard::lineInEndpointDevice(qel::Array<AudioDevicePtr>& result) {
    QEL_TRACE_SCOPE("SoundCard::lineInEndpointDevice");
    return findEndpoint(*m_recordDevices, KSNODETYPE_LINE_CONNECTOR, result);
}

qel::Uint32 SoundCard::spdifInEndpointDevice(qel::Array<AudioDevicePtr>& result) {
    QEL_TRACE_SCOPE("SoundCard::spdifInEndpointDevice");
    return findEndpoint(*m_recordDevices, KSNODETYPE_SPDIF_INTERFACE, result);
}

qel::Uint32 SoundCard::spdifOutEndpointDevice(qel::Array<AudioDevicePtr>& result) {
    QEL_TRACE_SCOPE("SoundCard::spdifOutEndpointDevice");
    return findEndpoint(*m_playbackDevices, KSNODETYPE_SPDIF_INTERFACE, result);
}
