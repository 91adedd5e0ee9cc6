#include "Terminal.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <mutex>

#ifdef _WIN32
#include <io.h>
#define isatty _isatty
#else
#include <unistd.h>
#endif

namespace audiodiag {

namespace {

// Log records arrive from the streams' worker threads while the main thread draws the
// progress line; both go through here.
std::mutex& stderrMutex() {
    static std::mutex mutex;
    return mutex;
}

// The progress line on the terminal now, empty when there is none. Guarded by the mutex.
std::string shownLine;

void eraseShownLine() {
    if (!shownLine.empty()) {
        // Two more: the terminal echoes a Ctrl-C ("^C") after the line.
        std::fprintf(stderr, "\r%s\r", std::string(shownLine.size() + 2, ' ').c_str());
    }
}

void drawLine(const std::string& line) {
    // Spaces, not an escape sequence: a console without them shows the same.
    const std::size_t pad = shownLine.size() > line.size() ? shownLine.size() - line.size() : 0;
    std::fprintf(stderr, "\r%s%s", line.c_str(), std::string(pad, ' ').c_str());
    if (pad > 0) {
        std::fprintf(stderr, "\r%s", line.c_str());
    }
    std::fflush(stderr);
    shownLine = line;
}

// "recording [####....] 1.2 / 3.0 s  level -20.5 dBFS", the time in tenths of a second
std::string progressLine(const std::string& what, long tenths, double seconds,
                         std::optional<double> levelDbfs) {
    const int width = 24;
    const int filled = seconds > 0 ? std::clamp(int(width * tenths / 10.0 / seconds), 0, width) : 0;
    char figures[96];
    std::snprintf(figures, sizeof figures, "] %ld.%ld / %.1f s", tenths / 10, tenths % 10, seconds);
    std::string line =
        what + " [" + std::string(filled, '#') + std::string(width - filled, '.') + figures;
    if (levelDbfs) {
        char level[48];
        // Below what 16 bits can carry there is nothing to read but silence.
        if (*levelDbfs <= -120.0) {
            std::snprintf(level, sizeof level, "  level: silence");
        } else {
            std::snprintf(level, sizeof level, "  level %.1f dBFS", *levelDbfs);
        }
        line += level;
    }
    return line;
}

} // namespace

bool stderrIsTerminal() {
    return isatty(2) != 0;
}

void writeErrorLine(const std::string& line) {
    std::lock_guard lock(stderrMutex());
    eraseShownLine();
    std::fprintf(stderr, "%s\n", line.c_str());
    if (!shownLine.empty()) {
        std::fprintf(stderr, "%s", shownLine.c_str());
    }
    std::fflush(stderr);
}

Progress::Progress(std::string what, double seconds)
    : m_what(std::move(what)), m_seconds(seconds), m_shown(seconds > 1.0 && stderrIsTerminal()) {}

Progress::~Progress() {
    if (m_shown) {
        std::lock_guard lock(stderrMutex());
        eraseShownLine();
        std::fflush(stderr);
        shownLine.clear();
    }
}

void Progress::update(double done, std::optional<double> levelDbfs) {
    if (!m_shown) {
        return;
    }
    // Drawn when the time shown changes: ten times a second is as fast as anyone reads,
    // and the level changes on every call.
    const long tenths = long(std::floor(std::clamp(done, 0.0, m_seconds) * 10));
    if (tenths == m_drawnTenths) {
        return;
    }
    m_drawnTenths = tenths;
    std::lock_guard lock(stderrMutex());
    drawLine(progressLine(m_what, tenths, m_seconds, levelDbfs));
}

} // namespace audiodiag
