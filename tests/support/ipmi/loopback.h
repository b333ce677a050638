#pragma once

#include <netinet/in.h>

#include <cstdint>

namespace test {

/// The address of @p port on 127.0.0.1; 0: any port.
sockaddr_in Loopback(std::uint16_t port);

/// A UDP socket on 127.0.0.1, with a port that was free. Reads nothing by itself: a port where nobody answers.
class UdpSocket {
public:
    UdpSocket();  ///< @throws std::runtime_error when there is none
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    ~UdpSocket();

    int GetDescriptor() const noexcept { return m_descriptor; }
    std::uint16_t GetPort() const noexcept { return ntohs(m_address.sin_port); }

    /// How many packets have come and were not read yet; reads them.
    int TakePackets() const;

private:
    int m_descriptor;
    sockaddr_in m_address;
};

}  // namespace test
