// Volume controllers: read and set the level (dB and whole percent) and mute of one control
// point, either an endpoint's own volume or a volume part inside a device topology.
#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"
#include "libAudio/VolumeChangeNotification.h"
#include "platform/CComPtr.h"

class LIBAUDIO_API VolumeControllerInterface {
public:
    struct DbVolumeRange {
        float minDb;
        float maxDb;
        float stepDb;
    };

    VolumeControllerInterface() = default;
    VolumeControllerInterface(const VolumeControllerInterface&) = default;
    VolumeControllerInterface& operator=(const VolumeControllerInterface&) = default;
    virtual ~VolumeControllerInterface();

    virtual unsigned int numChannel() const = 0;
    virtual unsigned int volumeLevelPercent(unsigned int channel) const = 0;
    virtual float volumeLevelDecibel(unsigned int channel) const = 0;
    virtual bool volumeRangeDecibel(unsigned int channel, DbVolumeRange& range) const = 0;
    virtual unsigned int masterVolumeLevelPercent() const = 0;
    virtual float masterVolumeLevelDecibel() const = 0;
    virtual bool setVolumeLevelPercent(unsigned int channel, unsigned int percent) = 0;
    virtual bool setVolumeLevelDecibel(unsigned int channel, float decibel) = 0;
    virtual bool setMasterVolumeLevelPercent(unsigned int percent) = 0;
    virtual bool setMasterVolumeLevelDecibel(float decibel) = 0;
    virtual bool
    registerVolumeChangeNotification(const CComPtr<VolumeChangeNotification>& notification) = 0;
    virtual const qel::String& ownerName() const = 0;
    virtual const GUID& ownerType() const = 0;
    virtual bool isMuted() const = 0;
    virtual bool setMute(bool mute) = 0;
    virtual bool hasVolumeControl() const = 0;
    virtual bool hasMuteControl() const = 0;
};

// The endpoint's own volume control.
struct EndpointVolumeController {
    CComPtr<IAudioEndpointVolume> endpointVolume;
    GUID ownerType{};
    qel::String ownerName;
};

// A volume part of a device topology: level and mute are separate interfaces.
struct RegularVolumeController {
    CComPtr<IAudioVolumeLevel> volumeLevel;
    CComPtr<IAudioMute> mute;
    GUID ownerType{};
    qel::String ownerName;
};

template <class Policy> class VolumeController;

template <>
class LIBAUDIO_API VolumeController<EndpointVolumeController> : public VolumeControllerInterface {
public:
    explicit VolumeController(const EndpointVolumeController& policy);
    VolumeController(const VolumeController& other);
    VolumeController& operator=(const VolumeController& other);
    ~VolumeController() override;

    unsigned int numChannel() const override;
    unsigned int volumeLevelPercent(unsigned int channel) const override;
    float volumeLevelDecibel(unsigned int channel) const override;
    bool volumeRangeDecibel(unsigned int channel, DbVolumeRange& range) const override;
    unsigned int masterVolumeLevelPercent() const override;
    float masterVolumeLevelDecibel() const override;
    bool setVolumeLevelPercent(unsigned int channel, unsigned int percent) override;
    bool setVolumeLevelDecibel(unsigned int channel, float decibel) override;
    bool setMasterVolumeLevelPercent(unsigned int percent) override;
    bool setMasterVolumeLevelDecibel(float decibel) override;
    bool registerVolumeChangeNotification(
        const CComPtr<VolumeChangeNotification>& notification) override;
    const qel::String& ownerName() const override { return m_ownerName; }
    const GUID& ownerType() const override { return m_ownerType; }
    bool isMuted() const override;
    bool setMute(bool mute) override;
    bool hasVolumeControl() const override { return true; }
    bool hasMuteControl() const override { return true; }

private:
    CComPtr<IAudioEndpointVolume> m_endpointVolume;
    GUID m_ownerType;
    qel::String m_ownerName;
    CComPtr<VolumeChangeNotification> m_notification;
};

template <>
class LIBAUDIO_API VolumeController<RegularVolumeController> : public VolumeControllerInterface {
public:
    explicit VolumeController(const RegularVolumeController& policy);
    VolumeController(const VolumeController& other) = default;
    VolumeController& operator=(const VolumeController& other) = default;
    ~VolumeController() override;

    unsigned int numChannel() const override;
    unsigned int volumeLevelPercent(unsigned int channel) const override;
    float volumeLevelDecibel(unsigned int channel) const override;
    bool volumeRangeDecibel(unsigned int channel, DbVolumeRange& range) const override;
    unsigned int masterVolumeLevelPercent() const override;
    float masterVolumeLevelDecibel() const override;
    bool setVolumeLevelPercent(unsigned int channel, unsigned int percent) override;
    bool setVolumeLevelDecibel(unsigned int channel, float decibel) override;
    // Topology volume parts have no scalar master level and no change notification.
    bool setMasterVolumeLevelPercent(unsigned int) override { return false; }
    bool setMasterVolumeLevelDecibel(float decibel) override;
    bool registerVolumeChangeNotification(const CComPtr<VolumeChangeNotification>&) override {
        return false;
    }
    const qel::String& ownerName() const override { return m_ownerName; }
    const GUID& ownerType() const override { return m_ownerType; }
    bool isMuted() const override;
    bool setMute(bool mute) override;
    bool hasVolumeControl() const override { return m_volumeLevel != nullptr; }
    bool hasMuteControl() const override { return m_mute != nullptr; }

private:
    CComPtr<IAudioVolumeLevel> m_volumeLevel;
    CComPtr<IAudioMute> m_mute;
    GUID m_ownerType;
    qel::String m_ownerName;
    CComPtr<VolumeChangeNotification> m_notification;
};
