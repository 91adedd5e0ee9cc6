// Helpers shared by the device model tests: log texts without their statement number, a
// machine with one codec, and a notification client that counts what reaches it.
#pragma once

#include "platform/CComPtr.h"
#include "platform/model/MachineBuilder.h"
#include "platform/sim/ComObject.h"
#include "platform/sim/Runtime.h"
#include "platform/win32.h"
#include "support/LogMessages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <string>
#include <vector>

namespace devicemodel {

constexpr int kDebug = 1, kInfo = 2, kError = 3;
constexpr HRESULT kFail = E_FAIL; // 0x80004005
constexpr HRESULT kNotFound = HRESULT(0x80070490L);

inline const std::string kEndpointLog = "libAudio.audioDeviceEndpoint";
inline const std::string kEnumeratorLog = "libAudio.endpointDeviceEnumerator";
inline const std::string kTopologyLog = "libAudio.audioDeviceTopology";
inline const std::string kPartLog = "libAudio.audioPart";
inline const std::string kVolumeLog = "libAudio.volumecontroller";

using testsupport::countOf;
using testsupport::logged;
using testsupport::messages;

// A result code as the library prints it.
inline std::string hex(HRESULT code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", unsigned(code));
    return text;
}

inline std::string utf8(const qel::String& s) {
    return s.toStdString();
}

inline model::PropertyKey keyOf(const PROPERTYKEY& key) {
    return {key.fmtid, key.pid};
}

inline model::PropertyValue textValue(std::string text) {
    model::PropertyValue v;
    v.text = std::move(text);
    return v;
}

inline model::PropertyValue numberValue(std::uint32_t number) {
    model::PropertyValue v;
    v.type = model::PropertyValue::Type::UInt32;
    v.number = number;
    return v;
}

inline model::PropertyValue blobValue(std::vector<std::uint8_t> bytes) {
    model::PropertyValue v;
    v.type = model::PropertyValue::Type::Blob;
    v.blob = std::move(bytes);
    return v;
}

// Changes one property of an installed endpoint while devices made from it stay alive.
inline void overrideProperty(const std::string& endpointId, const PROPERTYKEY& key,
                             std::optional<model::PropertyValue> value) {
    sim::withMachine([&](model::Machine& m) {
        m.findEndpoint(endpointId)->propertyOverrides[keyOf(key)] = std::move(value);
    });
}

inline void fault(std::string operation, std::string target, std::vector<HRESULT> results = {kFail},
                  bool sticky = false) {
    sim::addFault(
        model::Fault{std::move(operation), std::move(target), std::move(results), sticky});
}

// The platform's device object with exactly this id, taken from the collection of every
// endpoint: looking it up by id would ignore case.
inline CComPtr<IMMDevice> platformDevice(const std::string& id) {
    CComPtr<IMMDeviceEnumerator> enumerator;
    EXPECT_EQ(enumerator.CoCreateInstance(CLSID_MMDeviceEnumerator, nullptr, CLSCTX_INPROC_SERVER),
              S_OK);
    CComPtr<IMMDeviceCollection> all;
    EXPECT_EQ(enumerator->EnumAudioEndpoints(eAll, DEVICE_STATEMASK_ALL, &all), S_OK);
    UINT count = 0;
    all->GetCount(&count);
    for (UINT i = 0; i < count; ++i) {
        CComPtr<IMMDevice> device;
        LPWSTR text = nullptr;
        all->Item(i, &device);
        device->GetId(&text);
        bool same = std::u16string(text) == sim::toUtf16(id);
        CoTaskMemFree(text);
        if (same) {
            return device;
        }
    }
    ADD_FAILURE() << "no endpoint " << id;
    return {};
}

inline const std::string kAdapter = "HDAUDIO\\FUNC_01&VEN_10EC&DEV_0269\\1";

// An IMMNotificationClient that counts state changes; the platform keeps a reference to it
// while it is registered, so it lives on the test's stack and must be unregistered.
class CountingClient : public IMMNotificationClient {
public:
    std::atomic<int> stateChanges{0};

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (iid == IID_IUnknown || iid == IID_IMMNotificationClient) {
            *object = static_cast<IMMNotificationClient*>(this);
            AddRef();
            return S_OK;
        }
        return E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR, DWORD) override {
        ++stateChanges;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR) override {
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override {
        return S_OK;
    }
    int references() const { return m_references; }

private:
    std::atomic<int> m_references{1};
};

} // namespace devicemodel
