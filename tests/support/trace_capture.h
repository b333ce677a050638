#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "qstd/trace_file.h"

namespace test {

/// Collects the trace's records up to a level while it lives.
class TraceCapture {
public:
    struct Record {
        int level;
        std::string function;
        std::string source;
        int line;
        std::string text;
    };

    explicit TraceCapture(int level) {
        qstd::TraceFile::GetInstance().Listen(
            [this](const qstd::TraceFile::Record& record) {
                const std::lock_guard<std::mutex> guard(m_mutex);
                m_records.push_back({record.level, std::string(record.function), std::string(record.source),
                                     record.line, std::string(record.text)});
            },
            level);
    }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;
    ~TraceCapture() { qstd::TraceFile::GetInstance().Listen(nullptr, 0); }

    std::vector<Record> Records() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_records;
    }

    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const Record& record : Records()) {
            texts.push_back(record.text);
        }
        return texts;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Record> m_records;
};

}  // namespace test
