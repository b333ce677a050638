#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>

namespace qreg {

/// Warnings whose number depends on what clients do: at most a few a minute go to the log, the rest is counted and the
/// next one that goes tells how many there were. Any thread.
class LimitedLog {
public:
    explicit LimitedLog(std::size_t perMinute) : m_perMinute(perMinute) {}

    void Warning(const std::string& text);

    /// Tells what was counted since the last message.
    void Flush();

private:
    /// " (N more were not logged)", empty for none. Under the mutex.
    std::string TakeCount();

    const std::size_t m_perMinute;
    std::mutex m_mutex;                               ///< guards all below
    std::chrono::steady_clock::time_point m_begin{};  ///< of the running minute
    std::size_t m_logged = 0;                         ///< in it
    std::size_t m_counted = 0;                        ///< not logged since the last message
};

}  // namespace qreg
