#include "qreg/value_before.h"

#include <string>
#include <system_error>
#include <utility>

namespace qreg {

std::optional<Outcome> ValueBefore::Read(std::string_view path) {
    if (!HasRoom()) {
        return std::nullopt;
    }
    std::future<Outcome> reading;
    try {
        reading =
            std::async(std::launch::async, [this, path = std::string(path)] { return m_access.ReadBeforeWrite(path); });
    } catch (const std::system_error&) {
        return std::nullopt;  // no thread is to be had: the write is worth more than its line
    }
    if (reading.wait_for(m_patience) == std::future_status::ready) {
        return reading.get();
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_late.push_back(std::move(reading));
    return std::nullopt;
}

/// Lets go of those that have ended meanwhile.
bool ValueBefore::HasRoom() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_late.remove_if([](const std::future<Outcome>& each) {
        return each.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    });
    return m_late.size() < c_mostLate;
}

}  // namespace qreg
