// VolumeChangeNotification: the callback object the platform calls when an endpoint's
// volume or mute changes. It passes the news on to a function and, as message 977, to a
// window; receivers read the controller again to learn what changed.
#pragma once

#include "foundation/export.h"
#include "platform/win32.h"

#include <atomic>

class LIBAUDIO_API VolumeChangeNotification : public IAudioEndpointVolumeCallback {
public:
    enum : UINT { VOLUME_CHANGED_MESSAGE = 977 };
    typedef void (*CallbackFunction)(void*);

    VolumeChangeNotification();
    // Copies carry the reference count too; that is how the class is defined.
    VolumeChangeNotification(const VolumeChangeNotification& other);
    VolumeChangeNotification& operator=(const VolumeChangeNotification& other);

    void setCallbackWindow(HWND window) { m_window = window; }
    void setCallbackFunction(CallbackFunction function, void* context) {
        m_function = function;
        m_context = context;
    }

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;
    HRESULT STDMETHODCALLTYPE OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA data) override;

    virtual ~VolumeChangeNotification();

private:
    std::atomic<ULONG> m_references;
    HWND m_window;
    CallbackFunction m_function;
    void* m_context;
};
