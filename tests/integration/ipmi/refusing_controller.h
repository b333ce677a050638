#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <numeric>
#include <span>
#include <thread>
#include <vector>

#include "tests/support/ipmi/loopback.h"

namespace test {

/// A controller on 127.0.0.1 that refuses to open sessions with a status code that the simulator never gives
/// (IPMI v2.0 specification, 13.18 and 13.24).
class RefusingController {
public:
    explicit RefusingController(std::uint8_t status) : m_thread([this, status] { Serve(status); }) {}
    RefusingController(const RefusingController&) = delete;
    RefusingController& operator=(const RefusingController&) = delete;
    ~RefusingController() {
        ::shutdown(m_socket.GetDescriptor(), SHUT_RDWR);
        m_thread.join();
    }

    std::uint16_t GetPort() const noexcept { return m_socket.GetPort(); }

private:
    using Bytes = std::vector<std::uint8_t>;

    void Serve(std::uint8_t status) const {
        constexpr std::size_t c_format = 4;  // where the kind of a packet stands
        std::array<std::uint8_t, 256> packet{};
        for (;;) {
            sockaddr_in client{};
            socklen_t size = sizeof client;
            const auto length = ::recvfrom(m_socket.GetDescriptor(), packet.data(), packet.size(), 0,
                                           reinterpret_cast<sockaddr*>(&client), &size);
            if (length <= 0) {
                return;
            }
            const Bytes reply = packet[c_format] == 0 ? Capabilities(packet) : Refusal(packet, status);
            ::sendto(m_socket.GetDescriptor(), reply.data(), reply.size(), 0, reinterpret_cast<sockaddr*>(&client),
                     size);
        }
    }

    /// Get Channel Authentication Capabilities, outside of a session: RMCP+ with user names.
    static Bytes Capabilities(std::span<const std::uint8_t> request) {
        const std::uint8_t sequence = request[18];
        Bytes reply{0x06, 0x00, 0xff, 0x07,     0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x81,
                    0x1c, 0x63, 0x20, sequence, 0x38, 0x00, 0x01, 0x84, 0x04, 0x03, 0x00, 0x00, 0x00, 0x00};
        const int sum = std::accumulate(reply.begin() + 17, reply.end(), 0);
        reply.push_back(static_cast<std::uint8_t>(-sum));
        return reply;
    }

    /// Open Session Response, as short as it is when nothing was opened.
    static Bytes Refusal(std::span<const std::uint8_t> request, std::uint8_t status) {
        Bytes reply{0x06, 0x00, 0xff, 0x07, 0x06, 0x11, 0x00,        0x00,   0x00, 0x00,
                    0x00, 0x00, 0x00, 0x00, 0x08, 0x00, request[16], status, 0x00, 0x00};
        const auto console = request.subspan(20, 4);
        reply.insert(reply.end(), console.begin(), console.end());
        return reply;
    }

    UdpSocket m_socket;
    std::thread m_thread;
};

}  // namespace test
