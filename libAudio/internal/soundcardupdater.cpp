// SoundCard: the device change updater, the card's notification client that keeps its
// endpoint lists current and tells its observers, and the registration of observers.
#include "libAudio/EndpointDeviceEnumerator.h"
#include "libAudio/internal/soundcardunit.h"

#include <mutex>

using soundcardunit::sameText;
using soundcardunit::unitLogger;

typedef SoundCard::SoundCardDeviceUpdater Updater;

namespace {

// Serialises registrations with the process-wide enumerator, whose client list has no
// lock of its own.
std::mutex& registrationMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

// The reference every updater is created with belongs here, for the life of the process:
// the enumerator may call an updater after every card that shared it is gone, so none is
// ever freed, and none is lost either.
struct KeptUpdaters {
    std::mutex mutex;
    qel::Array<Updater*> updaters;
};

KeptUpdaters& keptUpdaters() {
    static KeptUpdaters* kept = new KeptUpdaters();
    return *kept;
}

qel::String idText(LPCWSTR id) {
    return id ? qel::String(platform::ucs2(id)) : qel::String();
}

bool holds(const qel::Array<AudioDevice>& list, const qel::String& id) {
    for (const AudioDevice& device : list) {
        if (sameText(device.deviceProperty().deviceId, id)) {
            return true;
        }
    }
    return false;
}

} // namespace

bool SoundCard::registerUpdater() {
    std::lock_guard lock(registrationMutex());
    // Copies made before the first registration share the updater but not the flag: one
    // registration is enough, a second would deliver every notification twice.
    if (m_updater->m_registered) {
        return true;
    }
    libAudio::SharedAudioDeviceEnumerator& shared =
        libAudio::AudioDeviceEnumeratorFactory::enumerator();
    bool registered = !shared.isEmpty() &&
                      shared->addNotificationClient(CComPtr<IMMNotificationClient>(m_updater.p));
    m_updater->m_registered = registered;
    return registered;
}

bool SoundCard::registerPlaybackObserver(const SoundCardObserverPtr& observer) {
    QEL_TRACE_SCOPE("SoundCard::registerPlaybackObserver");
    if (observer.isEmpty() || m_playbackObservers.isEmpty()) {
        QEL_LOG_AT(PRIORITY_ERROR, 759, "Unable to register playback observer");
        return false;
    }
    return registerObserver(m_playbackObservers, observer);
}

bool SoundCard::registerRecordObserver(const SoundCardObserverPtr& observer) {
    QEL_TRACE_SCOPE("SoundCard::registerRecordObserver");
    if (observer.isEmpty() || m_recordObservers.isEmpty()) {
        QEL_LOG_AT(PRIORITY_ERROR, 739, "Unable to register record observer");
        return false;
    }
    return registerObserver(m_recordObservers, observer);
}

bool SoundCard::registerObserver(const ObserverList& list, const SoundCardObserverPtr& observer) {
    // A card built without notifications starts receiving them with its first observer; a
    // failed registration still keeps the observer.
    if (!m_notificationRegistered) {
        m_notificationRegistered = registerUpdater();
    }
    std::lock_guard lock(m_state->lists);
    list->append(observer);
    return true;
}

bool SoundCard::unregisterPlaybackObserver(const SoundCardObserverPtr& observer) {
    QEL_TRACE_SCOPE("SoundCard::unregisterPlaybackObserver");
    return unregisterObserver(m_playbackObservers, observer);
}

bool SoundCard::unregisterRecordObserver(const SoundCardObserverPtr& observer) {
    QEL_TRACE_SCOPE("SoundCard::unregisterRecordObserver");
    return unregisterObserver(m_recordObservers, observer);
}

bool SoundCard::unregisterObserver(const ObserverList& list, const SoundCardObserverPtr& observer) {
    // Waits for a call in progress on another thread.
    std::lock_guard calls(m_state->calls);
    std::lock_guard lock(m_state->lists);
    for (qel::Uint32 i = 0; i < list->size(); ++i) {
        if ((*list)[i] == observer) {
            list->removeAt(i);
            return true;
        }
    }
    return false;
}

Updater::SoundCardDeviceUpdater()
    : m_references(1), m_state(new SharedState()), m_registered(false) {}

Updater::~SoundCardDeviceUpdater() = default;

CComPtr<Updater> Updater::createUpdater() {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::createUpdater");
    Updater* updater = new Updater();
    {
        KeptUpdaters& kept = keptUpdaters();
        std::lock_guard lock(kept.mutex);
        kept.updaters.append(updater);
    }
    // The pointer adds its own reference: two with one holder.
    return CComPtr<Updater>(updater);
}

void Updater::setOwnerId(const SharedId& id) {
    std::lock_guard lock(m_state->lists);
    m_ownerId = id;
}

bool Updater::setRecordDeviceList(const DeviceList& list) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdatersetRecordDeviceList");
    if (list.isEmpty()) {
        QEL_LOG_AT(PRIORITY_ERROR, 950, "Cannot use an empty eCapture device list");
        return false;
    }
    std::lock_guard lock(m_state->lists);
    m_recordDevices = list;
    return true;
}

bool Updater::setPlaybackDeviceList(const DeviceList& list) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::setPlaybackDeviceList");
    if (list.isEmpty()) {
        QEL_LOG_AT(PRIORITY_ERROR, 962, "Cannot use an empty eRender device list");
        return false;
    }
    std::lock_guard lock(m_state->lists);
    m_playbackDevices = list;
    return true;
}

bool Updater::setPlaybackObserver(const ObserverList& observers) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::setPlaybackObserver");
    if (observers.isEmpty()) {
        QEL_LOG_AT(PRIORITY_ERROR, 975, "Cannot use NULL pointer");
        return false;
    }
    std::lock_guard lock(m_state->lists);
    m_playbackObservers = observers;
    return true;
}

bool Updater::setRecordObserver(const ObserverList& observers) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::setRecordObserver");
    if (observers.isEmpty()) {
        QEL_LOG_AT(PRIORITY_ERROR, 987, "Cannot use NULL pointer");
        return false;
    }
    std::lock_guard lock(m_state->lists);
    m_recordObservers = observers;
    return true;
}

const SoundCard::DeviceList Updater::selectDeviceList(const AudioDevice& device) const {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::selectDeviceList");
    DeviceList playback, record;
    {
        std::lock_guard lock(m_state->lists);
        // The string's own equality: exact.
        if (m_ownerId.isEmpty() || !(device.deviceProperty().instancePath == *m_ownerId)) {
            return DeviceList();
        }
        playback = m_playbackDevices;
        record = m_recordDevices;
    }
    // A device whose flow cannot be read any more was removed while it was being read.
    EDataFlow flow = eAll;
    if (!device.dataFlow(flow)) {
        return DeviceList();
    }
    return flow == eRender ? playback : record;
}

const SoundCard::ObserverList Updater::selectObserver(const AudioDevice& device) const {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::selectObserver");
    ObserverList playback, record;
    {
        std::lock_guard lock(m_state->lists);
        if (m_ownerId.isEmpty() || !(device.deviceProperty().instancePath == *m_ownerId)) {
            return ObserverList();
        }
        playback = m_playbackObservers;
        record = m_recordObservers;
    }
    EDataFlow flow = eAll;
    if (!device.dataFlow(flow)) {
        return ObserverList();
    }
    return flow == eRender ? playback : record;
}

void Updater::selectTarget(const qel::String& id, AudioDevice& device, DeviceList& list,
                           ObserverList& observers) const {
    device = AudioDevice(id);
    if (device.isInitialized()) {
        list = selectDeviceList(device);
        observers = selectObserver(device);
        if (!list.isEmpty()) {
            return;
        }
    }
    // An endpoint the platform no longer knows, or no longer fully (it was removed while it
    // was being read), belongs to the list that holds it: its instance path and flow put it
    // there. An endpoint of another adapter is in no list.
    std::lock_guard lock(m_state->lists);
    if (!m_playbackDevices.isEmpty() && holds(*m_playbackDevices, id)) {
        list = m_playbackDevices;
        observers = m_playbackObservers;
    } else if (!m_recordDevices.isEmpty() && holds(*m_recordDevices, id)) {
        list = m_recordDevices;
        observers = m_recordObservers;
    }
}

void Updater::tellObservers(const ObserverList& observers, void (SoundCardObserver::*call)()) {
    std::lock_guard calls(m_state->calls);
    qel::Array<SoundCardObserverPtr> copy;
    {
        std::lock_guard lock(m_state->lists);
        copy = *observers;
    }
    for (const SoundCardObserverPtr& observer : copy) {
        {
            // Skip an observer that an earlier one unregistered.
            std::lock_guard lock(m_state->lists);
            if (!observers->contains(observer)) {
                continue;
            }
        }
        if (!observer.isEmpty()) {
            (observer.get()->*call)();
        }
    }
}

HRESULT Updater::OnDeviceAdded(LPCWSTR deviceId) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::OnDeviceAdded");
    qel::String id = idText(deviceId);
    QEL_LOG_AT(PRIORITY_DEBUG, 851, "Device ", id, " has been added.");
    AudioDevice device;
    DeviceList list;
    ObserverList observers;
    selectTarget(id, device, list, observers);
    if (!list.isEmpty()) {
        // No duplicate test: the platform announces each arrival once.
        std::lock_guard lock(m_state->lists);
        list->append(device);
    }
    if (!observers.isEmpty()) {
        tellObservers(observers, &SoundCardObserver::deviceAdded);
    }
    return S_OK;
}

HRESULT Updater::OnDeviceStateChanged(LPCWSTR deviceId, DWORD newState) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::OnDeviceStateChanged");
    qel::String id = idText(deviceId);
    AudioDevice device;
    DeviceList list;
    ObserverList observers;
    selectTarget(id, device, list, observers);
    QEL_LOG_AT(PRIORITY_DEBUG, 877, "Device ", device.deviceProperty().friendlyName, " id ", id,
               " state changed to ", (unsigned int)newState);
    if (list.isEmpty()) {
        return S_OK;
    }
    {
        std::lock_guard lock(m_state->lists);
        AudioDevice* entry = nullptr;
        for (AudioDevice& stored : *list) {
            if (sameText(stored.deviceProperty().deviceId, id)) {
                entry = &stored;
                break;
            }
        }
        if (!entry) {
            QEL_LOG_AT(PRIORITY_DEBUG, 891, "Returning E_FAIL.");
            return E_FAIL;
        }
        entry->refreshDeviceState();
    }
    if (!observers.isEmpty()) {
        tellObservers(observers, &SoundCardObserver::deviceStateChanged);
    }
    return S_OK;
}

HRESULT Updater::OnDeviceRemoved(LPCWSTR deviceId) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::OnDeviceRemoved");
    qel::String id = idText(deviceId);
    QEL_LOG_AT(PRIORITY_DEBUG, 912, "Device ", id, " has been removed.");
    AudioDevice device;
    DeviceList list;
    ObserverList observers;
    selectTarget(id, device, list, observers);
    if (list.isEmpty()) {
        return S_OK;
    }
    {
        std::lock_guard lock(m_state->lists);
        qel::Uint32 at = 0;
        while (at < list->size() && !sameText((*list)[at].deviceProperty().deviceId, id)) {
            ++at;
        }
        if (at == list->size()) {
            return E_FAIL;
        }
        list->removeAt(at);
    }
    if (!observers.isEmpty()) {
        tellObservers(observers, &SoundCardObserver::deviceRemoved);
    }
    return S_OK;
}

HRESULT Updater::OnDefaultDeviceChanged(EDataFlow, ERole, LPCWSTR deviceId) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::OnDefaultDeviceChanged");
    QEL_LOG_AT(PRIORITY_DEBUG, 811, "Default Device Has Changed To This Device ", idText(deviceId));
    return S_OK;
}

HRESULT Updater::OnPropertyValueChanged(LPCWSTR, const PROPERTYKEY) {
    return S_OK;
}

HRESULT Updater::QueryInterface(REFIID iid, void** object) {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::QueryInterface");
    if (!object) {
        return E_POINTER;
    }
    if (iid == platform::iidOf<IUnknown>() || iid == platform::iidOf<IMMNotificationClient>()) {
        *object = static_cast<IMMNotificationClient*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG Updater::AddRef() {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::Release");
    return ++m_references;
}

ULONG Updater::Release() {
    QEL_TRACE_SCOPE("SoundCard::SoundCardDeviceUpdater::Release");
    ULONG left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}
