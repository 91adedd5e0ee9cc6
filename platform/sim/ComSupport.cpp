// Component-model runtime functions: object creation, GUID parsing, property variants,
// task-allocated strings.
#include "platform/sim/ComObject.h"
#include "platform/sim/DeviceObjects.h"
#include "platform/sim/Runtime.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace sim {

std::u16string toUtf16(const std::string& utf8) {
    std::u16string out;
    for (std::size_t i = 0; i < utf8.size();) {
        unsigned char lead = utf8[i];
        int extra = lead < 0x80 ? 0 : lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
        char32_t c = extra == 0 ? lead : lead & (0x3F >> extra);
        ++i;
        for (int k = 0; k < extra && i < utf8.size(); ++k, ++i) {
            c = (c << 6) | (static_cast<unsigned char>(utf8[i]) & 0x3F);
        }
        if (c >= 0x10000) {
            c -= 0x10000;
            out += char16_t(0xD800 + (c >> 10));
            out += char16_t(0xDC00 + (c & 0x3FF));
        } else {
            out += char16_t(c);
        }
    }
    return out;
}

LPWSTR taskString(const std::string& utf8) {
    std::u16string text = toUtf16(utf8);
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
    if (copy) {
        std::copy(text.begin(), text.end(), copy);
        copy[text.size()] = 0;
    }
    return copy;
}

} // namespace sim

namespace {

bool parseHex(const std::string& text, std::size_t from, std::size_t digits, unsigned long& out) {
    if (from + digits > text.size()) {
        return false;
    }
    out = 0;
    for (std::size_t i = from; i < from + digits; ++i) {
        char c = text[i];
        int v = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : -1;
        if (v < 0) {
            return false;
        }
        out = out * 16 + unsigned(v);
    }
    return true;
}

bool parseGuid(const std::string& t, GUID& g) {
    if (t.size() != 38 || t[0] != '{' || t[37] != '}' || t[9] != '-' || t[14] != '-' ||
        t[19] != '-' || t[24] != '-') {
        return false;
    }
    unsigned long v = 0;
    bool ok = parseHex(t, 1, 8, v);
    g.Data1 = DWORD(v);
    ok = ok && parseHex(t, 10, 4, v);
    g.Data2 = WORD(v);
    ok = ok && parseHex(t, 15, 4, v);
    g.Data3 = WORD(v);
    const std::size_t bytes[8] = {20, 22, 25, 27, 29, 31, 33, 35};
    for (int i = 0; i < 8 && ok; ++i) {
        ok = parseHex(t, bytes[i], 2, v);
        g.Data4[i] = BYTE(v);
    }
    return ok;
}

} // namespace

extern "C" {

HRESULT CoCreateInstance(REFCLSID rclsid, LPUNKNOWN outer, DWORD, REFIID riid, LPVOID* ppv) {
    if (!ppv) {
        return E_POINTER;
    }
    *ppv = nullptr;
    if (outer) {
        return CLASS_E_NOAGGREGATION;
    }
    if (rclsid != CLSID_MMDeviceEnumerator) {
        return REGDB_E_CLASSNOTREG;
    }
    if (HRESULT fault = sim::injectedFault("CoCreateInstance", "MMDeviceEnumerator")) {
        return fault;
    }
    IMMDeviceEnumerator* enumerator = sim::createEnumerator();
    HRESULT hr = enumerator->QueryInterface(riid, ppv);
    enumerator->Release();
    return hr;
}

HRESULT CLSIDFromString(LPCOLESTR text, LPCLSID clsid) {
    if (!text || !clsid) {
        return E_INVALIDARG;
    }
    std::string ascii;
    for (; *text; ++text) {
        ascii += *text < 0x80 ? char(*text) : '?';
    }
    GUID parsed{};
    if (!parseGuid(ascii, parsed)) {
        return CO_E_CLASSSTRING;
    }
    *clsid = parsed;
    return NOERROR;
}

HRESULT PropVariantClear(PROPVARIANT* pv) {
    if (!pv) {
        return E_POINTER;
    }
    if (pv->vt == VT_LPWSTR || pv->vt == VT_LPSTR) {
        CoTaskMemFree(pv->pwszVal);
    } else if (pv->vt == VT_BLOB) {
        CoTaskMemFree(pv->blob.pBlobData);
    } else if (pv->vt == VT_CLSID) {
        CoTaskMemFree(pv->puuid);
    }
    PropVariantInit(pv);
    return S_OK;
}
}
