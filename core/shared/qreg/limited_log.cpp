#include "qreg/limited_log.h"

#include <utility>

#include "qstd/clock.h"
#include "qstd/log.h"

namespace qreg {

void LimitedLog::Warning(const std::string& text) {
    std::string count;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        const auto now = qstd::Clock::Get().SteadyNow();
        if (m_logged == 0 || now - m_begin >= std::chrono::minutes(1)) {
            m_begin = now;
            m_logged = 0;
        }
        if (m_logged == m_perMinute) {
            ++m_counted;
            return;
        }
        ++m_logged;
        count = TakeCount();
    }
    qstd::LogWarning(text + count);
}

void LimitedLog::Flush() {
    std::string count;
    {
        const std::lock_guard<std::mutex> guard(m_mutex);
        count = TakeCount();
    }
    if (!count.empty()) {
        qstd::LogWarning("Messages of the registry server:" + count);
    }
}

std::string LimitedLog::TakeCount() {
    const std::size_t counted = std::exchange(m_counted, 0);
    return counted == 0 ? std::string() : " (" + std::to_string(counted) + " more were not logged)";
}

}  // namespace qreg
