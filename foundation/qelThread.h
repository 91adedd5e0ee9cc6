// qel::ManagedThread runs a callable on its own thread and keeps its exit code;
// qel::Stopwatch measures elapsed time from its construction, on the platform's clock.
#pragma once

#include "foundation/export.h"
#include "platform/win32.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace qel {

class LIBAUDIO_API ManagedThread {
public:
    typedef std::function<int(ManagedThread&)> Function;

    explicit ManagedThread(Function function, void* context = nullptr);
    ~ManagedThread(); // joins a thread that is still running
    ManagedThread(const ManagedThread&) = delete;
    ManagedThread& operator=(const ManagedThread&) = delete;

    // Starts the thread; false when it is already started or there is nothing to run.
    bool run(const char* name);
    // Waits for the thread; false when it was never started or is already joined, or
    // when called from the thread itself.
    bool join();
    bool isRunning() const { return m_running.load(); }
    // The callable's result; false while it runs or before it ran. An escaped exception
    // gives -1.
    bool getExitCode(int* code) const;
    void* context() const { return m_context; }
    const std::string& name() const { return m_name; }

private:
    static DWORD WINAPI start(LPVOID self);
    void body();

    Function m_function;
    void* m_context;
    std::string m_name;
    HANDLE m_handle = nullptr; // the platform's thread: its waits are the platform's too
    std::atomic<std::thread::id> m_id{};
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_finished{false};
    int m_exitCode = 0;
};

class LIBAUDIO_API Stopwatch {
public:
    Stopwatch();
    ~Stopwatch();
    unsigned int getElapsedMilliseconds() const;

private:
    std::uint64_t m_start; // the platform's tick count in milliseconds
};

} // namespace qel
