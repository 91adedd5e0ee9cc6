// Logging: named loggers from a process-wide factory, streams that build a message, and
// trace scopes. Every message starts with the number of its logging statement and a blank.
//
// LIBAUDIO_LOG selects the minimum priority and where records go:
//   LIBAUDIO_LOG=<priority>[:<file>]   priority 1-5 or debug|info|error|fatal|off
// Unset, priority 3 (errors) goes to stderr.
#pragma once

#include "foundation/export.h"
#include "foundation/qelString.h"

#include <atomic>
#include <string>

namespace qel {

struct LoggerPriority {
    enum LOGGER_PRIORITY {
        PRIORITY_ALL = 0,
        PRIORITY_DEBUG = 1,
        PRIORITY_INFO = 2,
        PRIORITY_ERROR = 3,
        PRIORITY_FATAL = 4,
        PRIORITY_OFF = 5,
    };
};

// Streams an integer in hexadecimal, "0x" and at least `digits` upper-case digits.
struct Hex {
    unsigned long long value;
    int digits = 8;
};

class LIBAUDIO_API LoggerStream {
public:
    LoggerStream();
    ~LoggerStream();

    LoggerStream& operator+(const char* text);
    LoggerStream& operator+(const String& text);
    LoggerStream& operator<<(int value);
    LoggerStream& operator<<(unsigned int value);
    LoggerStream& operator<<(long value);
    LoggerStream& operator<<(unsigned long value);
    LoggerStream& operator<<(long long value);
    LoggerStream& operator<<(unsigned short value);
    LoggerStream& operator<<(unsigned long long value);
    LoggerStream& operator<<(double value);
    LoggerStream& operator<<(const char* text);
    LoggerStream& operator<<(const std::string& text);
    LoggerStream& operator<<(const String& text);
    LoggerStream& operator<<(const CString& text);
    LoggerStream& operator<<(Hex value);

    template <class... Parts> LoggerStream& put(const Parts&... parts) {
        (*this << ... << parts);
        return *this;
    }
    const std::string& text() const { return m_text; }

private:
    std::string m_text;
};

struct LogRecord {
    const char* logger;
    int priority;
    const std::string& text;
};

// Where records go. The factory calls write() for one record at a time.
class LIBAUDIO_API LogSink {
public:
    virtual ~LogSink();
    virtual void write(const LogRecord& record) = 0;
};

class LIBAUDIO_API Logger {
public:
    explicit Logger(const char* name);
    const char* name() const { return m_name.c_str(); }
    // The logger's own threshold; 0 lets the factory's priority decide.
    int getThreshold() const { return m_threshold.load(std::memory_order_relaxed); }
    void setThreshold(int priority) { m_threshold.store(priority, std::memory_order_relaxed); }
    // The effective minimum priority: the higher of the threshold and the factory's.
    int resolvePriority() const;
    bool isEnabled(int priority) const;
    bool log(int priority, const LoggerStream& message);

private:
    std::string m_name;
    std::atomic<int> m_threshold{0};
};

class LIBAUDIO_API LogFactory {
public:
    static int getPriority();
    static void setPriority(int priority);
    // Creates the logger of that name, or finds it if it exists; loggers live forever.
    static bool createLogger(const char* name, Logger*& out);
    static Logger* getLogger(const char* name);
    // Installs a sink and returns the one it replaces; null restores the default sink.
    static LogSink* setSink(LogSink* sink);
    // Re-reads LIBAUDIO_LOG.
    static void configureFromEnvironment();
    static void deliver(const LogRecord& record);
};

// Logs entry and exit of a scope at debug priority when given a logger.
class LIBAUDIO_API TraceLogger {
public:
    TraceLogger(Logger* logger, const char* scopeName, const char* sourceFile, int line);
    ~TraceLogger();
    TraceLogger(const TraceLogger&) = delete;
    TraceLogger& operator=(const TraceLogger&) = delete;

private:
    Logger* m_logger;
    const char* m_scopeName;
    int m_line;
};

// The logger for a trace scope: only when debug output can be produced at all.
LIBAUDIO_API Logger* traceLogger(Logger* logger);

} // namespace qel

// One logger per source unit: put QEL_DEFINE_UNIT_LOGGER("name") in an anonymous
// namespace; the macros below log through it.
#define QEL_DEFINE_UNIT_LOGGER(loggerName)                                                         \
    ::qel::Logger* unitLogger() {                                                                  \
        static ::qel::Logger* const logger = ::qel::LogFactory::getLogger(loggerName);             \
        return logger;                                                                             \
    }

#define QEL_LOG_AT(priority, tag, ...)                                                             \
    do {                                                                                           \
        ::qel::Logger* qelLogger_ = unitLogger();                                                  \
        if (qelLogger_->isEnabled(::qel::LoggerPriority::priority)) {                              \
            ::qel::LoggerStream qelStream_;                                                        \
            qelStream_.put(static_cast<unsigned long long>(tag), " ", __VA_ARGS__);                \
            qelLogger_->log(::qel::LoggerPriority::priority, qelStream_);                          \
        }                                                                                          \
    } while (0)

#define QEL_DEBUG(...) QEL_LOG_AT(PRIORITY_DEBUG, __LINE__, __VA_ARGS__)
#define QEL_INFO(...) QEL_LOG_AT(PRIORITY_INFO, __LINE__, __VA_ARGS__)
#define QEL_ERROR(...) QEL_LOG_AT(PRIORITY_ERROR, __LINE__, __VA_ARGS__)
#define QEL_FATAL(...) QEL_LOG_AT(PRIORITY_FATAL, __LINE__, __VA_ARGS__)

#define QEL_TRACE_SCOPE(scopeName)                                                                 \
    ::qel::TraceLogger qelTraceScope_(::qel::traceLogger(unitLogger()), scopeName, __FILE__,       \
                                      __LINE__)
