#include "LibraryLog.h"

#include "Terminal.h"

#include "foundation/qelLog.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace audiodiag {

namespace {

using Priority = qel::LoggerPriority;

// A record as the library's own sink writes it: "ERROR libAudio.AudioCaptureEx: 133 ...".
std::string recordLine(const qel::LogRecord& record) {
    static const char* const names[] = {"ALL", "DEBUG", "INFO", "ERROR", "FATAL", "OFF"};
    const char* name = record.priority >= 0 && record.priority <= 5 ? names[record.priority] : "?";
    return std::string(name) + " " + record.logger + ": " + record.text;
}

// A stream that keeps failing must not fill the memory; the first records say why.
constexpr std::size_t kKeptRecords = 200;

} // namespace

class LibraryLog::Sink : public qel::LogSink {
public:
    int liveLevel = Priority::PRIORITY_OFF;
    int fileLevel = Priority::PRIORITY_OFF;
    std::FILE* file = nullptr;
    std::vector<std::string> kept;
    std::size_t dropped = 0;

    ~Sink() override {
        if (file) {
            std::fclose(file);
        }
    }

    // The library calls this for one record at a time, from any thread.
    void write(const qel::LogRecord& record) override {
        std::string line = recordLine(record);
        if (file && record.priority >= fileLevel) {
            std::fprintf(file, "%s\n", line.c_str());
            std::fflush(file);
        }
        if (record.priority >= liveLevel) {
            writeErrorLine(line);
        } else if (record.priority >= Priority::PRIORITY_ERROR) {
            if (kept.size() < kKeptRecords) {
                kept.push_back(std::move(line));
            } else {
                ++dropped;
            }
        }
    }

    int lowestLevel() const {
        return std::min({liveLevel, fileLevel, int(Priority::PRIORITY_ERROR)});
    }
};

LibraryLog::LibraryLog() = default;

LibraryLog::~LibraryLog() {
    if (m_sink) {
        qel::LogFactory::setSink(nullptr);
    }
}

bool LibraryLog::open(const GlobalOptions& options, std::string& why) {
    const char* environment = std::getenv("LIBAUDIO_LOG");
    const bool asked = options.verbosity > 0 || !options.logPath.empty();
    if (!asked && environment && *environment) {
        return true;
    }
    auto sink = std::make_unique<Sink>();
    const int detail = options.verbosity >= 2 ? Priority::PRIORITY_DEBUG : Priority::PRIORITY_INFO;
    if (options.verbosity > 0) {
        sink->liveLevel = detail;
    }
    if (!options.logPath.empty()) {
        sink->file = std::fopen(options.logPath.c_str(), "w");
        if (!sink->file) {
            why = "cannot write the log to " + options.logPath + ": " + std::strerror(errno);
            return false;
        }
        sink->fileLevel = detail;
    }
    qel::LogFactory::setPriority(sink->lowestLevel());
    m_sink = std::move(sink);
    qel::LogFactory::setSink(m_sink.get());
    return true;
}

void LibraryLog::finish(int exitCode) {
    if (!m_sink) {
        return;
    }
    // Whatever logs after the command (workers winding down, static destructors) has
    // nothing to add and must not reach stderr through the default sink.
    qel::LogFactory::setPriority(Priority::PRIORITY_OFF);
    qel::LogFactory::setSink(nullptr);
    // Only a failed operation: what the library logged on the way may explain it, while a
    // misused command is explained by its own message.
    if (exitCode == EXIT_FAILED && !m_sink->kept.empty()) {
        writeErrorLine("audiodiag: libAudio logged:");
        for (const std::string& line : m_sink->kept) {
            writeErrorLine("  " + line);
        }
        if (m_sink->dropped > 0) {
            writeErrorLine("  ... and " + std::to_string(m_sink->dropped) + " more");
        }
    }
    m_sink.reset();
}

} // namespace audiodiag
