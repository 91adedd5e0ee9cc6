#include "foundation/qelSystem.h"

#include <cerrno>

namespace qel {

// The platform's sleep: on the simulated platform time may be virtual.
void System::mssleep(unsigned int milliseconds) {
    Sleep(milliseconds);
}

std::FILE* System::fopen(const String& path, const String& mode, DWORD* error) {
    errno = 0;
#ifdef _WIN32
    std::FILE* file = ::_wfopen(reinterpret_cast<const wchar_t*>(path.getUCS2Buffer()),
                                reinterpret_cast<const wchar_t*>(mode.getUCS2Buffer()));
#else
    std::FILE* file = std::fopen(path.getUTF8String(), mode.getUTF8String());
#endif
    if (!file && error) {
        *error = DWORD(errno);
    }
    return file;
}

bool mutex::init(CRITICAL_SECTION& section) {
    InitializeCriticalSection(&section);
    return true;
}

void mutex::lock(CRITICAL_SECTION& section) {
    EnterCriticalSection(&section);
}

bool mutex::unlock(CRITICAL_SECTION& section) {
    LeaveCriticalSection(&section);
    return true;
}

bool mutex::destroy(CRITICAL_SECTION& section) {
    DeleteCriticalSection(&section);
    return true;
}

} // namespace qel
