#include "bmc/ipmi/ipmi_driver.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>

namespace bmc::ipmi {

int IpmiDriver::Open(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    return descriptor >= 0 ? descriptor : -errno;
}

int IpmiDriver::Control(int descriptor, unsigned long request, void* argument) {
    return ::ioctl(descriptor, request, argument) >= 0 ? 0 : -errno;
}

}  // namespace bmc::ipmi
