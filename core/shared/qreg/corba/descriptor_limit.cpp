#include "qreg/corba/descriptor_limit.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "qstd/log.h"

namespace qreg::corba {

namespace {

/// The numbers of the descriptors that are open.
std::set<std::size_t> FindOpen() {
    std::set<std::size_t> open;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        open.insert(std::stoul(entry.path().filename().string()));
    }
    // One of them was the folder's.
    std::erase_if(open, [](std::size_t number) { return ::fcntl(static_cast<int>(number), F_GETFD) < 0; });
    return open;
}

/// The lowest number below which @p count are free.
std::size_t NumberAfter(const std::set<std::size_t>& open, std::size_t count) {
    std::size_t number = 0;
    for (; count > 0; ++number) {
        count -= open.count(number) == 0 ? 1 : 0;
    }
    return number;
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
    return static_cast<std::size_t>(std::min<rlim_t>(limit.rlim_cur, std::numeric_limits<std::size_t>::max()));
}

/// 0 for what is no address of the internet.
int PortIn(const sockaddr_storage& address) noexcept {
    switch (address.ss_family) {
        case AF_INET:
            return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
        case AF_INET6:
            return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
        default:
            return 0;
    }
}

}  // namespace

void DescriptorLimit::Begin(std::size_t connections) {
    const std::set<std::size_t> open = FindOpen();
    const std::size_t wanted = NumberAfter(open, connections);
    const std::size_t allowed = RaiseTo(wanted + c_reserve + c_forSurplus);
    if (allowed < wanted + c_reserve) {
        qstd::LogWarning("The registry server may have fewer than " + std::to_string(connections) +
                         " connections at a time: this process may open only " + std::to_string(allowed) + " files");
    }
    m_limit = std::min(allowed > c_reserve ? allowed - c_reserve : 0, wanted);
}

void DescriptorLimit::ShutDown(int port) const noexcept {
    for (int descriptor = 0; IsRoomFor(descriptor); ++descriptor) {
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        int isListening = 1;
        socklen_t flagSize = sizeof isListening;
        if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0 && PortIn(address) == port &&
            ::getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &isListening, &flagSize) == 0 && isListening == 0) {
            ::shutdown(descriptor, SHUT_RDWR);
        }
    }
}

}  // namespace qreg::corba
