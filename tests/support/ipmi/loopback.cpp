#include "tests/support/ipmi/loopback.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace test {

sockaddr_in Loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

UdpSocket::UdpSocket() : m_descriptor(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)), m_address(Loopback(0)) {
    socklen_t size = sizeof m_address;
    if (::bind(m_descriptor, reinterpret_cast<sockaddr*>(&m_address), size) != 0 ||
        ::getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&m_address), &size) != 0) {
        throw std::runtime_error("cannot bind a UDP socket");
    }
}

UdpSocket::~UdpSocket() {
    ::close(m_descriptor);
}

int UdpSocket::TakePackets() const {
    std::array<char, 1500> packet{};
    int count = 0;
    while (::recv(m_descriptor, packet.data(), packet.size(), MSG_DONTWAIT) >= 0) {
        ++count;
    }
    return count;
}

}  // namespace test
