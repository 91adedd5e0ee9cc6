// The multimedia device interfaces: enumerator, collection, device, endpoint, notifications.
#pragma once

#include "platform/standin/propsys.h"

enum EDataFlow { eRender = 0, eCapture = 1, eAll = 2, EDataFlow_enum_count = 3 };
enum ERole { eConsole = 0, eMultimedia = 1, eCommunications = 2, ERole_enum_count = 3 };

#define DEVICE_STATE_ACTIVE 0x00000001
#define DEVICE_STATE_DISABLED 0x00000002
#define DEVICE_STATE_NOTPRESENT 0x00000004
#define DEVICE_STATE_UNPLUGGED 0x00000008
#define DEVICE_STATEMASK_ALL 0x0000000f

enum EndpointFormFactor {
    RemoteNetworkDevice = 0,
    Speakers = 1,
    LineLevel = 2,
    Headphones = 3,
    Microphone = 4,
    Headset = 5,
    Handset = 6,
    UnknownDigitalPassthrough = 7,
    SPDIF = 8,
    DigitalAudioDisplayDevice = 9,
    UnknownFormFactor = 10,
    EndpointFormFactor_enum_count = 11
};

STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_FormFactor, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23, 0xe0,
                    0xc0, 0xff, 0xee, 0x7f, 0x0e, 0);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_ControlPanelPageProvider, 0x1da5d803, 0xd492, 0x4edd, 0x8c,
                    0x23, 0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e, 1);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_Association, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23, 0xe0,
                    0xc0, 0xff, 0xee, 0x7f, 0x0e, 2);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_PhysicalSpeakers, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23,
                    0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e, 3);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_GUID, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23, 0xe0, 0xc0,
                    0xff, 0xee, 0x7f, 0x0e, 4);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_Disable_SysFx, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23, 0xe0,
                    0xc0, 0xff, 0xee, 0x7f, 0x0e, 5);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_FullRangeSpeakers, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23,
                    0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e, 6);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_Supports_EventDriven_Mode, 0x1da5d803, 0xd492, 0x4edd, 0x8c,
                    0x23, 0xe0, 0xc0, 0xff, 0xee, 0x7f, 0x0e, 7);
STANDIN_PROPERTYKEY(PKEY_AudioEndpoint_JackSubType, 0x1da5d803, 0xd492, 0x4edd, 0x8c, 0x23, 0xe0,
                    0xc0, 0xff, 0xee, 0x7f, 0x0e, 8);
STANDIN_PROPERTYKEY(PKEY_AudioEngine_DeviceFormat, 0xf19f064d, 0x082c, 0x4e27, 0xbc, 0x73, 0x68,
                    0x82, 0xa1, 0xbb, 0x8e, 0x4c, 0);

inline constexpr CLSID CLSID_MMDeviceEnumerator = {
    0xbcde0395, 0xe52f, 0x467c, {0x8e, 0x3d, 0xc4, 0x57, 0x92, 0x91, 0x69, 0x2e}};
inline constexpr IID IID_IMMNotificationClient = {
    0x7991eec9, 0x7e89, 0x4d85, {0x83, 0x90, 0x6c, 0x70, 0x3c, 0xec, 0x60, 0xc0}};
inline constexpr IID IID_IMMDevice = {
    0xd666063f, 0x1587, 0x4e43, {0x81, 0xf1, 0xb9, 0x48, 0xe8, 0x07, 0x36, 0x3f}};
inline constexpr IID IID_IMMDeviceCollection = {
    0x0bd7a1be, 0x7a1a, 0x44db, {0x83, 0x97, 0xcc, 0x53, 0x92, 0x38, 0x7b, 0x5e}};
inline constexpr IID IID_IMMEndpoint = {
    0x1be09788, 0x6894, 0x4089, {0x85, 0x86, 0x9a, 0x2a, 0x6c, 0x26, 0x5a, 0xc5}};
inline constexpr IID IID_IMMDeviceEnumerator = {
    0xa95664d2, 0x9614, 0x4f35, {0xa7, 0x46, 0xde, 0x8d, 0xb6, 0x36, 0x17, 0xe6}};

struct IMMNotificationClient : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR pwstrDeviceId,
                                                           DWORD dwNewState) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR pwstrDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR pwstrDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                             LPCWSTR pwstrDefaultDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR pwstrDeviceId,
                                                             const PROPERTYKEY key) = 0;
};
STANDIN_INTERFACE_ID(IMMNotificationClient);

struct IMMDevice : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Activate(REFIID iid, DWORD dwClsCtx,
                                               PROPVARIANT* pActivationParams, void** ppv) = 0;
    virtual HRESULT STDMETHODCALLTYPE OpenPropertyStore(DWORD stgmAccess,
                                                        IPropertyStore** ppProperties) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetId(LPWSTR* ppstrId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(DWORD* pdwState) = 0;
};
STANDIN_INTERFACE_ID(IMMDevice);

struct IMMDeviceCollection : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(UINT* pcDevices) = 0;
    virtual HRESULT STDMETHODCALLTYPE Item(UINT nDevice, IMMDevice** ppDevice) = 0;
};
STANDIN_INTERFACE_ID(IMMDeviceCollection);

struct IMMEndpoint : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetDataFlow(EDataFlow* pDataFlow) = 0;
};
STANDIN_INTERFACE_ID(IMMEndpoint);

struct IMMDeviceEnumerator : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE EnumAudioEndpoints(EDataFlow dataFlow, DWORD dwStateMask,
                                                         IMMDeviceCollection** ppDevices) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDefaultAudioEndpoint(EDataFlow dataFlow, ERole role,
                                                              IMMDevice** ppEndpoint) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDevice(LPCWSTR pwstrId, IMMDevice** ppDevice) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    RegisterEndpointNotificationCallback(IMMNotificationClient* pClient) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterEndpointNotificationCallback(IMMNotificationClient* pClient) = 0;
};
STANDIN_INTERFACE_ID(IMMDeviceEnumerator);
