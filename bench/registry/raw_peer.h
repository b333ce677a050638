#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <utility>
#include <vector>

namespace bench {

/// The floor: a TCP server that answers a request of so many bytes with a reply of so many, one thread a connection and
/// nothing else. Serves until the process ends. @return the port
int ServeRaw();

/// A connection to it.
class RawClient {
public:
    RawClient(int port, std::size_t requestBytes, std::size_t replyBytes);
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    ~RawClient();

    /// One request, one reply.
    void Call();

private:
    int m_socket;
    std::vector<char> m_request;
    std::vector<char> m_reply;
};

/// Between a client and a server: counts what goes either way. One connection.
class CountingRelay {
public:
    explicit CountingRelay(int serverPort);
    CountingRelay(const CountingRelay&) = delete;
    CountingRelay& operator=(const CountingRelay&) = delete;
    ~CountingRelay();

    int GetPort() const { return m_port; }
    /// Bytes since the last call: of requests, of replies.
    std::pair<std::size_t, std::size_t> Take() { return {m_requestBytes.exchange(0), m_replyBytes.exchange(0)}; }

private:
    void Run(int serverPort);

    int m_listener;
    int m_port = 0;
    std::atomic<std::size_t> m_requestBytes{0};
    std::atomic<std::size_t> m_replyBytes{0};
    std::thread m_thread;
};

}  // namespace bench
