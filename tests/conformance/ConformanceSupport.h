// Helpers for the conformance tests, written against the platform interface only: strings
// the platform allocates, property values, endpoint lists and callback objects that record
// what the platform delivers and on which thread.
#pragma once

#include "platform/CComPtr.h"
#include "platform/win32.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace conformance {

using WString = std::basic_string<WCHAR>;

inline WString wide(const std::string& ascii) {
    return WString(ascii.begin(), ascii.end());
}

inline std::string narrow(const WString& text) {
    return std::string(text.begin(), text.end());
}

// Copies a string the platform allocated, then frees it as every caller must.
inline WString take(LPWSTR text) {
    WString copy = text ? WString(text) : WString();
    CoTaskMemFree(text);
    return copy;
}

inline WString idOf(IMMDevice* device) {
    LPWSTR id = nullptr;
    EXPECT_EQ(S_OK, device->GetId(&id));
    return take(id);
}

inline WString idOf(IDeviceTopology* topology) {
    LPWSTR id = nullptr;
    EXPECT_EQ(S_OK, topology->GetDeviceId(&id));
    return take(id);
}

inline WString idOf(IUnknown* part) {
    CComPtr<IPart> asPart;
    EXPECT_EQ(S_OK, part->QueryInterface(IID_IPart, reinterpret_cast<void**>(&asPart)));
    LPWSTR id = nullptr;
    EXPECT_EQ(S_OK, asPart->GetGlobalId(&id));
    return take(id);
}

// A property value that is cleared, and so freed, when it goes out of scope.
struct Variant : PROPVARIANT {
    Variant() { PropVariantInit(this); }
    ~Variant() { PropVariantClear(this); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
};

inline std::vector<CComPtr<IMMDevice>> endpoints(IMMDeviceEnumerator* enumerator, EDataFlow flow,
                                                 DWORD mask) {
    std::vector<CComPtr<IMMDevice>> devices;
    CComPtr<IMMDeviceCollection> collection;
    EXPECT_EQ(S_OK, enumerator->EnumAudioEndpoints(flow, mask, &collection));
    UINT count = 0;
    if (collection && SUCCEEDED(collection->GetCount(&count))) {
        for (UINT i = 0; i < count; ++i) {
            EXPECT_EQ(S_OK, collection->Item(i, &devices.emplace_back()));
        }
    }
    return devices;
}

// A client object owned by the test (it lives on the stack, so Release never frees it) that
// records the thread of every delivery.
template <class Interface> class Recorder : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) {
            return E_POINTER;
        }
        bool known = iid == IID_IUnknown || iid == platform::iidOf<Interface>();
        *out = known ? static_cast<Interface*>(this) : nullptr;
        return known ? (AddRef(), S_OK) : E_NOINTERFACE;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }

    std::size_t calls() const {
        std::lock_guard lock(m_mutex);
        return m_threads.size();
    }
    bool allOnOtherThreads() const {
        std::lock_guard lock(m_mutex);
        return std::find(m_threads.begin(), m_threads.end(), std::this_thread::get_id()) ==
               m_threads.end();
    }

protected:
    mutable std::mutex m_mutex;
    std::vector<std::thread::id> m_threads; // guarded by m_mutex

private:
    std::atomic<ULONG> m_references{1};
};

class VolumeRecorder final : public Recorder<IAudioEndpointVolumeCallback> {
public:
    HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA data) override {
        std::lock_guard lock(m_mutex);
        m_threads.push_back(std::this_thread::get_id());
        m_last = *data; // the first channel's level comes along; the rest is not kept
        return S_OK;
    }
    AUDIO_VOLUME_NOTIFICATION_DATA last() const {
        std::lock_guard lock(m_mutex);
        return m_last;
    }

private:
    AUDIO_VOLUME_NOTIFICATION_DATA m_last{};
};

// One OnDefaultDeviceChanged as delivered; a null id arrives as an empty one.
struct DefaultChange {
    EDataFlow flow;
    ERole role;
    WString id;
    bool operator==(const DefaultChange&) const = default;
};

// Keeps the state and default changes; every other device event only counts as a call.
class DeviceEventRecorder final : public Recorder<IMMNotificationClient> {
public:
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override {
        std::lock_guard lock(m_mutex);
        m_states.push_back({WString(id), state});
        return record();
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR) override { return locked(); }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR) override { return locked(); }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole role,
                                                     LPCWSTR id) override {
        std::lock_guard lock(m_mutex);
        m_defaults.push_back({flow, role, id ? WString(id) : WString()});
        return record();
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) override {
        return locked();
    }
    std::vector<std::pair<WString, DWORD>> states() const {
        std::lock_guard lock(m_mutex);
        return m_states;
    }
    std::vector<DefaultChange> defaults() const {
        std::lock_guard lock(m_mutex);
        return m_defaults;
    }

private:
    HRESULT record() {
        m_threads.push_back(std::this_thread::get_id());
        return S_OK;
    }
    HRESULT locked() {
        std::lock_guard lock(m_mutex);
        return record();
    }
    std::vector<std::pair<WString, DWORD>> m_states;
    std::vector<DefaultChange> m_defaults;
};

// Keeps a client registered for a scope, so that a failed assertion cannot leave the platform
// calling a client that has gone.
class ScopedRegistration {
public:
    ScopedRegistration(IMMDeviceEnumerator* enumerator, IMMNotificationClient* client)
        : m_enumerator(enumerator), m_client(client),
          m_result(enumerator->RegisterEndpointNotificationCallback(client)) {}
    ~ScopedRegistration() { end(); }
    ScopedRegistration(const ScopedRegistration&) = delete;
    ScopedRegistration& operator=(const ScopedRegistration&) = delete;

    HRESULT result() const { return m_result; }
    // Unregisters now; what the platform answers.
    HRESULT end() {
        HRESULT hr = SUCCEEDED(m_result)
                         ? m_enumerator->UnregisterEndpointNotificationCallback(m_client)
                         : S_FALSE;
        m_result = E_ABORT;
        return hr;
    }

private:
    IMMDeviceEnumerator* m_enumerator;
    IMMNotificationClient* m_client;
    HRESULT m_result;
};

} // namespace conformance
