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
    if (m_thread.joinable()) {
        if (m_thread.get_id() == std::this_thread::get_id()) {
            m_thread.detach();
        } else {
            m_thread.join();
        }
    }
}

bool ManagedThread::run(const char* name) {
    if (!m_function || m_thread.joinable() || m_running.load()) {
        return false;
    }
    m_name = name ? name : "";
    m_finished.store(false);
    m_running.store(true);
    try {
        m_thread = std::thread(&ManagedThread::body, this);
    } catch (const std::system_error& error) {
        m_running.store(false);
        QEL_ERROR("Cannot start thread ", m_name, ": ", error.what());
        return false;
    }
    return true;
}

void ManagedThread::body() {
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
    if (!m_thread.joinable() || m_thread.get_id() == std::this_thread::get_id()) {
        return false;
    }
    m_thread.join();
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
