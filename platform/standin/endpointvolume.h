// Endpoint volume and its change notification.
#pragma once

#include "platform/standin/unknwn.h"

struct AUDIO_VOLUME_NOTIFICATION_DATA {
    GUID guidEventContext;
    BOOL bMuted;
    float fMasterVolume;
    UINT nChannels;
    float afChannelVolumes[1];
};
typedef AUDIO_VOLUME_NOTIFICATION_DATA* PAUDIO_VOLUME_NOTIFICATION_DATA;

#define ENDPOINT_HARDWARE_SUPPORT_VOLUME 0x00000001
#define ENDPOINT_HARDWARE_SUPPORT_MUTE 0x00000002
#define ENDPOINT_HARDWARE_SUPPORT_METER 0x00000004

inline constexpr IID IID_IAudioEndpointVolumeCallback = {
    0x657804fa, 0xd6ad, 0x4496, {0x8a, 0x60, 0x35, 0x27, 0x52, 0xaf, 0x4f, 0x89}};
inline constexpr IID IID_IAudioEndpointVolume = {
    0x5cdf2c82, 0x841e, 0x4546, {0x97, 0x22, 0x0c, 0xf7, 0x40, 0x78, 0x22, 0x9a}};

struct IAudioEndpointVolumeCallback : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA pNotify) = 0;
};
STANDIN_INTERFACE_ID(IAudioEndpointVolumeCallback);

struct IAudioEndpointVolume : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE
    RegisterControlChangeNotify(IAudioEndpointVolumeCallback* pNotify) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* pNotify) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* pnChannelCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevel(float fLevelDB,
                                                           LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMasterVolumeLevelScalar(float fLevel,
                                                                 LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevel(float* pfLevelDB) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMasterVolumeLevelScalar(float* pfLevel) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevel(UINT nChannel, float fLevelDB,
                                                            LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetChannelVolumeLevelScalar(UINT nChannel, float fLevel,
                                                                  LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevel(UINT nChannel, float* pfLevelDB) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetChannelVolumeLevelScalar(UINT nChannel,
                                                                  float* pfLevel) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVolumeStepInfo(UINT* pnStep, UINT* pnStepCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE VolumeStepUp(LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE VolumeStepDown(LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE QueryHardwareSupport(DWORD* pdwHardwareSupportMask) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetVolumeRange(float* pflVolumeMindB, float* pflVolumeMaxdB,
                                                     float* pflVolumeIncrementdB) = 0;
};
STANDIN_INTERFACE_ID(IAudioEndpointVolume);
