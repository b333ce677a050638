#include "qapp/health.h"

#include "qapp/service_notifier.h"
#include "qstd/log.h"

namespace qapp {

void Health::PartEnded(const std::string& part, const std::string& why, Need_e need) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_status += (m_status.empty() ? "" : "; ") + part + " has ended: " + why;
    ServiceNotifier::Status(m_status);
    if (need == Need_e::vital && m_watchdog == Watchdog_e::workers && m_isWell.exchange(false)) {
        qstd::LogError("The watchdog is not fed any more: " + part + " has ended");
    }
}

}  // namespace qapp
