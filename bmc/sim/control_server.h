#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <string>
#include <thread>

#include "bmc/sim/control_client.h"
#include "bmc/sim/control_commands.h"
#include "bmc/sim/listening_socket.h"

namespace bmc::sim {

class SimBackend;

/// Serves the control socket (see control_protocol.h) with one thread of its own, which handles no signal and never
/// makes the chassis wait. The destructor ends it at once, whatever the clients do.
class ControlServer {
public:
    struct Limits {
        std::size_t clients = 16;  ///< more at once are told so and closed
        std::chrono::milliseconds patience{
            10000};  ///< a client that neither sends nor takes anything so long is closed
    };

    /// @param chassis outlives the server
    /// @throws qstd::Exception when the socket cannot be had; no thread was started then
    ControlServer(SimBackend& chassis, const std::string& socketPath, const Limits& limits);
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;
    ~ControlServer();

private:
    void Serve();
    void Accept();
    bool IsAcceptPaused() const;
    int PollTimeout() const;

    SimBackend& m_chassis;
    ControlCommands m_commands;
    const Limits m_limits;
    FileDescriptor m_wake;  ///< eventfd: the journal has grown, or the end has come
    std::atomic<bool> m_stop{false};
    ListeningSocket m_listening;
    std::list<ControlClient> m_clients;              ///< the thread's own
    ControlClient::Clock::time_point m_acceptAgain;  ///< the thread's own; connections wait until then
    std::thread m_thread;                            ///< the last: it uses all above
};

}  // namespace bmc::sim
