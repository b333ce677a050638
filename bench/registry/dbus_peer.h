#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>

namespace bench {

/// The way comparable daemons publish their sensors: an object a sensor on D-Bus, its value a property. A private bus
/// (dbus-daemon) and a service with one sensor, both processes of their own.
class DbusPeer {
public:
    /// @param folder for the bus's socket and configuration
    explicit DbusPeer(const std::string& folder);
    DbusPeer(const DbusPeer&) = delete;
    DbusPeer& operator=(const DbusPeer&) = delete;
    /// Ends both processes.
    ~DbusPeer();

    /// A connection of its own to the bus. @return what reads the property once
    std::function<void()> MakeReader() const;

private:
    std::string m_address;
    pid_t m_bus = -1;
    pid_t m_service = -1;
};

}  // namespace bench
