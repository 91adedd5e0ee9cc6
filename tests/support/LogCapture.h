// Captures log records for the life of the object, at every priority, so tests can
// assert exact messages. Restores the previous sink and priority afterwards.
#pragma once

#include "foundation/qelLog.h"

#include <mutex>
#include <string>
#include <vector>

namespace testsupport {

struct CapturedRecord {
    std::string logger;
    int priority;
    std::string text;
};

class LogCapture : public qel::LogSink {
public:
    explicit LogCapture(int priority = qel::LoggerPriority::PRIORITY_DEBUG)
        : m_previousPriority(qel::LogFactory::getPriority()) {
        qel::LogFactory::setPriority(priority);
        m_previousSink = qel::LogFactory::setSink(this);
    }
    ~LogCapture() override {
        qel::LogFactory::setSink(m_previousSink);
        qel::LogFactory::setPriority(m_previousPriority);
    }

    void write(const qel::LogRecord& record) override {
        std::lock_guard lock(m_mutex);
        m_records.push_back({record.logger, record.priority, record.text});
    }

    std::vector<CapturedRecord> records() const {
        std::lock_guard lock(m_mutex);
        return m_records;
    }
    // Records of one logger at one priority whose text is exactly text.
    int count(const std::string& logger, int priority, const std::string& text) const {
        int n = 0;
        for (const CapturedRecord& r : records()) {
            n += r.logger == logger && r.priority == priority && r.text == text;
        }
        return n;
    }
    bool has(const std::string& logger, int priority, const std::string& text) const {
        return count(logger, priority, text) > 0;
    }
    // Records of a logger at a priority, in order.
    std::vector<std::string> texts(const std::string& logger, int priority) const {
        std::vector<std::string> out;
        for (const CapturedRecord& r : records()) {
            if (r.logger == logger && r.priority == priority) {
                out.push_back(r.text);
            }
        }
        return out;
    }
    void clear() {
        std::lock_guard lock(m_mutex);
        m_records.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<CapturedRecord> m_records;
    qel::LogSink* m_previousSink = nullptr;
    int m_previousPriority;
};

} // namespace testsupport
