#include "libAudio/VolumeChangeNotification.h"
#include "foundation/qelLog.h"

namespace {
QEL_DEFINE_UNIT_LOGGER("libAudio.volumeChangeNotification")
}

VolumeChangeNotification::VolumeChangeNotification()
    : m_references(1), m_window(nullptr), m_function(nullptr), m_context(nullptr) {}

VolumeChangeNotification::VolumeChangeNotification(const VolumeChangeNotification& other)
    : IAudioEndpointVolumeCallback(), m_references(other.m_references.load()),
      m_window(other.m_window), m_function(other.m_function), m_context(other.m_context) {}

VolumeChangeNotification&
VolumeChangeNotification::operator=(const VolumeChangeNotification& other) {
    m_references.store(other.m_references.load());
    m_window = other.m_window;
    m_function = other.m_function;
    m_context = other.m_context;
    return *this;
}

VolumeChangeNotification::~VolumeChangeNotification() {
    m_window = nullptr;
    m_function = nullptr;
    m_context = nullptr;
}

HRESULT VolumeChangeNotification::QueryInterface(REFIID iid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (iid == IID_IUnknown || iid == IID_IAudioEndpointVolumeCallback) {
        *object = static_cast<IAudioEndpointVolumeCallback*>(this);
        AddRef();
        return S_OK;
    }
    return E_NOINTERFACE;
}

ULONG VolumeChangeNotification::AddRef() {
    return ++m_references;
}

ULONG VolumeChangeNotification::Release() {
    ULONG left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

HRESULT VolumeChangeNotification::OnNotify(PAUDIO_VOLUME_NOTIFICATION_DATA) {
    QEL_TRACE_SCOPE("OnNotify");
    if (m_function) {
        m_function(m_context);
    }
    PostMessageW(m_window, VOLUME_CHANGED_MESSAGE, 0, 0);
    return S_OK;
}
