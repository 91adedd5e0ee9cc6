#include "foundation/qelLog.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>

namespace qel {

namespace {

const char* priorityName(int priority) {
    static const char* const names[] = {"ALL", "DEBUG", "INFO", "ERROR", "FATAL", "OFF"};
    return priority >= 0 && priority <= 5 ? names[priority] : "?";
}

int parsePriority(const std::string& text) {
    static const char* const names[] = {"all", "debug", "info", "error", "fatal", "off"};
    for (int p = 0; p <= 5; ++p) {
        if (text == names[p] || text == std::to_string(p)) {
            return p;
        }
    }
    return -1;
}

// Writes "PRIORITY logger: text" lines to stderr or to a file.
class StreamSink : public LogSink {
public:
    void open(const std::string& path) {
        close();
        if (!path.empty()) {
            m_file = std::fopen(path.c_str(), "a");
            if (!m_file) {
                std::fprintf(stderr, "libAudio: cannot open log file %s\n", path.c_str());
            }
        }
    }
    void close() {
        if (m_file) {
            std::fclose(m_file);
            m_file = nullptr;
        }
    }
    void write(const LogRecord& record) override {
        std::FILE* out = m_file ? m_file : stderr;
        std::fprintf(out, "%s %s: %s\n", priorityName(record.priority), record.logger,
                     record.text.c_str());
        std::fflush(out);
    }

private:
    std::FILE* m_file = nullptr;
};

struct Registry {
    std::atomic<int> priority{LoggerPriority::PRIORITY_ERROR};
    std::mutex loggersMutex;
    std::map<std::string, std::unique_ptr<Logger>> loggers;
    std::recursive_mutex sinkMutex;
    StreamSink defaultSink;
    LogSink* sink = &defaultSink;

    Registry() { configure(); }
    void configure() {
        const char* setting = std::getenv("LIBAUDIO_LOG");
        std::string text = setting ? setting : "";
        std::size_t colon = text.find(':');
        int p = parsePriority(text.substr(0, colon));
        priority.store(p >= 0 ? p : int(LoggerPriority::PRIORITY_ERROR));
        std::lock_guard lock(sinkMutex);
        defaultSink.open(colon == std::string::npos ? std::string() : text.substr(colon + 1));
    }
};

Registry& registry() {
    // Never destroyed: loggers are used from static destructors and detached threads.
    static Registry* instance = new Registry;
    return *instance;
}

template <class T> void appendNumber(std::string& out, T value) {
    char digits[40];
    auto result = std::to_chars(digits, digits + sizeof digits, value);
    out.append(digits, result.ptr);
}

} // namespace

LoggerStream::LoggerStream() = default;
LoggerStream::~LoggerStream() = default;

LoggerStream& LoggerStream::operator+(const char* text) {
    return *this << text;
}
LoggerStream& LoggerStream::operator+(const String& text) {
    return *this << text;
}
LoggerStream& LoggerStream::operator<<(int value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(unsigned int value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(long value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(unsigned long value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(long long value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(unsigned short value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(unsigned long long value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(double value) {
    appendNumber(m_text, value);
    return *this;
}
LoggerStream& LoggerStream::operator<<(const char* text) {
    m_text += text ? text : "(null)";
    return *this;
}
LoggerStream& LoggerStream::operator<<(const std::string& text) {
    m_text += text;
    return *this;
}
LoggerStream& LoggerStream::operator<<(const String& text) {
    m_text += text.getUTF8String().str();
    return *this;
}
LoggerStream& LoggerStream::operator<<(const CString& text) {
    m_text += text.str();
    return *this;
}
LoggerStream& LoggerStream::operator<<(Hex value) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "0x%0*llX", value.digits, value.value);
    m_text += digits;
    return *this;
}

LogSink::~LogSink() = default;

Logger::Logger(const char* name) : m_name(name) {}

int Logger::resolvePriority() const {
    int threshold = getThreshold();
    int factory = LogFactory::getPriority();
    return threshold > factory ? threshold : factory;
}

bool Logger::isEnabled(int priority) const {
    return LogFactory::getPriority() <= priority && getThreshold() <= priority &&
           resolvePriority() <= priority;
}

bool Logger::log(int priority, const LoggerStream& message) {
    if (!isEnabled(priority)) {
        return false;
    }
    LogFactory::deliver(LogRecord{m_name.c_str(), priority, message.text()});
    return true;
}

int LogFactory::getPriority() {
    return registry().priority.load(std::memory_order_relaxed);
}

void LogFactory::setPriority(int priority) {
    registry().priority.store(priority);
}

bool LogFactory::createLogger(const char* name, Logger*& out) {
    Registry& r = registry();
    std::lock_guard lock(r.loggersMutex);
    std::unique_ptr<Logger>& slot = r.loggers[name ? name : ""];
    if (!slot) {
        slot = std::make_unique<Logger>(name ? name : "");
    }
    out = slot.get();
    return true;
}

Logger* LogFactory::getLogger(const char* name) {
    Logger* logger = nullptr;
    createLogger(name, logger);
    return logger;
}

LogSink* LogFactory::setSink(LogSink* sink) {
    Registry& r = registry();
    std::lock_guard lock(r.sinkMutex);
    LogSink* previous = r.sink == &r.defaultSink ? nullptr : r.sink;
    r.sink = sink ? sink : &r.defaultSink;
    return previous;
}

void LogFactory::configureFromEnvironment() {
    registry().configure();
}

void LogFactory::deliver(const LogRecord& record) {
    Registry& r = registry();
    std::lock_guard lock(r.sinkMutex);
    r.sink->write(record);
}

TraceLogger::TraceLogger(Logger* logger, const char* scopeName, const char*, int line)
    : m_logger(logger), m_scopeName(scopeName), m_line(line) {
    if (m_logger) {
        LoggerStream stream;
        stream.put(m_line, " Entering ", m_scopeName);
        m_logger->log(LoggerPriority::PRIORITY_DEBUG, stream);
    }
}

TraceLogger::~TraceLogger() {
    if (m_logger) {
        LoggerStream stream;
        stream.put(m_line, " Leaving ", m_scopeName);
        m_logger->log(LoggerPriority::PRIORITY_DEBUG, stream);
    }
}

Logger* traceLogger(Logger* logger) {
    bool traced = LogFactory::getPriority() <= LoggerPriority::PRIORITY_DEBUG &&
                  logger->getThreshold() <= LoggerPriority::PRIORITY_DEBUG;
    return traced ? logger : nullptr;
}

} // namespace qel
