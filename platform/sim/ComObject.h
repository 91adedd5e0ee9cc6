// The base of every simulated component-model object: an atomic reference count and a
// QueryInterface that answers exactly the interfaces the object lists.
#pragma once

#include "platform/win32.h"

#include <atomic>
#include <tuple>
#include <utility>

namespace sim {

template <class Derived, class... Interfaces> class ComObject : public Interfaces... {
public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (iid == IID_IUnknown) {
            *object = static_cast<IUnknown*>(static_cast<FirstInterface*>(this));
        } else {
            (findInterface<Interfaces>(iid, object) || ...);
        }
        if (!*object) {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override {
        ULONG left = --m_references;
        if (left == 0) {
            delete static_cast<Derived*>(this);
        }
        return left;
    }

    // Makes an object and hands out its first reference.
    template <class... Args> static Derived* create(Args&&... args) {
        return new Derived(std::forward<Args>(args)...);
    }

protected:
    ComObject() = default;
    virtual ~ComObject() = default;

private:
    using FirstInterface = std::tuple_element_t<0, std::tuple<Interfaces...>>;

    template <class I> bool findInterface(REFIID iid, void** object) {
        if (iid == platform::iidOf<I>()) {
            *object = static_cast<I*>(this);
            return true;
        }
        return false;
    }

    std::atomic<ULONG> m_references{1};
};

// Hands out a reference through an out-parameter, checking it.
template <class I, class Object> HRESULT handOut(Object* object, I** out) {
    if (!out) {
        object->Release();
        return E_POINTER;
    }
    *out = object;
    return S_OK;
}

// A copy of text in the task allocator, for methods that return strings.
LIBAUDIO_PLATFORM_API LPWSTR taskString(const std::string& utf8);
LIBAUDIO_PLATFORM_API std::u16string toUtf16(const std::string& utf8);

} // namespace sim
