// The clock that the simulated platform's streams, Sleep and GetTickCount64 run on.
//
// Real time is the steady clock. Virtual time moves only when threads wait on it: a
// sleeping thread, or a stream's thread that polls and finds nothing to do, asks for a
// deadline, and once every thread that runs a stream is waiting the clock jumps to the
// earliest deadline. So a recording of a second takes as long as the work it causes, and
// players and recorders move in lockstep whatever the scheduler does. A thread that runs a
// stream but does not come back to wait holds time up for at most a short real-time grace.
// Threads that the platform started (CreateThread) count from their start to their end,
// and a wait on a thread or an event counts as waiting.
#pragma once

#include "platform/sim/control.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace sim {

class Clock {
public:
    static Clock& instance();

    ClockMode mode() const;
    void setMode(ClockMode mode);
    // 100-ns units since the clock was first used; never goes back.
    Hns now() const;
    // Returns once the clock has reached deadline.
    void waitUntil(Hns deadline);
    // Virtual time: one step of waiting for deadline, at most about a millisecond of real
    // time, for a thread that also waits for something else.
    void waitBriefly(Hns deadline);

    // Threads the platform started: virtual time waits for them while they live.
    void participantBegins(std::thread::id thread);
    void participantEnds(std::thread::id thread);

    // The source of the threads that run streams, and what runs each time virtual time
    // moves. Both are called under the clock's lock.
    void setOwners(std::function<std::vector<std::thread::id>()> owners);
    void setAdvanceHook(std::function<void(Hns)> hook);
    // The set of threads that run streams may have changed.
    void ownersChanged();
    void hold(bool held);

private:
    Clock();
    Hns realNow() const;
    void waitVirtual(Hns deadline);
    // One short round of a wait under the lock: moves time on when every owner waits.
    void waitStep(std::unique_lock<std::mutex>& lock);
    bool ownersAllWaiting() const;
    void advanceToEarliestDeadline();

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::atomic<ClockMode> m_mode{ClockMode::Real};
    std::atomic<Hns> m_virtualNow{0};
    std::atomic<Hns> m_realOffset{0}; // added to the steady clock's reading in real mode
    std::map<std::thread::id, Hns> m_waiters;
    std::map<std::thread::id, int> m_holders;
    std::map<std::thread::id, int> m_participants;
    std::function<std::vector<std::thread::id>()> m_owners;
    std::function<void(Hns)> m_advance;
};

} // namespace sim
