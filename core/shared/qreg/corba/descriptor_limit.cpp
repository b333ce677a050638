#include "qreg/corba/descriptor_limit.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <system_error>

#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include "qstd/log.h"

namespace qreg::corba {

namespace {

std::size_t CountOpen() {
    std::error_code error;
    const std::filesystem::directory_iterator folder("/proc/self/fd", error);
    // One of them is the folder itself.
    return error ? 0 : static_cast<std::size_t>(std::distance(begin(folder), end(folder))) - 1;
}

/// How many descriptors this process may have, after an attempt at @p wanted.
std::size_t RaiseTo(std::size_t wanted) {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        return wanted;
    }
    if (limit.rlim_cur < wanted) {
        const rlim_t old = limit.rlim_cur;
        limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
            limit.rlim_cur = old;
        }
    }
    return limit.rlim_cur;
}

}  // namespace

void DescriptorLimit::Begin(std::size_t connections) {
    const std::size_t open = CountOpen();
    const std::size_t wanted = open + connections;
    const std::size_t allowed = RaiseTo(wanted + c_reserve);
    const std::size_t usable = allowed > c_reserve ? allowed - c_reserve : 0;
    if (usable < wanted) {
        qstd::LogWarning("The registry server can have " + std::to_string(usable > open ? usable - open : 0) +
                         " connections instead of " + std::to_string(connections) + ": this process may open only " +
                         std::to_string(allowed) + " files");
    }
    m_limit = std::min(usable, wanted);
}

bool DescriptorLimit::IsRoom() const noexcept {
    const int lowestFree = ::eventfd(0, EFD_CLOEXEC);
    if (lowestFree < 0) {
        return false;
    }
    ::close(lowestFree);
    return static_cast<std::size_t>(lowestFree) <= m_limit;
}

}  // namespace qreg::corba
