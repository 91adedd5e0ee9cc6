// Base types and result codes of the Windows API, with their Windows sizes.
#pragma once

#include "platform/standin/api.h"

#include <cstdint>
#include <cstring>

typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::uint32_t ULONG;
typedef std::int32_t INT;
typedef std::uint32_t UINT;
typedef std::int32_t BOOL;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef std::int64_t REFERENCE_TIME;
typedef char CHAR;
typedef char* LPSTR;
typedef char* HPSTR;
typedef const char* LPCSTR;
typedef char16_t WCHAR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef void* LPVOID;
typedef const void* LPCVOID;
typedef void* HANDLE;
typedef std::int32_t HRESULT;
typedef DWORD FOURCC;
typedef UINT MMRESULT;
typedef std::uintptr_t ULONG_PTR;
typedef std::uintptr_t DWORD_PTR;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

#define S_OK ((HRESULT)0)
#define S_FALSE ((HRESULT)1)
#define E_NOTIMPL ((HRESULT)0x80004001L)
#define E_NOINTERFACE ((HRESULT)0x80004002L)
#define E_POINTER ((HRESULT)0x80004003L)
#define E_ABORT ((HRESULT)0x80004004L)
#define E_FAIL ((HRESULT)0x80004005L)
#define E_UNEXPECTED ((HRESULT)0x8000FFFFL)
#define E_ACCESSDENIED ((HRESULT)0x80070005L)
#define E_HANDLE ((HRESULT)0x80070006L)
#define E_OUTOFMEMORY ((HRESULT)0x8007000EL)
#define E_INVALIDARG ((HRESULT)0x80070057L)
#define RPC_E_CHANGED_MODE ((HRESULT)0x80010106L)
#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

struct GUID {
    DWORD Data1;
    WORD Data2;
    WORD Data3;
    BYTE Data4[8];
};
typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;
typedef const CLSID& REFCLSID;

inline bool operator==(const GUID& a, const GUID& b) {
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
inline bool operator!=(const GUID& a, const GUID& b) {
    return !(a == b);
}
inline bool IsEqualGUID(const GUID& a, const GUID& b) {
    return a == b;
}
typedef const GUID* LPCGUID;
typedef GUID* LPCLSID;
typedef std::int16_t SHORT;
typedef std::uint16_t USHORT;
typedef unsigned char UCHAR;
typedef float FLOAT;
typedef BOOL WINBOOL;
typedef DWORD COLORREF;
typedef const WCHAR* LPCOLESTR;
typedef WCHAR* LPOLESTR;
typedef std::uintptr_t WPARAM;
typedef std::intptr_t LPARAM;
typedef std::intptr_t LRESULT;

// The interface id of an interface type, as __uuidof gives it on Windows.
template <class Interface> struct InterfaceIdOf;

#define STANDIN_INTERFACE_ID(Interface)                                                            \
    template <> struct InterfaceIdOf<Interface> {                                                  \
        static const IID& value() { return IID_##Interface; }                                      \
    }

#define E_NOTFOUND ((HRESULT)0x80070490L)
#define CO_E_CLASSSTRING ((HRESULT)0x800401F3L)
#define REGDB_E_CLASSNOTREG ((HRESULT)0x80040154L)
#define CLASS_E_NOAGGREGATION ((HRESULT)0x80040110L)
#define CO_E_NOTINITIALIZED ((HRESULT)0x800401F0L)
#define NOERROR 0
#define HRESULT_FROM_WIN32(x)                                                                      \
    ((HRESULT)(x) <= 0 ? ((HRESULT)(x)) : ((HRESULT)(((x)&0x0000FFFF) | (7 << 16) | 0x80000000)))
#define ERROR_NOT_FOUND 1168L
