#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "qstd/log.h"

namespace test {

/// Collects what is handed to the log while it lives, each message as "I: text" (W, E, C for the other levels).
class LogCapture {
public:
    LogCapture() : m_sink(std::make_shared<Sink>()), m_wasEnabled(qstd::Log::m_enabled) {
        qstd::Log::GetInstance().AddSink(m_sink);
        qstd::Log::m_enabled = true;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    ~LogCapture() {
        qstd::Log::GetInstance().RemoveSink(m_sink);
        qstd::Log::m_enabled = m_wasEnabled;
    }

    std::vector<std::string> Messages() const {
        const std::lock_guard<std::mutex> guard(m_sink->mutex);
        return m_sink->messages;
    }

    int Count(const std::string& message) const {
        const std::lock_guard<std::mutex> guard(m_sink->mutex);
        return static_cast<int>(std::count(m_sink->messages.begin(), m_sink->messages.end(), message));
    }

    void Clear() {
        const std::lock_guard<std::mutex> guard(m_sink->mutex);
        m_sink->messages.clear();
    }

    /// Waits until the message is there. @return whether it came.
    bool WaitFor(const std::string& message, std::chrono::seconds limit = std::chrono::seconds(100)) const {
        std::unique_lock<std::mutex> lock(m_sink->mutex);
        return m_sink->changed.wait_for(lock, limit, [&] {
            return std::find(m_sink->messages.begin(), m_sink->messages.end(), message) != m_sink->messages.end();
        });
    }

private:
    struct Sink : qstd::LogSink {
        void Write(qstd::LogLevel_e level, const qstd::Time& /*time*/, const std::string& text) override {
            static constexpr const char* c_letters = "IWEC";
            const std::lock_guard<std::mutex> guard(mutex);
            messages.push_back(std::string(1, c_letters[static_cast<int>(level)]) + ": " + text);
            changed.notify_all();
        }
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<std::string> messages;
    };

    std::shared_ptr<Sink> m_sink;
    bool m_wasEnabled;
};

}  // namespace test
