#pragma once

#include <future>
#include <memory>
#include <string>

#include "qstd/log.h"

namespace test {

/// Holds whoever logs until it is opened.
class LogGate {
public:
    LogGate() : m_sink(std::make_shared<Sink>()) { qstd::Log::GetInstance().AddSink(m_sink); }
    LogGate(const LogGate&) = delete;
    LogGate& operator=(const LogGate&) = delete;
    ~LogGate() { qstd::Log::GetInstance().RemoveSink(m_sink); }

    void Open() { m_sink->open.set_value(); }

private:
    struct Sink : qstd::LogSink {
        void Write(qstd::LogLevel_e /*level*/, const qstd::Time& /*time*/, const std::string& /*text*/) override {
            opened.wait();
        }
        std::promise<void> open;
        const std::shared_future<void> opened{open.get_future()};
    };

    std::shared_ptr<Sink> m_sink;
};

}  // namespace test
