// Helpers for the conformance tests, written against the platform interface only: strings
// the platform allocates, property values, endpoint lists and callback objects that record
// what the platform delivers and on which thread.
#pragma once

#include "platform/CComPtr.h"
#include "platform/win32.h"

#include <gtest/gtest.h>

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

// A client object owned by the test (it lives on the stack, so Release never frees it).
template <class Interface> class Recorder : public Interface {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
        if (!out) {
            return E_POINTER;
        }
        *out = nullptr;
        if (iid != IID_IUnknown && iid != platform::iidOf<Interface>()) {
            return E_NOINTERFACE;
        }
        *out = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override { return --m_references; }

    std::size_t calls() const {
        std::lock_guard lock(m_mutex);
        return m_threads.size();
    }
    // True when every delivery so far came on a thread other than the caller's.
    bool allOnOtherThreads() const {
        std::lock_guard lock(m_mutex);
        for (std::thread::id thread : m_threads) {
            if (thread == std::this_thread::get_id()) {
                return false;
            }
        }
        return true;
    }

protected:
    void record() { m_threads.push_back(std::this_thread::get_id()); }

    mutable std::mutex m_mutex;

private:
    std::vector<std::thread::id> m_threads;
    std::atomic<ULONG> m_references{1};
};

class VolumeRecorder final : public Recorder<IAudioEndpointVolumeCallback> {
public:
    HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA data) override {
        std::lock_guard lock(m_mutex);
        record();
        m_muted = data->bMuted;
        m_master = data->fMasterVolume;
        m_channels = data->nChannels;
        m_context = data->guidEventContext;
        return S_OK;
    }
    BOOL muted() const { return locked(m_muted); }
    float master() const { return locked(m_master); }
    UINT channels() const { return locked(m_channels); }
    GUID context() const { return locked(m_context); }

private:
    template <class T> T locked(const T& value) const {
        std::lock_guard lock(m_mutex);
        return value;
    }
    BOOL m_muted = FALSE;
    float m_master = -1.0f;
    UINT m_channels = 0;
    GUID m_context{};
};

class DeviceEventRecorder final : public Recorder<IMMNotificationClient> {
public:
    struct Event {
        char kind; // 's' state, 'a' added, 'r' removed, 'd' default, 'p' property
        WString id;
        DWORD value;
    };
    HRESULT STDMETHODCALLTYPE OnDeviceStateChanged(LPCWSTR id, DWORD state) override {
        return add('s', id, state);
    }
    HRESULT STDMETHODCALLTYPE OnDeviceAdded(LPCWSTR id) override { return add('a', id, 0); }
    HRESULT STDMETHODCALLTYPE OnDeviceRemoved(LPCWSTR id) override { return add('r', id, 0); }
    HRESULT STDMETHODCALLTYPE OnDefaultDeviceChanged(EDataFlow flow, ERole,
                                                     LPCWSTR id) override {
        return add('d', id, DWORD(flow));
    }
    HRESULT STDMETHODCALLTYPE OnPropertyValueChanged(LPCWSTR id, const PROPERTYKEY) override {
        return add('p', id, 0);
    }
    std::vector<Event> events() const {
        std::lock_guard lock(m_mutex);
        return m_events;
    }

private:
    HRESULT add(char kind, LPCWSTR id, DWORD value) {
        std::lock_guard lock(m_mutex);
        record();
        m_events.push_back({kind, id ? WString(id) : WString(), value});
        return S_OK;
    }
    std::vector<Event> m_events;
};

} // namespace conformance
