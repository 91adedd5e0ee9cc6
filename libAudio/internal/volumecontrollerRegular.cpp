// The regular kind of volume controller, over a topology volume part's IAudioVolumeLevel
// and a mute part's IAudioMute.
#include "libAudio/VolumeController.h"
#include "foundation/qelAssert.h"
#include "foundation/qelLog.h"
#include "libAudio/internal/numeric.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.volumecontroller")
}

using libAudio::truncateToUint32;

VolumeController<RegularVolumeController>::VolumeController(const RegularVolumeController& policy)
    : m_volumeLevel(policy.volumeLevel), m_mute(policy.mute), m_ownerType(policy.ownerType),
      m_ownerName(policy.ownerName) {}

VolumeController<RegularVolumeController>::~VolumeController() = default;

unsigned int VolumeController<RegularVolumeController>::numChannel() const {
    UINT n = 0;
    if (m_volumeLevel) {
        m_volumeLevel->GetChannelCount(&n);
    }
    return n;
}

float VolumeController<RegularVolumeController>::volumeLevelDecibel(unsigned int channel) const {
    QEL_TRACE_SCOPE("VolumeController::volumeLevelDecibel");
    float db = 0.0f;
    if (m_volumeLevel) {
        m_volumeLevel->GetLevel(channel, &db);
    }
    return db;
}

bool VolumeController<RegularVolumeController>::volumeRangeDecibel(unsigned int channel,
                                                                   DbVolumeRange& range) const {
    QEL_TRACE_SCOPE("VolumeController::setVolumeLevelDecibel");
    return m_volumeLevel && SUCCEEDED(m_volumeLevel->GetLevelRange(channel, &range.minDb,
                                                                   &range.maxDb, &range.stepDb));
}

bool VolumeController<RegularVolumeController>::isMuted() const {
    QEL_TRACE_SCOPE("VolumeController::isMuted");
    BOOL muted = TRUE;
    if (m_mute) {
        m_mute->GetMute(&muted);
    }
    return muted == 1;
}

bool VolumeController<RegularVolumeController>::setMute(bool mute) {
    QEL_TRACE_SCOPE("VolumeController::setMute");
    return m_mute && SUCCEEDED(m_mute->SetMute(mute ? TRUE : FALSE, nullptr));
}

float VolumeController<RegularVolumeController>::masterVolumeLevelDecibel() const {
    QEL_TRACE_SCOPE("VolumeController::masterVolumeLevelDecibel");
    float sum = 0.0f;
    for (unsigned int i = 0; i < numChannel(); ++i) {
        sum += volumeLevelDecibel(i);
    }
    return sum / float(numChannel());
}

// Reports the level shifted up by half the range: minimum reads 50, maximum 150.
unsigned int VolumeController<RegularVolumeController>::masterVolumeLevelPercent() const {
    QEL_TRACE_SCOPE("VolumeController::masterVolumeLevelPercent");
    QEL_ASSERT(numChannel() > 0);
    DbVolumeRange range{};
    volumeRangeDecibel(0, range);
    float db = masterVolumeLevelDecibel();
    return truncateToUint32(((db - range.minDb) / (range.maxDb - range.minDb) + 0.5f) * 100.0f);
}

unsigned int
VolumeController<RegularVolumeController>::volumeLevelPercent(unsigned int channel) const {
    QEL_TRACE_SCOPE("VolumeController::volumeLevelPercent");
    if (!m_volumeLevel) {
        return 0;
    }
    DbVolumeRange range{};
    volumeRangeDecibel(channel, range);
    float db = volumeLevelDecibel(channel);
    float q = (db - range.minDb) / (range.maxDb - range.minDb) * 100.0f;
    return truncateToUint32(double(q) + 0.5);
}

bool VolumeController<RegularVolumeController>::setVolumeLevelDecibel(unsigned int channel,
                                                                      float decibel) {
    QEL_TRACE_SCOPE("VolumeController::setVolumeLevelDecibel");
    return m_volumeLevel && SUCCEEDED(m_volumeLevel->SetLevel(channel, decibel, nullptr));
}

bool VolumeController<RegularVolumeController>::setMasterVolumeLevelDecibel(float decibel) {
    QEL_TRACE_SCOPE("VolumeController::setMasterVolumeLevelDecibel");
    return m_volumeLevel && SUCCEEDED(m_volumeLevel->SetLevelUniform(decibel, nullptr));
}

bool VolumeController<RegularVolumeController>::setVolumeLevelPercent(unsigned int channel,
                                                                      unsigned int percent) {
    QEL_TRACE_SCOPE("VolumeController::setVolumeLevelPercent");
    if (!m_volumeLevel) {
        return false;
    }
    DbVolumeRange range{};
    volumeRangeDecibel(channel, range);
    float db = (range.maxDb - range.minDb) * (float(percent) / 100.0f) + range.minDb;
    return SUCCEEDED(m_volumeLevel->SetLevel(channel, db, nullptr));
}
