#include "heard_warnings.h"

#include <algorithm>
#include <mutex>

#include "qstd/log.h"

class HeardWarnings::Sink final : public qstd::LogSink {
public:
    void Write(qstd::LogLevel_e level, const qstd::Time& /*time*/, const std::string& text) override {
        const std::lock_guard<std::mutex> guard(m_mutex);
        if (level != qstd::LogLevel_e::info && std::find(m_texts.begin(), m_texts.end(), text) == m_texts.end()) {
            m_texts.push_back(text);
        }
    }

    std::vector<std::string> Get() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_texts;
    }

private:
    mutable std::mutex m_mutex;  ///< guards m_texts
    std::vector<std::string> m_texts;
};

HeardWarnings::HeardWarnings() : m_sink(std::make_shared<Sink>()), m_wasEnabled(qstd::Log::m_enabled) {
    qstd::Log::GetInstance().AddSink(m_sink);
    qstd::Log::m_enabled = true;
}

HeardWarnings::~HeardWarnings() {
    qstd::Log::m_enabled = m_wasEnabled;
    qstd::Log::GetInstance().RemoveSink(m_sink);
}

std::vector<std::string> HeardWarnings::Get() const {
    return m_sink->Get();
}
