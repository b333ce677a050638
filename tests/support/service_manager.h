#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>

namespace test {

/// Stands in for the service manager: takes what a service tells it, at a socket of its own.
class ServiceManager {
public:
    explicit ServiceManager(const std::string& path) : m_descriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        if (::bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            ADD_FAILURE() << "cannot bind";
        }
    }
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;
    ~ServiceManager() { ::close(m_descriptor); }

    /// The next message; empty when none comes within @p limit.
    std::string Receive(std::chrono::milliseconds limit = std::chrono::seconds(100)) const {
        const timeval wait{limit.count() / 1000, limit.count() % 1000 * 1000};
        ::setsockopt(m_descriptor, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        std::array<char, 1024> buffer{};
        const ssize_t size = ::recv(m_descriptor, buffer.data(), buffer.size(), 0);
        return {buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }

    /// The next message that is none of the watchdog's.
    std::string ReceiveNews() const {
        std::string news = Receive();
        while (news == "WATCHDOG=1") {
            news = Receive();
        }
        return news;
    }

private:
    int m_descriptor;
};

}  // namespace test
