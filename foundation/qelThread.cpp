#include "foundation/qelThread.h"
#include "foundation/qelLog.h"
#include "platform/win32.h"

#if defined(__linux__)
#include <pthread.h>
#endif

namespace qel {

namespace {
QEL_DEFINE_UNIT_LOGGER("qel.thread")

void nameCurrentThread(const std::string& name) {
#if defined(__linux__)
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
#else
    (void)name;
#endif
}
} // namespace

ManagedThread::ManagedThread(Function function, void* context)
    : m_function(std::move(function)), m_context(context) {}

ManagedThread::~ManagedThread() {
    if (m_id.load() == std::this_thread::get_id()) {
        CloseHandle(m_handle); // destroyed by its own thread: that thread simply goes on
        return;
    }
    join();
}

bool ManagedThread::run(const char* name) {
    if (!m_function || m_handle || m_running.load()) {
        return false;
    }
    m_name = name ? name : "";
    m_finished.store(false);
    m_running.store(true);
    m_handle = CreateThread(nullptr, 0, &ManagedThread::start, this, 0, nullptr);
    if (!m_handle) {
        m_running.store(false);
        QEL_ERROR("Cannot start thread ", m_name, ": error ", (unsigned int)GetLastError());
        return false;
    }
    return true;
}

DWORD WINAPI ManagedThread::start(LPVOID self) {
    static_cast<ManagedThread*>(self)->body();
    return 0;
}

void ManagedThread::body() {
    m_id.store(std::this_thread::get_id());
    nameCurrentThread(m_name);
    int code = -1;
    try {
        code = m_function(*this);
    } catch (const std::exception& error) {
        QEL_FATAL("Thread ", m_name, " ended by an exception: ", error.what());
    } catch (...) {
        QEL_FATAL("Thread ", m_name, " ended by an unknown exception");
    }
    m_exitCode = code;
    m_finished.store(true);
    m_running.store(false);
}

bool ManagedThread::join() {
    // The thread itself asks first: its handle is stored by run() after the thread started.
    if (m_id.load() == std::this_thread::get_id() || !m_handle) {
        return false;
    }
    WaitForSingleObject(m_handle, INFINITE);
    CloseHandle(m_handle);
    m_handle = nullptr;
    return true;
}

bool ManagedThread::getExitCode(int* code) const {
    if (!code || !m_finished.load()) {
        return false;
    }
    *code = m_exitCode;
    return true;
}

// The platform's clock, not the C++ one: the simulated platform may run on virtual time.
Stopwatch::Stopwatch() : m_start(GetTickCount64()) {}
Stopwatch::~Stopwatch() = default;

unsigned int Stopwatch::getElapsedMilliseconds() const {
    return unsigned(GetTickCount64() - m_start);
}

} // namespace qel
