#include "platform/sim/Notifier.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace sim {

namespace {

// One worker thread with a queue. It is never joined: it lives as long as the process.
class NotificationThread {
public:
    NotificationThread() : m_thread([this] { run(); }) { m_thread.detach(); }

    void post(std::function<void()> delivery) {
        std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(delivery));
        m_wake.notify_all();
    }
    void flush() {
        if (isCurrent()) {
            return; // a delivery waiting for itself would never end
        }
        std::unique_lock lock(m_mutex);
        m_idle.wait(lock, [this] { return m_queue.empty() && !m_busy; });
    }
    bool isCurrent() const { return std::this_thread::get_id() == m_id; }

private:
    void run() {
        m_id = std::this_thread::get_id();
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return !m_queue.empty(); });
            std::function<void()> delivery = std::move(m_queue.front());
            m_queue.pop_front();
            m_busy = true;
            lock.unlock();
            delivery();
            lock.lock();
            m_busy = false;
            m_idle.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_idle;
    std::deque<std::function<void()>> m_queue;
    bool m_busy = false;
    std::atomic<std::thread::id> m_id{};
    std::thread m_thread;
};

NotificationThread& notificationThread() {
    static NotificationThread* thread = new NotificationThread;
    return *thread;
}

// Registrations. Deliveries hold the lock while they call out, so that a client that has
// unregistered is never called afterwards; the lock is recursive because a callback may
// still register a volume callback of its own (only unregistering is refused there).
struct Registrations {
    std::recursive_mutex mutex;
    std::vector<IMMNotificationClient*> endpointClients;
    std::map<std::string, std::vector<IAudioEndpointVolumeCallback*>> volumeCallbacks;
};

Registrations& registrations() {
    static Registrations* r = new Registrations;
    return *r;
}

template <class T> HRESULT addOnce(std::vector<T*>& list, T* item) {
    if (!item) {
        return E_POINTER;
    }
    if (std::find(list.begin(), list.end(), item) == list.end()) {
        item->AddRef();
        list.push_back(item);
    }
    return S_OK;
}

template <class T> HRESULT removeFrom(std::vector<T*>& list, T* item) {
    auto it = std::find(list.begin(), list.end(), item);
    if (!item || it == list.end()) {
        return E_INVALIDARG;
    }
    list.erase(it);
    item->Release();
    return S_OK;
}

struct Refusals {
    std::mutex mutex;
    std::vector<RefusedCall> calls;
};

Refusals& refusals() {
    static Refusals* r = new Refusals;
    return *r;
}

} // namespace

std::vector<RefusedCall> takeRefusedCalls() {
    std::lock_guard lock(refusals().mutex);
    return std::exchange(refusals().calls, {});
}

HRESULT refuseInsideCallback(const char* operation) {
    // Every delivery runs on the notification thread, so being there means being inside one.
    if (!onNotificationThread()) {
        return S_OK;
    }
    std::lock_guard lock(refusals().mutex);
    refusals().calls.push_back({operation, ILLEGAL_METHOD_CALL});
    return ILLEGAL_METHOD_CALL;
}

void postNotification(std::function<void()> delivery) {
    notificationThread().post(std::move(delivery));
}

void waitForNotifications() {
    notificationThread().flush();
}

bool onNotificationThread() {
    return notificationThread().isCurrent();
}

HRESULT registerEndpointClient(IMMNotificationClient* client) {
    std::lock_guard lock(registrations().mutex);
    return addOnce(registrations().endpointClients, client);
}

HRESULT unregisterEndpointClient(IMMNotificationClient* client) {
    std::lock_guard lock(registrations().mutex);
    return removeFrom(registrations().endpointClients, client);
}

void notifyEndpointClients(std::function<void(IMMNotificationClient*)> f) {
    postNotification([f = std::move(f)] {
        Registrations& r = registrations();
        std::lock_guard lock(r.mutex);
        std::vector<IMMNotificationClient*> clients = r.endpointClients;
        for (IMMNotificationClient* client : clients) {
            auto& now = r.endpointClients;
            if (std::find(now.begin(), now.end(), client) != now.end()) {
                f(client);
            }
        }
    });
}

HRESULT registerVolumeCallback(const std::string& endpointId, IAudioEndpointVolumeCallback* cb) {
    std::lock_guard lock(registrations().mutex);
    return addOnce(registrations().volumeCallbacks[endpointId], cb);
}

HRESULT unregisterVolumeCallback(const std::string& endpointId, IAudioEndpointVolumeCallback* cb) {
    std::lock_guard lock(registrations().mutex);
    return removeFrom(registrations().volumeCallbacks[endpointId], cb);
}

void notifyVolumeCallbacks(const std::string& endpointId, const GUID& context, bool muted,
                           float master, const std::vector<float>& channels) {
    postNotification([=] {
        // The record ends in a channel array of variable length.
        std::size_t extra = channels.empty() ? 0 : channels.size() - 1;
        std::vector<unsigned char> storage(sizeof(AUDIO_VOLUME_NOTIFICATION_DATA) +
                                           extra * sizeof(float));
        auto* data = reinterpret_cast<AUDIO_VOLUME_NOTIFICATION_DATA*>(storage.data());
        data->guidEventContext = context;
        data->bMuted = muted;
        data->fMasterVolume = master;
        data->nChannels = UINT(channels.size());
        std::copy(channels.begin(), channels.end(), data->afChannelVolumes);

        Registrations& r = registrations();
        std::lock_guard lock(r.mutex);
        std::vector<IAudioEndpointVolumeCallback*> callbacks = r.volumeCallbacks[endpointId];
        for (IAudioEndpointVolumeCallback* cb : callbacks) {
            auto& now = r.volumeCallbacks[endpointId];
            if (std::find(now.begin(), now.end(), cb) != now.end()) {
                cb->OnNotify(data);
            }
        }
    });
}

} // namespace sim
