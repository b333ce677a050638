#pragma once

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test {

/// A GIOP 1.2 message in little endian, put together by hand: what no proper client would send.
class RawMessage {
public:
    /// @param type 0 request, 3 locate request
    RawMessage(std::uint32_t requestId, const std::string& key, const std::string& operation, std::uint8_t type = 0)
        : m_bytes("GIOP\x01\x02\x01", 7) {
        m_bytes += static_cast<char>(type);
        Long(0);
        Long(requestId);
        if (type == 0) {
            m_bytes += std::string("\x03\0\0\0", 4);
        }
        m_bytes += std::string("\0\0\0\0", 4);
        Long(static_cast<std::uint32_t>(key.size()));
        m_bytes += key;
        if (type == 0) {
            Text(operation);
            Long(0);
            Align(8);
        }
    }

    RawMessage& Long(std::uint32_t value) {
        Align(4);
        m_bytes.append(reinterpret_cast<const char*>(&value), sizeof(value));
        return *this;
    }

    RawMessage& Text(const std::string& text) {
        Long(static_cast<std::uint32_t>(text.size() + 1));
        m_bytes.append(text.c_str(), text.size() + 1);
        return *this;
    }

    std::string Bytes() const {
        std::string bytes = m_bytes;
        const auto size = static_cast<std::uint32_t>(bytes.size() - 12);
        std::memcpy(bytes.data() + 8, &size, sizeof(size));
        return bytes;
    }

private:
    void Align(std::size_t size) { m_bytes.append((size - m_bytes.size() % size) % size, '\0'); }

    std::string m_bytes;
};

/// A connection to a server on this host.
class RawConnection {
public:
    explicit RawConnection(int port) : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            ::close(m_socket);
            throw std::runtime_error("cannot connect");
        }
    }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;
    ~RawConnection() { ::close(m_socket); }

    void Send(const std::string& bytes) const {
        if (::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0) {
            throw std::runtime_error("cannot send");
        }
    }

    /// What comes, in one piece; empty when nothing does for long.
    std::string Receive() const {
        pollfd wait{m_socket, POLLIN, 0};
        if (::poll(&wait, 1, c_milliseconds) <= 0) {
            return {};
        }
        std::string bytes(65536, '\0');
        const ssize_t count = ::recv(m_socket, bytes.data(), bytes.size(), 0);
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

    /// Whether the server closes the connection, whatever it sends before.
    bool IsClosed() const {
        for (;;) {
            pollfd wait{m_socket, POLLIN, 0};
            if (::poll(&wait, 1, c_milliseconds) <= 0) {
                return false;
            }
            char bytes[4096];
            if (::recv(m_socket, bytes, sizeof(bytes), 0) <= 0) {
                return true;
            }
        }
    }

private:
    static constexpr int c_milliseconds = 100000;

    const int m_socket;
};

}  // namespace test
