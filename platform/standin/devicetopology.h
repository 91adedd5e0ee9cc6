// The device topology interfaces: devices made of connectors and subunits (parts), the
// controls a part can activate, and jack descriptions.
#pragma once

#include "platform/standin/unknwn.h"

enum EPcxConnectionType {
    eConnTypeUnknown = 0,
    eConnType3Point5mm = 1,
    eConnTypeQuarter = 2,
    eConnTypeAtapiInternal = 3,
    eConnTypeRCA = 4,
    eConnTypeOptical = 5,
    eConnTypeOtherDigital = 6,
    eConnTypeOtherAnalog = 7,
    eConnTypeMultichannelAnalogDIN = 8,
    eConnTypeXlrProfessional = 9,
    eConnTypeRJ11Modem = 10,
    eConnTypeCombination = 11
};
enum EPcxGeoLocation {
    eGeoLocRear = 1,
    eGeoLocFront = 2,
    eGeoLocLeft = 3,
    eGeoLocRight = 4,
    eGeoLocTop = 5,
    eGeoLocBottom = 6,
    eGeoLocRearPanel = 7,
    eGeoLocRiser = 8,
    eGeoLocInsideMobileLid = 9,
    eGeoLocDrivebay = 10,
    eGeoLocHDMI = 11,
    eGeoLocOutsideMobileLid = 12,
    eGeoLocATAPI = 13,
    eGeoLocReserved5 = 14,
    eGeoLocReserved6 = 15
};
enum EPcxGenLocation {
    eGenLocPrimaryBox = 0,
    eGenLocInternal = 1,
    eGenLocSeparate = 2,
    eGenLocOther = 3
};
enum EPxcPortConnection {
    ePortConnJack = 0,
    ePortConnIntegratedDevice = 1,
    ePortConnBothIntegratedAndJack = 2,
    ePortConnUnknown = 3
};

struct KSJACK_DESCRIPTION {
    DWORD ChannelMapping;
    COLORREF Color;
    EPcxConnectionType ConnectionType;
    EPcxGeoLocation GeoLocation;
    EPcxGenLocation GenLocation;
    EPxcPortConnection PortConnection;
    BOOL IsConnected;
};
typedef KSJACK_DESCRIPTION* PKSJACK_DESCRIPTION;

enum DataFlow { In = 0, Out = 1 };
enum PartType { Connector = 0, Subunit = 1 };
enum ConnectorType {
    Unknown_Connector = 0,
    Physical_Internal = 1,
    Physical_External = 2,
    Software_IO = 3,
    Software_Fixed = 4,
    Network = 5
};

#define STANDIN_IID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8)                               \
    inline constexpr IID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}

STANDIN_IID(IID_IPerChannelDbLevel, 0xc2f8e001, 0xf205, 0x4bc9, 0x99, 0xbc, 0xc1, 0x3b, 0x1e, 0x04,
            0x8c, 0xcb);
STANDIN_IID(IID_IAudioVolumeLevel, 0x7fb7b48f, 0x531d, 0x44a2, 0xbc, 0xb3, 0x5a, 0xd5, 0xa1, 0x34,
            0xb3, 0xdc);
STANDIN_IID(IID_IAudioInputSelector, 0x4f03dc02, 0x5e6e, 0x4653, 0x8f, 0x72, 0xa0, 0x30, 0xc1, 0x23,
            0xd5, 0x98);
STANDIN_IID(IID_IAudioMute, 0xdf45aeea, 0xb74a, 0x4b6b, 0xaf, 0xad, 0x23, 0x66, 0xb6, 0xaa, 0x01,
            0x2e);
STANDIN_IID(IID_IKsJackDescription, 0x4509f757, 0x2d46, 0x4637, 0x8e, 0x62, 0xce, 0x7d, 0xb9, 0x44,
            0xf5, 0x7b);
STANDIN_IID(IID_IPartsList, 0x6daa848c, 0x5eb0, 0x45cc, 0xae, 0xa5, 0x99, 0x8a, 0x2c, 0xda, 0x1f,
            0xfb);
STANDIN_IID(IID_IPart, 0xae2de0e4, 0x5bca, 0x4f2d, 0xaa, 0x46, 0x5d, 0x13, 0xf8, 0xfd, 0xb3, 0xa9);
STANDIN_IID(IID_IConnector, 0x9c2c4058, 0x23f5, 0x41de, 0x87, 0x7a, 0xdf, 0x3a, 0xf2, 0x36, 0xa0,
            0x9e);
STANDIN_IID(IID_ISubunit, 0x82149a85, 0xdba6, 0x4487, 0x86, 0xbb, 0xea, 0x8f, 0x7f, 0xef, 0xcc,
            0x71);
STANDIN_IID(IID_IControlInterface, 0x45d37c3f, 0x5140, 0x444a, 0xae, 0x24, 0x40, 0x07, 0x89, 0xf3,
            0xcb, 0xf3);
STANDIN_IID(IID_IControlChangeNotify, 0xa09513ed, 0xc709, 0x4d21, 0xbd, 0x7b, 0x5f, 0x34, 0xc4,
            0x7f, 0x39, 0x47);
STANDIN_IID(IID_IDeviceTopology, 0x2a07407e, 0x6497, 0x4a18, 0x97, 0x87, 0x32, 0xf7, 0x9b, 0xd0,
            0xd9, 0x8f);

struct IPart;
struct IDeviceTopology;

struct IPerChannelDbLevel : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetChannelCount(UINT* pcChannels) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetLevelRange(UINT nChannel, float* pfMinLevelDB,
                                                    float* pfMaxLevelDB, float* pfStepping) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetLevel(UINT nChannel, float* pfLevelDB) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLevel(UINT nChannel, float fLevelDB,
                                               LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLevelUniform(float fLevelDB,
                                                      LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLevelAllChannels(float* aLevelsDB, ULONG cChannels,
                                                          LPCGUID pguidEventContext) = 0;
};
STANDIN_INTERFACE_ID(IPerChannelDbLevel);

struct IAudioVolumeLevel : IPerChannelDbLevel {};
STANDIN_INTERFACE_ID(IAudioVolumeLevel);

struct IAudioMute : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetMute(BOOL bMute, LPCGUID pguidEventContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMute(BOOL* pbMute) = 0;
};
STANDIN_INTERFACE_ID(IAudioMute);

struct IAudioInputSelector : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetSelection(UINT* pnIdSelected) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetSelection(UINT nIdSelect, LPCGUID pguidEventContext) = 0;
};
STANDIN_INTERFACE_ID(IAudioInputSelector);

struct IKsJackDescription : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetJackCount(UINT* pcJacks) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetJackDescription(UINT nJack,
                                                         KSJACK_DESCRIPTION* pDescription) = 0;
};
STANDIN_INTERFACE_ID(IKsJackDescription);

struct IPartsList : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(UINT* pCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPart(UINT nIndex, IPart** ppPart) = 0;
};
STANDIN_INTERFACE_ID(IPartsList);

struct IControlInterface : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetName(LPWSTR* ppwstrName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetIID(GUID* pIID) = 0;
};
STANDIN_INTERFACE_ID(IControlInterface);

struct IControlChangeNotify : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnNotify(DWORD dwSenderProcessId,
                                               LPCGUID pguidEventContext) = 0;
};
STANDIN_INTERFACE_ID(IControlChangeNotify);

struct IPart : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetName(LPWSTR* ppwstrName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetLocalId(UINT* pnId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetGlobalId(LPWSTR* ppwstrGlobalId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPartType(PartType* pPartType) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSubType(GUID* pSubType) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetControlInterfaceCount(UINT* pCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetControlInterface(UINT nIndex,
                                                          IControlInterface** ppInterfaceDesc) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumPartsIncoming(IPartsList** ppParts) = 0;
    virtual HRESULT STDMETHODCALLTYPE EnumPartsOutgoing(IPartsList** ppParts) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetTopologyObject(IDeviceTopology** ppTopology) = 0;
    virtual HRESULT STDMETHODCALLTYPE Activate(DWORD dwClsContext, REFIID refiid,
                                               void** ppvObject) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    RegisterControlChangeCallback(REFGUID riid, IControlChangeNotify* pNotify) = 0;
    virtual HRESULT STDMETHODCALLTYPE
    UnregisterControlChangeCallback(IControlChangeNotify* pNotify) = 0;
};
STANDIN_INTERFACE_ID(IPart);

struct IConnector : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetType(ConnectorType* pType) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDataFlow(DataFlow* pFlow) = 0;
    virtual HRESULT STDMETHODCALLTYPE ConnectTo(IConnector* pConnectTo) = 0;
    virtual HRESULT STDMETHODCALLTYPE Disconnect() = 0;
    virtual HRESULT STDMETHODCALLTYPE IsConnected(BOOL* pbConnected) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetConnectedTo(IConnector** ppConTo) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetConnectorIdConnectedTo(LPWSTR* ppwstrConnectorId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDeviceIdConnectedTo(LPWSTR* ppwstrDeviceId) = 0;
};
STANDIN_INTERFACE_ID(IConnector);

struct ISubunit : IUnknown {};
STANDIN_INTERFACE_ID(ISubunit);

struct IDeviceTopology : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetConnectorCount(UINT* pCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetConnector(UINT nIndex, IConnector** ppConnector) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSubunitCount(UINT* pCount) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSubunit(UINT nIndex, ISubunit** ppSubunit) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetPartById(UINT nId, IPart** ppPart) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetDeviceId(LPWSTR* ppwstrDeviceId) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetSignalPath(IPart* pIPartFrom, IPart* pIPartTo,
                                                    BOOL bRejectMixedPaths,
                                                    IPartsList** ppParts) = 0;
};
STANDIN_INTERFACE_ID(IDeviceTopology);

// Result codes of the topology API.
#define E_NOT_CONNECTED HRESULT_FROM_WIN32(2250L) // ERROR_NOT_CONNECTED
