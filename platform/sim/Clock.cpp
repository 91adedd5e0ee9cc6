#include "platform/sim/Clock.h"
#include "platform/standin/sync.h"

#include <chrono>
#include <cstdlib>
#include <cstring>

namespace sim {

namespace {

// How long a waiting thread gives a stream's thread that is busy elsewhere before time
// moves on without it. Long enough that a thread merely slowed down (a loaded machine, a
// sanitizer) is not left behind: that would starve its stream.
constexpr auto kOwnerGrace = std::chrono::milliseconds(250);
constexpr auto kBriefly = std::chrono::milliseconds(1);

std::chrono::steady_clock::time_point origin() {
    static const auto start = std::chrono::steady_clock::now();
    return start;
}

ClockMode modeFromEnvironment() {
    const char* chosen = std::getenv("LIBAUDIO_CLOCK");
    return chosen && std::strcmp(chosen, "virtual") == 0 ? ClockMode::Virtual : ClockMode::Real;
}

} // namespace

Clock& Clock::instance() {
    static Clock* clock = new Clock; // used by threads until the very end of the process
    return *clock;
}

Clock::Clock() {
    origin();
    m_mode = modeFromEnvironment();
}

Hns Clock::realNow() const {
    auto elapsed = std::chrono::steady_clock::now() - origin();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 100;
}

ClockMode Clock::mode() const {
    return m_mode.load();
}

void Clock::setMode(ClockMode mode) {
    std::lock_guard lock(m_mutex);
    if (mode == m_mode.load()) {
        return;
    }
    // Time goes on from where it stood in either direction.
    if (mode == ClockMode::Virtual) {
        m_virtualNow = realNow() + m_realOffset;
    } else {
        m_realOffset = m_virtualNow.load() - realNow();
    }
    m_mode = mode;
    m_changed.notify_all();
}

Hns Clock::now() const {
    if (m_mode.load() == ClockMode::Virtual) {
        return m_virtualNow.load();
    }
    return realNow() + m_realOffset.load();
}

void Clock::waitUntil(Hns deadline) {
    if (m_mode.load() == ClockMode::Virtual) {
        waitVirtual(deadline);
        return;
    }
    Hns left = deadline - now();
    if (left > 0) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(left * 100));
    }
}

void Clock::waitVirtual(Hns deadline) {
    std::unique_lock lock(m_mutex);
    const std::thread::id self = std::this_thread::get_id();
    m_waiters[self] = deadline;
    m_changed.notify_all();
    // The grace runs from the last move of time, not from the last notification: threads
    // that poll an object notify every millisecond and would otherwise keep it from ending.
    auto graceEnds = std::chrono::steady_clock::now() + kOwnerGrace;
    Hns seen = m_virtualNow.load();
    while (m_mode.load() == ClockMode::Virtual && m_virtualNow.load() < deadline) {
        const auto realNow = std::chrono::steady_clock::now();
        if (ownersAllWaiting()) {
            advanceToEarliestDeadline();
        } else if (realNow >= graceEnds) {
            advanceToEarliestDeadline(); // a thread busy elsewhere does not stop time for ever
            graceEnds = realNow + kOwnerGrace;
        } else {
            m_changed.wait_until(lock, graceEnds);
        }
        if (m_virtualNow.load() != seen) {
            seen = m_virtualNow.load();
            graceEnds = std::chrono::steady_clock::now() + kOwnerGrace;
        }
    }
    m_waiters.erase(self);
    lock.unlock();
    // A thread that sleeps in a loop would otherwise take the lock straight back and starve
    // threads that have work to finish before the time they are waited for.
    std::this_thread::yield();
    if (m_mode.load() == ClockMode::Real) {
        waitUntil(deadline); // the mode changed while waiting
    }
}

void Clock::waitStep(std::unique_lock<std::mutex>& lock) {
    if (ownersAllWaiting()) {
        advanceToEarliestDeadline();
    } else {
        m_changed.wait_for(lock, kBriefly);
    }
}

void Clock::waitBriefly(Hns deadline) {
    std::unique_lock lock(m_mutex);
    const std::thread::id self = std::this_thread::get_id();
    m_waiters[self] = deadline;
    m_changed.notify_all();
    const Hns before = m_virtualNow.load();
    auto until = std::chrono::steady_clock::now() + kBriefly;
    while (m_virtualNow.load() == before && m_virtualNow.load() < deadline &&
           std::chrono::steady_clock::now() < until) {
        waitStep(lock);
    }
    m_waiters.erase(self);
}

void Clock::participantBegins(std::thread::id thread) {
    std::lock_guard lock(m_mutex);
    ++m_participants[thread];
}

void Clock::participantEnds(std::thread::id thread) {
    std::lock_guard lock(m_mutex);
    m_participants.erase(thread);
    m_changed.notify_all();
}

// A stream's thread counts as waiting only while its deadline lies ahead: one whose
// deadline has come is about to run.
bool Clock::ownersAllWaiting() const {
    const Hns now = m_virtualNow.load();
    std::vector<std::thread::id> owners = m_owners ? m_owners() : std::vector<std::thread::id>{};
    for (const auto& [holder, count] : m_holders) {
        owners.push_back(holder);
    }
    for (const auto& [participant, count] : m_participants) {
        owners.push_back(participant);
    }
    for (std::thread::id owner : owners) {
        auto waiter = m_waiters.find(owner);
        if (waiter == m_waiters.end() || waiter->second <= now) {
            return false;
        }
    }
    return true;
}

void Clock::advanceToEarliestDeadline() {
    const Hns now = m_virtualNow.load();
    Hns earliest = INT64_MAX;
    for (const auto& [thread, deadline] : m_waiters) {
        if (deadline > now && deadline < earliest) {
            earliest = deadline;
        }
    }
    if (earliest == INT64_MAX) {
        return;
    }
    m_virtualNow = earliest;
    if (m_advance) {
        m_advance(earliest);
    }
    m_changed.notify_all();
}

void Clock::setOwners(std::function<std::vector<std::thread::id>()> owners) {
    std::lock_guard lock(m_mutex);
    m_owners = std::move(owners);
}

void Clock::ownersChanged() {
    std::lock_guard lock(m_mutex);
    m_changed.notify_all();
}

void Clock::hold(bool held) {
    std::lock_guard lock(m_mutex);
    const std::thread::id self = std::this_thread::get_id();
    if (held) {
        ++m_holders[self];
    } else if (m_holders.count(self) && --m_holders[self] == 0) {
        m_holders.erase(self);
    }
    m_changed.notify_all();
}

void Clock::setAdvanceHook(std::function<void(Hns)> hook) {
    std::lock_guard lock(m_mutex);
    m_advance = std::move(hook);
}

void setClockMode(ClockMode mode) {
    Clock::instance().setMode(mode);
}

ClockMode clockMode() {
    return Clock::instance().mode();
}

void holdVirtualTime(bool hold) {
    Clock::instance().hold(hold);
}

Hns clockNow() {
    return Clock::instance().now();
}

} // namespace sim

extern "C" {

void Sleep(DWORD milliseconds) {
    sim::Clock& clock = sim::Clock::instance();
    if (milliseconds == 0) {
        std::this_thread::yield();
        return;
    }
    clock.waitUntil(clock.now() + sim::Hns(milliseconds) * 10000);
}

ULONGLONG GetTickCount64(void) {
    return ULONGLONG(sim::Clock::instance().now() / 10000);
}
}
