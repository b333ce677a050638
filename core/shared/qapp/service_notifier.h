#pragma once

#include <chrono>
#include <string>

namespace qapp {

/// Tells the service manager how the service is. Without a service manager nothing happens. Any thread may call it.
class ServiceNotifier {
public:
    /// Takes the watchdog's period from the environment.
    ServiceNotifier();

    /// The start is complete.
    void Ready() const;
    /// How the service is, for people.
    static void Status(const std::string& status);
    /// The stop has begun.
    void Stopping() const;
    /// Feeds the watchdog.
    void Alive() const;

    /// How often the watchdog wants to be fed; zero when there is none.
    std::chrono::microseconds GetFeedingPeriod() const noexcept { return m_feedingPeriod; }

private:
    std::chrono::microseconds m_feedingPeriod;
};

}  // namespace qapp
