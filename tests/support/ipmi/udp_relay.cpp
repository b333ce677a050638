#include "tests/support/ipmi/udp_relay.h"
#include "tests/support/ipmi/loopback.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <ctime>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/ipmi/relay_lane.h"

namespace test {

namespace {

using Clock = std::chrono::steady_clock;

// Each client has its own socket to the server; the one that was silent longest gives way.
constexpr std::size_t c_maxClients = 64;
constexpr std::size_t c_maxPacket = 65536;

/// A UDP socket that is closed at the end. Non-blocking.
class Socket {
public:
    Socket() : m_number(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        if (m_number < 0) {
            throw std::runtime_error("the relay cannot open a socket");
        }
    }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() { ::close(m_number); }

    int Get() const noexcept { return m_number; }

    void Bind(std::uint16_t port) const {
        const sockaddr_in address = Loopback(port);
        if (::bind(m_number, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
            throw std::runtime_error(fmt::format("the relay cannot listen on port {}", port));
        }
    }
    void Connect(std::uint16_t port) const {
        const sockaddr_in address = Loopback(port);
        ::connect(m_number, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    std::uint16_t GetPort() const {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        ::getsockname(m_number, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

private:
    const int m_number;
};

}  // namespace

/// Who sends to the relay, and the socket to the server that is its.
struct RelayClient {
    explicit RelayClient(const sockaddr_in& itsAddress, std::uint16_t server) : address(itsAddress) {
        socket.Connect(server);
    }
    const sockaddr_in address;
    const Socket socket;
};

/// Sockets and thread of the relay.
class UdpRelay::Engine {
public:
    Engine(std::uint16_t server, std::uint64_t itsSeed)
        : seed(itsSeed), m_server(server), m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
        Listen(0);
        port = m_listener->GetPort();
        m_thread = std::thread([this] { Run(); });
    }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    ~Engine() {
        {
            const std::lock_guard lock(mutex);
            m_isEnding = true;
        }
        Wake();
        m_thread.join();
        ::close(m_wake);
    }

    RelayLane& Get(RelayDirection_e direction) {
        return direction == RelayDirection_e::to_server ? m_toServer : m_toClient;
    }

    // Call with the mutex held.
    void Listen(std::uint16_t onPort) {
        auto socket = std::make_shared<Socket>();
        socket->Bind(onPort);
        m_listener = std::move(socket);
    }
    void Close(std::unique_lock<std::mutex>& lock) {
        const std::weak_ptr<Socket> closing = std::exchange(m_listener, nullptr);
        Wake();
        m_hasLetGo.wait(lock, [&] { return closing.expired(); });
    }
    bool IsOpen() const { return m_listener != nullptr; }
    void Wake() const {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = ::write(m_wake, &one, sizeof one);
    }

    const std::uint64_t seed;
    std::uint16_t port = 0;
    std::mutex mutex;

private:
    void Run() {
        std::unique_lock lock(mutex);
        while (!m_isEnding) {
            // The thread has its share in every socket that it waits for, so that none is closed under it.
            std::shared_ptr<Socket> listener = m_listener;
            std::vector<std::shared_ptr<RelayClient>> clients(m_clients.begin(), m_clients.end());
            std::vector<pollfd> sources{{m_wake, POLLIN, 0}, {listener ? listener->Get() : -1, POLLIN, 0}};
            for (const auto& client : clients) {
                sources.push_back({client->socket.Get(), POLLIN, 0});
            }
            const std::optional<timespec> limit = TimeToNext();
            lock.unlock();
            ::ppoll(sources.data(), sources.size(), limit ? &*limit : nullptr, nullptr);
            lock.lock();
            std::uint64_t ignored = 0;
            [[maybe_unused]] const ssize_t length = ::read(m_wake, &ignored, sizeof ignored);
            if (listener && listener == m_listener) {
                ReceiveFromClients(*listener);
            }
            for (const auto& client : clients) {
                ReceiveFromServer(client);
            }
            SendDue();
            listener.reset();
            m_hasLetGo.notify_all();
        }
    }

    std::optional<timespec> TimeToNext() const {
        std::optional<Clock::time_point> next = m_toServer.NextDue();
        if (const auto other = m_toClient.NextDue(); other) {
            next = next ? std::min(*next, *other) : other;
        }
        if (!next) {
            return std::nullopt;
        }
        const auto rest = std::max(Clock::duration::zero(), *next - Clock::now());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(rest);
        return timespec{seconds.count(), static_cast<long>(std::chrono::nanoseconds(rest - seconds).count())};
    }

    void ReceiveFromClients(const Socket& listener) {
        sockaddr_in sender{};
        socklen_t length = sizeof sender;
        for (;;) {
            const ssize_t size = ::recvfrom(listener.Get(), m_buffer.data(), m_buffer.size(), 0,
                                            reinterpret_cast<sockaddr*>(&sender), &length);
            if (size < 0) {
                return;
            }
            m_toServer.Take({FindClient(sender), {m_buffer.begin(), m_buffer.begin() + size}, {}});
        }
    }

    // A server that is not there shows as an error here, which clients do not see.
    void ReceiveFromServer(const std::shared_ptr<RelayClient>& client) {
        for (;;) {
            const ssize_t size = ::recv(client->socket.Get(), m_buffer.data(), m_buffer.size(), 0);
            if (size < 0) {
                return;
            }
            m_toClient.Take({client, {m_buffer.begin(), m_buffer.begin() + size}, {}});
        }
    }

    void SendDue() {
        const auto now = Clock::now();
        for (const RelayPacket& packet : m_toServer.TakeDue(now)) {
            ::send(packet.client->socket.Get(), packet.data.data(), packet.data.size(), 0);
        }
        for (const RelayPacket& packet : m_toClient.TakeDue(now)) {
            if (m_listener) {
                ::sendto(m_listener->Get(), packet.data.data(), packet.data.size(), 0,
                         reinterpret_cast<const sockaddr*>(&packet.client->address), sizeof packet.client->address);
            }
        }
    }

    // The clients are in the order of their last packets, the latest last.
    std::shared_ptr<RelayClient> FindClient(const sockaddr_in& address) {
        const auto known = std::find_if(m_clients.begin(), m_clients.end(),
                                        [&](const auto& c) { return c->address.sin_port == address.sin_port; });
        if (known != m_clients.end()) {
            m_clients.splice(m_clients.end(), m_clients, known);
        } else {
            if (m_clients.size() == c_maxClients) {
                m_clients.pop_front();
            }
            m_clients.push_back(std::make_shared<RelayClient>(address, m_server));
        }
        return m_clients.back();
    }

    const std::uint16_t m_server;
    const int m_wake;
    std::condition_variable m_hasLetGo;
    bool m_isEnding = false;
    std::shared_ptr<Socket> m_listener;
    std::list<std::shared_ptr<RelayClient>> m_clients;
    std::array<std::uint8_t, c_maxPacket> m_buffer{};
    RelayLane m_toServer{seed};
    RelayLane m_toClient{~seed};
    std::thread m_thread;
};

UdpRelay::UdpRelay(std::uint16_t serverPort, std::uint64_t seed)
    : m_engine(std::make_unique<Engine>(serverPort, seed)) {}

UdpRelay::~UdpRelay() = default;

std::uint16_t UdpRelay::GetPort() const noexcept {
    return m_engine->port;
}

void UdpRelay::SetFaults(RelayDirection_e direction, const RelayFaults& faults) {
    const std::lock_guard lock(m_engine->mutex);
    m_engine->Get(direction).SetFaults(faults);
}

void UdpRelay::SetFaults(const RelayFaults& faults) {
    SetFaults(RelayDirection_e::to_server, faults);
    SetFaults(RelayDirection_e::to_client, faults);
}

void UdpRelay::Close() {
    std::unique_lock lock(m_engine->mutex);
    m_engine->Close(lock);
}

void UdpRelay::Open() {
    const std::lock_guard lock(m_engine->mutex);
    if (!m_engine->IsOpen()) {
        m_engine->Listen(m_engine->port);
        m_engine->Wake();
    }
}

RelayCounts UdpRelay::GetCounts(RelayDirection_e direction) const {
    const std::lock_guard lock(m_engine->mutex);
    return m_engine->Get(direction).GetCounts();
}

void UdpRelay::ResetCounts() {
    const std::lock_guard lock(m_engine->mutex);
    m_engine->Get(RelayDirection_e::to_server).GetCounts() = {};
    m_engine->Get(RelayDirection_e::to_client).GetCounts() = {};
}

std::string UdpRelay::Describe() const {
    const auto lane = [this](RelayDirection_e direction) {
        const RelayCounts c = GetCounts(direction);
        return fmt::format("{} received, {} sent, {} dropped, {} duplicated, {} truncated, {} corrupted, {} reordered",
                           c.received, c.sent, c.dropped, c.duplicated, c.truncated, c.corrupted, c.reordered);
    };
    return fmt::format("relay with seed {}; to the server: {}; to the client: {}", m_engine->seed,
                       lane(RelayDirection_e::to_server), lane(RelayDirection_e::to_client));
}

}  // namespace test
