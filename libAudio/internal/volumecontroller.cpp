// The endpoint kind of volume controller, over IAudioEndpointVolume.
#include "libAudio/VolumeController.h"
#include "foundation/qelLog.h"
#include "libAudio/internal/numeric.h"

using libAudio::truncateToUint32;

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.volumecontroller")

// Round half up in single precision, as the percent readings are defined.
unsigned int percentOf(float scalar) {
    return truncateToUint32(scalar * 100.0f + 0.5f);
}
float scalarOf(unsigned int percent) {
    return float(percent) / 100.0f;
}
} // namespace

VolumeControllerInterface::~VolumeControllerInterface() = default;

VolumeController<EndpointVolumeController>::VolumeController(const EndpointVolumeController& policy)
    : m_endpointVolume(policy.endpointVolume), m_ownerType(policy.ownerType),
      m_ownerName(policy.ownerName) {}

VolumeController<EndpointVolumeController>::VolumeController(const VolumeController& other)
    : VolumeControllerInterface(other), m_endpointVolume(other.m_endpointVolume),
      m_ownerType(other.m_ownerType), m_ownerName(other.m_ownerName),
      m_notification(other.m_notification) {}

VolumeController<EndpointVolumeController>&
VolumeController<EndpointVolumeController>::operator=(const VolumeController& other) {
    m_endpointVolume = other.m_endpointVolume;
    m_ownerType = other.m_ownerType;
    m_ownerName = other.m_ownerName;
    m_notification = other.m_notification;
    return *this;
}

VolumeController<EndpointVolumeController>::~VolumeController() {
    if (m_notification && m_endpointVolume) {
        m_endpointVolume->UnregisterControlChangeNotify(m_notification);
    }
}

unsigned int VolumeController<EndpointVolumeController>::numChannel() const {
    UINT n = 0;
    if (m_endpointVolume) {
        m_endpointVolume->GetChannelCount(&n);
    }
    return n;
}

float VolumeController<EndpointVolumeController>::volumeLevelDecibel(unsigned int channel) const {
    QEL_TRACE_SCOPE("VolumeController::volumeLevelDecibel");
    float db = 0.0f;
    if (m_endpointVolume) {
        m_endpointVolume->GetChannelVolumeLevel(channel, &db);
    }
    return db;
}

bool VolumeController<EndpointVolumeController>::volumeRangeDecibel(unsigned int,
                                                                    DbVolumeRange& range) const {
    QEL_TRACE_SCOPE("VolumeController::setVolumeLevelDecibel");
    return m_endpointVolume &&
           SUCCEEDED(m_endpointVolume->GetVolumeRange(&range.minDb, &range.maxDb, &range.stepDb));
}

bool VolumeController<EndpointVolumeController>::isMuted() const {
    QEL_TRACE_SCOPE("VolumeController::isMuted");
    BOOL muted = TRUE;
    if (m_endpointVolume) {
        m_endpointVolume->GetMute(&muted);
    }
    return muted == 1;
}

float VolumeController<EndpointVolumeController>::masterVolumeLevelDecibel() const {
    QEL_TRACE_SCOPE("VolumeController::masterVolumeLevelDecibel");
    float db = 0.0f;
    if (m_endpointVolume) {
        m_endpointVolume->GetMasterVolumeLevel(&db);
    }
    return db;
}

unsigned int VolumeController<EndpointVolumeController>::masterVolumeLevelPercent() const {
    QEL_TRACE_SCOPE("VolumeController::masterVolumeLevelPercent");
    float scalar = 0.0f;
    if (!m_endpointVolume) {
        return 0;
    }
    m_endpointVolume->GetMasterVolumeLevelScalar(&scalar);
    return percentOf(scalar);
}

unsigned int
VolumeController<EndpointVolumeController>::volumeLevelPercent(unsigned int channel) const {
    QEL_TRACE_SCOPE("VolumeController::volumeLevelPercent");
    float scalar = 0.0f;
    if (!m_endpointVolume) {
        return 0;
    }
    m_endpointVolume->GetChannelVolumeLevelScalar(channel, &scalar);
    return percentOf(scalar);
}

bool VolumeController<EndpointVolumeController>::setMasterVolumeLevelDecibel(float decibel) {
    QEL_TRACE_SCOPE("VolumeController::setMasterVolumeLevelDecibel");
    return m_endpointVolume && SUCCEEDED(m_endpointVolume->SetMasterVolumeLevel(decibel, nullptr));
}

bool VolumeController<EndpointVolumeController>::setMasterVolumeLevelPercent(unsigned int percent) {
    QEL_TRACE_SCOPE("VolumeController::setMasterVolumeLevelPercent");
    return m_endpointVolume &&
           SUCCEEDED(m_endpointVolume->SetMasterVolumeLevelScalar(scalarOf(percent), nullptr));
}

bool VolumeController<EndpointVolumeController>::setVolumeLevelDecibel(unsigned int channel,
                                                                       float decibel) {
    QEL_TRACE_SCOPE("VolumeController::setVolumeLevelDecibel");
    return m_endpointVolume &&
           SUCCEEDED(m_endpointVolume->SetChannelVolumeLevel(channel, decibel, nullptr));
}

bool VolumeController<EndpointVolumeController>::setVolumeLevelPercent(unsigned int channel,
                                                                       unsigned int percent) {
    QEL_TRACE_SCOPE("VolumeController::setVolumeLevelPercent");
    return m_endpointVolume && SUCCEEDED(m_endpointVolume->SetChannelVolumeLevelScalar(
                                   channel, scalarOf(percent), nullptr));
}

bool VolumeController<EndpointVolumeController>::setMute(bool mute) {
    QEL_TRACE_SCOPE("VolumeController::setMute");
    return m_endpointVolume && SUCCEEDED(m_endpointVolume->SetMute(mute ? TRUE : FALSE, nullptr));
}

bool VolumeController<EndpointVolumeController>::registerVolumeChangeNotification(
    const CComPtr<VolumeChangeNotification>& notification) {
    if (!m_endpointVolume) {
        QEL_ERROR("Volume controller has not been initialized yet");
        return false;
    }
    if (m_notification) {
        m_endpointVolume->UnregisterControlChangeNotify(m_notification);
    }
    m_notification = notification;
    HRESULT r = m_endpointVolume->RegisterControlChangeNotify(m_notification);
    if (r < 0) {
        QEL_ERROR("Unable to register control change notification ", long(r));
    }
    return r >= 0;
}
