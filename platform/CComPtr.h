// CComPtr: a counted reference to a component-model interface. Our own, because MinGW has
// no ATL; it follows ATL's CComPtr closely enough for code written against either.
#pragma once

#include "platform/win32.h"

#include <memory>
#include <utility>

template <class T> class CComPtr {
public:
    CComPtr() = default;
    CComPtr(T* p) : p(p) {
        if (p) {
            p->AddRef();
        }
    }
    CComPtr(const CComPtr& other) : CComPtr(other.p) {}
    CComPtr(CComPtr&& other) noexcept : p(std::exchange(other.p, nullptr)) {}
    ~CComPtr() { Release(); }

    CComPtr& operator=(T* other) {
        if (other != p) {
            CComPtr copy(other);
            std::swap(p, copy.p);
        }
        return *this;
    }
    CComPtr& operator=(const CComPtr& other) { return *this = other.p; }
    CComPtr& operator=(CComPtr&& other) noexcept {
        if (this != std::addressof(other)) {
            Release();
            p = std::exchange(other.p, nullptr);
        }
        return *this;
    }

    operator T*() const { return p; }
    T* operator->() const { return p; }
    T& operator*() const { return *p; }
    bool operator!() const { return p == nullptr; }
    // The address for an out-parameter; what was held is released first.
    T** operator&() {
        Release();
        return &p;
    }

    void Release() {
        if (T* held = std::exchange(p, nullptr)) {
            held->Release();
        }
    }
    void Attach(T* other) {
        Release();
        p = other;
    }
    T* Detach() { return std::exchange(p, nullptr); }
    HRESULT CopyTo(T** out) const {
        if (!out) {
            return E_POINTER;
        }
        *out = p;
        if (p) {
            p->AddRef();
        }
        return S_OK;
    }
    template <class Q> HRESULT QueryInterface(Q** out) const {
        if (!p) {
            return E_POINTER;
        }
        return p->QueryInterface(platform::iidOf<Q>(), reinterpret_cast<void**>(out));
    }
    HRESULT CoCreateInstance(REFCLSID clsid, LPUNKNOWN outer = nullptr,
                             DWORD context = CLSCTX_ALL) {
        Release();
        return ::CoCreateInstance(clsid, outer, context, platform::iidOf<T>(),
                                  reinterpret_cast<void**>(&p));
    }
    // The number of references, learnt by raising and dropping one.
    ULONG referenceCount() const {
        if (!p) {
            return 0;
        }
        p->AddRef();
        return p->Release();
    }

    T* p = nullptr;
};
