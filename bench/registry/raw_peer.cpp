#include "raw_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <tuple>

namespace bench {

namespace {

/// Every request begins with the sizes of itself and of the reply that is wanted.
using Sizes = std::array<std::uint32_t, 2>;

bool Receive(int socket, char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t got = ::recv(socket, data, size, 0);
        if (got <= 0) {
            return false;
        }
        data += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

bool Send(int socket, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(socket, data, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

void SetNoDelay(int socket) {
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

int Connect(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(port);
    if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        throw std::runtime_error("cannot connect");
    }
    SetNoDelay(socket);
    return socket;
}

/// @return a listening socket and its port
std::pair<int, int> Listen() {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(listener, SOMAXCONN) != 0 ||
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        throw std::runtime_error("cannot listen");
    }
    return {listener, ntohs(address.sin_port)};
}

/// Like any server that reads a header first it takes what is there in one go, up to the size of a usual request.
void Answer(int socket) {
    std::vector<char> request(1 << 20);
    std::vector<char> reply;
    while (true) {
        const ssize_t got = ::recv(socket, request.data(), request.size(), 0);
        if (got < static_cast<ssize_t>(sizeof(Sizes))) {
            break;
        }
        Sizes sizes{};
        std::memcpy(sizes.data(), request.data(), sizeof sizes);
        reply.resize(sizes[1]);
        const auto have = static_cast<std::size_t>(got);
        if (!Receive(socket, request.data() + have, sizes[0] - have) || !Send(socket, reply.data(), reply.size())) {
            break;
        }
    }
    ::close(socket);
}

}  // namespace

int ServeRaw() {
    const auto [listener, port] = Listen();
    std::thread([listener = listener] {
        while (true) {
            const int socket = ::accept(listener, nullptr, nullptr);
            SetNoDelay(socket);
            std::thread(Answer, socket).detach();
        }
    }).detach();
    return port;
}

RawClient::RawClient(int port, std::size_t requestBytes, std::size_t replyBytes)
    : m_socket(Connect(port)), m_request(std::max(requestBytes, sizeof(Sizes))), m_reply(replyBytes) {
    const Sizes sizes{static_cast<std::uint32_t>(m_request.size()), static_cast<std::uint32_t>(m_reply.size())};
    std::memcpy(m_request.data(), sizes.data(), sizeof sizes);
}

RawClient::~RawClient() {
    ::close(m_socket);
}

void RawClient::Call() {
    if (!Send(m_socket, m_request.data(), m_request.size()) || !Receive(m_socket, m_reply.data(), m_reply.size())) {
        throw std::runtime_error("raw connection is gone");
    }
}

CountingRelay::CountingRelay(int serverPort) {
    std::tie(m_listener, m_port) = Listen();
    m_thread = std::thread([this, serverPort] { Run(serverPort); });
}

CountingRelay::~CountingRelay() {
    ::shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    ::close(m_listener);
}

void CountingRelay::Run(int serverPort) {
    const int client = ::accept(m_listener, nullptr, nullptr);
    if (client < 0) {
        return;
    }
    const int server = Connect(serverPort);
    std::array<pollfd, 3> sources{{{client, POLLIN, 0}, {server, POLLIN, 0}, {m_listener, POLLIN, 0}}};
    std::vector<char> data(1 << 20);
    while (::poll(sources.data(), sources.size(), -1) > 0 && sources[2].revents == 0) {
        const bool isRequest = sources[0].revents != 0;
        const ssize_t got = ::recv(isRequest ? client : server, data.data(), data.size(), 0);
        if (got <= 0) {
            break;
        }
        // Counted before the receiver can act on it.
        (isRequest ? m_requestBytes : m_replyBytes) += static_cast<std::size_t>(got);
        if (!Send(isRequest ? server : client, data.data(), static_cast<std::size_t>(got))) {
            break;
        }
    }
    ::close(client);
    ::close(server);
}

}  // namespace bench
