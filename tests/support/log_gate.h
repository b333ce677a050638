#pragma once

#include <future>
#include <memory>
#include <string>

#include "qstd/log.h"

namespace test {

/// Holds, from its making until it is opened, whoever logs a message.
class LogGate {
public:
    LogGate() : m_sink(std::make_shared<Sink>()) { qstd::Log::GetInstance().AddSink(m_sink); }
    LogGate(const LogGate&) = delete;
    LogGate& operator=(const LogGate&) = delete;
    ~LogGate() {
        Open();
        qstd::Log::GetInstance().RemoveSink(m_sink);
    }

    void Open() {
        if (!m_isOpen) {
            m_isOpen = true;
            m_sink->open.set_value();
        }
    }

private:
    struct Sink : qstd::LogSink {
        void Write(qstd::LogLevel_e /*level*/, const qstd::Time& /*time*/, const std::string& /*text*/) override {
            opened.wait();
        }
        std::promise<void> open;
        const std::shared_future<void> opened{open.get_future()};
    };

    std::shared_ptr<Sink> m_sink;
    bool m_isOpen = false;
};

}  // namespace test
