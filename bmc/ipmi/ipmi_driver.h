#pragma once

#include <string>

namespace bmc::ipmi {

/// The kernel's driver of the local system interface, as far as it is more than a file (linux/ipmi.h); tests put their
/// own in its place. What Open returns is closed with close() and waited for with poll().
class IpmiDriver {
public:
    IpmiDriver() = default;
    IpmiDriver(const IpmiDriver&) = delete;
    IpmiDriver& operator=(const IpmiDriver&) = delete;
    virtual ~IpmiDriver() = default;

    /// @return a descriptor, or minus the error number
    virtual int Open(const std::string& path);

    /// ioctl(). @return 0, or minus the error number
    virtual int Control(int descriptor, unsigned long request, void* argument);
};

}  // namespace bmc::ipmi
