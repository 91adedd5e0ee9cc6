// Kernel objects: events and threads, and the waits on them. In virtual time a wait on an
// object is a wait on the clock too: its time-out is virtual, and the waiting thread lets
// virtual time move on.
#include "platform/sim/Clock.h"
#include "platform/sim/Runtime.h"
#include "platform/standin/sync.h"

#include <chrono>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <thread>

namespace {

class KernelObject {
public:
    virtual ~KernelObject() = default;
    // True once the object is signalled; takes the signal of an auto-reset event.
    virtual bool take() = 0;
    virtual bool waitReal(DWORD milliseconds) = 0;
};

// A signal under a lock, waited for in real time.
template <class State>
bool waitOn(std::mutex& mutex, std::condition_variable& signalled, DWORD milliseconds,
            State&& take) {
    std::unique_lock lock(mutex);
    if (milliseconds == INFINITE) {
        signalled.wait(lock, take);
        return true;
    }
    return signalled.wait_for(lock, std::chrono::milliseconds(milliseconds), take);
}

class Event final : public KernelObject {
public:
    Event(bool manualReset, bool initiallySet) : m_manualReset(manualReset), m_set(initiallySet) {}
    void set(bool value) {
        std::lock_guard lock(m_mutex);
        m_set = value;
        m_signalled.notify_all();
    }
    bool take() override {
        std::lock_guard lock(m_mutex);
        return takeLocked();
    }
    bool waitReal(DWORD milliseconds) override {
        return waitOn(m_mutex, m_signalled, milliseconds, [this] { return takeLocked(); });
    }

private:
    bool takeLocked() {
        bool was = m_set;
        if (!m_manualReset) {
            m_set = false;
        }
        return was;
    }
    std::mutex m_mutex;
    std::condition_variable m_signalled;
    bool m_manualReset;
    bool m_set;
};

// A thread's state outlives both the thread and its handle, whichever ends first.
struct ThreadState {
    std::mutex mutex;
    std::condition_variable signalled;
    bool ended = false;
    DWORD exitCode = STILL_ACTIVE;

    void end(DWORD code) {
        std::lock_guard lock(mutex);
        exitCode = code;
        ended = true;
        signalled.notify_all();
    }
};

class Thread final : public KernelObject {
public:
    explicit Thread(std::shared_ptr<ThreadState> state) : m_state(std::move(state)) {}
    DWORD exitCode() {
        std::lock_guard lock(m_state->mutex);
        return m_state->exitCode;
    }
    bool take() override {
        std::lock_guard lock(m_state->mutex);
        return m_state->ended;
    }
    bool waitReal(DWORD milliseconds) override {
        return waitOn(m_state->mutex, m_state->signalled, milliseconds,
                      [this] { return m_state->ended; });
    }

private:
    std::shared_ptr<ThreadState> m_state;
};

KernelObject* asObject(HANDLE handle) {
    return static_cast<KernelObject*>(handle);
}

// In virtual time: waits until the object is signalled or the virtual time-out has passed.
bool waitVirtual(KernelObject& object, DWORD milliseconds) {
    sim::Clock& clock = sim::Clock::instance();
    const sim::Hns deadline =
        milliseconds == INFINITE ? INT64_MAX : clock.now() + sim::Hns(milliseconds) * 10000;
    for (;;) {
        if (object.take()) {
            return true;
        }
        if (clock.now() >= deadline || clock.mode() != sim::ClockMode::Virtual) {
            return false;
        }
        // A short step on the clock, then the object again: the object's signal does not
        // reach the clock's waiters.
        clock.waitBriefly(deadline);
    }
}

} // namespace

extern "C" {

// Injected fault: "CreateEventW" (any target); its code becomes the last error.
HANDLE CreateEventW(void*, BOOL manualReset, BOOL initialState, LPCWSTR) {
    if (HRESULT fault = sim::injectedFault("CreateEventW", "")) {
        SetLastError(DWORD(fault));
        return nullptr;
    }
    return static_cast<KernelObject*>(new Event(manualReset != FALSE, initialState != FALSE));
}

BOOL SetEvent(HANDLE handle) {
    auto* event = dynamic_cast<Event*>(asObject(handle));
    if (!event) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->set(true);
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    auto* event = dynamic_cast<Event*>(asObject(handle));
    if (!event) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    event->set(false);
    return TRUE;
}

HANDLE CreateThread(void*, std::size_t, LPTHREAD_START_ROUTINE start, LPVOID parameter, DWORD,
                    DWORD* threadId) {
    if (!start) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    auto state = std::make_shared<ThreadState>();
    auto* handle = new Thread(state);
    sim::Clock& clock = sim::Clock::instance();
    try {
        // The thread takes part in virtual time from before CreateThread returns, and it
        // starts only once it is counted.
        auto counted = std::make_shared<std::promise<void>>();
        std::shared_future<void> go = counted->get_future().share();
        std::thread thread([=, &clock] {
            go.wait();
            DWORD code = start(parameter);
            clock.participantEnds(std::this_thread::get_id());
            state->end(code);
        });
        clock.participantBegins(thread.get_id());
        counted->set_value();
        if (threadId) {
            *threadId = DWORD(std::hash<std::thread::id>()(thread.get_id()));
        }
        thread.detach();
    } catch (const std::system_error&) {
        delete handle;
        SetLastError(8); // ERROR_NOT_ENOUGH_MEMORY
        return nullptr;
    }
    return static_cast<KernelObject*>(handle);
}

BOOL GetExitCodeThread(HANDLE handle, DWORD* exitCode) {
    auto* thread = dynamic_cast<Thread*>(asObject(handle));
    if (!thread || !exitCode) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    *exitCode = thread->exitCode();
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return WAIT_FAILED;
    }
    KernelObject& object = *asObject(handle);
    bool signalled = sim::Clock::instance().mode() == sim::ClockMode::Virtual
                         ? waitVirtual(object, milliseconds)
                         : object.waitReal(milliseconds);
    return signalled ? WAIT_OBJECT_0 : WAIT_TIMEOUT;
}

DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL) {
    return WaitForSingleObject(handle, milliseconds);
}

BOOL CloseHandle(HANDLE handle) {
    if (!handle) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    delete asObject(handle);
    return TRUE;
}
}
