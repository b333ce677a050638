#include "qapp/service_notifier.h"

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>

namespace qapp {

ServiceNotifier::ServiceNotifier() : m_feedingPeriod(0) {
    std::uint64_t period = 0;
    if (sd_watchdog_enabled(0, &period) > 0) {
        // Half the period, as the service manager's documentation advises.
        m_feedingPeriod = std::chrono::microseconds(period / 2);
    }
}

void ServiceNotifier::Ready() const {
    sd_notify(0, "READY=1");
}

void ServiceNotifier::Status(const std::string& status) {
    std::string line = "STATUS=" + status;
    // What is told is a list of lines, each of which has a meaning.
    std::replace(line.begin(), line.end(), '\n', ' ');
    sd_notify(0, line.c_str());
}

void ServiceNotifier::Stopping() const {
    sd_notify(0, "STOPPING=1");
}

void ServiceNotifier::Alive() const {
    sd_notify(0, "WATCHDOG=1");
}

}  // namespace qapp
