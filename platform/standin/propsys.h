// Property keys, property variants and the property store.
#pragma once

#include "platform/standin/unknwn.h"

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
typedef const PROPERTYKEY& REFPROPERTYKEY;

inline bool operator==(const PROPERTYKEY& a, const PROPERTYKEY& b) {
    return a.fmtid == b.fmtid && a.pid == b.pid;
}

typedef unsigned short VARTYPE;
enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I4 = 3,
    VT_BOOL = 11,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_UINT = 23,
    VT_LPSTR = 30,
    VT_LPWSTR = 31,
    VT_BLOB = 65,
    VT_CLSID = 72,
};

struct BLOB {
    ULONG cbSize;
    BYTE* pBlobData;
};

struct PROPVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        CHAR cVal;
        UCHAR bVal;
        SHORT iVal;
        USHORT uiVal;
        LONG lVal;
        ULONG ulVal;
        INT intVal;
        UINT uintVal;
        LONGLONG hVal;
        ULONGLONG uhVal;
        FLOAT fltVal;
        double dblVal;
        short boolVal;
        GUID* puuid;
        LPSTR pszVal;
        LPWSTR pwszVal;
        BLOB blob;
    };
};
typedef const PROPVARIANT& REFPROPVARIANT;

#define STGM_READ 0x00000000L
#define STGM_WRITE 0x00000001L
#define STGM_READWRITE 0x00000002L

inline void PropVariantInit(PROPVARIANT* pv) {
    std::memset(pv, 0, sizeof(PROPVARIANT));
}

extern "C" {
// Frees what the variant owns (strings, blobs) with the task allocator and empties it.
LIBAUDIO_PLATFORM_API HRESULT PropVariantClear(PROPVARIANT* pv);
}

inline constexpr IID IID_IPropertyStore = {
    0x886d8eeb, 0x8cf2, 0x4446, {0x8d, 0x02, 0xcd, 0xba, 0x1d, 0xbd, 0xcf, 0x99}};

struct IPropertyStore : IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCount(DWORD* cProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetAt(DWORD iProp, PROPERTYKEY* pkey) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetValue(REFPROPERTYKEY key, PROPVARIANT* pv) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetValue(REFPROPERTYKEY key, REFPROPVARIANT propvar) = 0;
    virtual HRESULT STDMETHODCALLTYPE Commit() = 0;
};
STANDIN_INTERFACE_ID(IPropertyStore);

#define STANDIN_PROPERTYKEY(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8, id)                   \
    inline constexpr PROPERTYKEY name = {{l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}, id}

STANDIN_PROPERTYKEY(PKEY_Device_DeviceDesc, 0xa45c254e, 0xdf1c, 0x4efd, 0x80, 0x20, 0x67, 0xd1,
                    0x46, 0xa8, 0x50, 0xe0, 2);
STANDIN_PROPERTYKEY(PKEY_Device_FriendlyName, 0xa45c254e, 0xdf1c, 0x4efd, 0x80, 0x20, 0x67, 0xd1,
                    0x46, 0xa8, 0x50, 0xe0, 14);
STANDIN_PROPERTYKEY(PKEY_Device_EnumeratorName, 0xa45c254e, 0xdf1c, 0x4efd, 0x80, 0x20, 0x67, 0xd1,
                    0x46, 0xa8, 0x50, 0xe0, 24);
STANDIN_PROPERTYKEY(PKEY_DeviceInterface_FriendlyName, 0x026e516e, 0xb814, 0x414b, 0x83, 0xcd, 0x85,
                    0x6d, 0x6f, 0xef, 0x48, 0x22, 2);
