#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "qapp/service_settings.h"

namespace qapp {

/// Which parts of the service have ended before their time, for the service manager: it is told at once, and its
/// watchdog is no longer fed when the configuration asks for that. What has ended stays ended. Any thread may call any
/// operation.
class Health {
public:
    /// How much the service depends on one of its parts.
    enum class Need_e {
        useful,  ///< the service goes on without it
        vital,   ///< without it hardware is in danger
    };

    /// What has to be well for the watchdog to be fed. To be called before the parts start.
    void SetWatchdog(Watchdog_e watchdog) noexcept { m_watchdog = watchdog; }

    /// A part has ended though nobody asked for it.
    /// @param part its name, for people @param why the error that ended it
    void PartEnded(const std::string& part, const std::string& why, Need_e need);

    /// Whether the watchdog may be fed.
    bool IsWell() const noexcept { return m_isWell; }

private:
    Watchdog_e m_watchdog = Watchdog_e::process;
    std::atomic<bool> m_isWell{true};
    std::mutex m_mutex;    ///< guards m_status, and keeps the service manager's news in order
    std::string m_status;  ///< of all parts that have ended
};

}  // namespace qapp
