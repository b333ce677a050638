#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "bmc/sim/control_commands.h"
#include "bmc/sim/journal.h"
#include "bmc/sim/listening_socket.h"

namespace bmc::sim {

/// One connection to the control socket: its request as far as it has come, and its reply as far as it has not gone.
/// Used by the server's thread alone; never blocks.
class ControlClient {
public:
    using Clock = std::chrono::steady_clock;

    ControlClient(FileDescriptor socket, ControlCommands& commands, const Journal& journal,
                  std::chrono::milliseconds patience);

    int Socket() const noexcept { return m_socket.Get(); }

    /// What to wait for with poll; 0: nothing but the connection's end.
    short PollEvents() const;

    /// When the client is closed unless it moves; the end of time for a follower with nothing to take.
    Clock::time_point Deadline() const;

    /// Goes on as far as it can without waiting. @param events what poll told
    /// @return false when the connection is done
    bool GoOn(short events);

private:
    enum class State_e {
        reading,    ///< the request is not whole yet
        replying,   ///< the last of the reply is in m_reply; closed when it is gone
        following,  ///< the journal is sent as it grows, for ever
    };

    bool Receive();
    bool Send();
    void Handle(const std::string& line);
    void Refuse(const std::string& text);
    void FillFromJournal();

    FileDescriptor m_socket;
    ControlCommands& m_commands;
    const Journal& m_journal;
    const std::chrono::milliseconds m_patience;
    Clock::time_point m_moved = Clock::now();  ///< when it last sent or took anything
    State_e m_state = State_e::reading;
    std::string m_request;
    std::string m_reply;
    std::size_t m_sent = 0;    ///< bytes of m_reply that are gone
    std::uint64_t m_next = 0;  ///< of a follower: sequence number of the next journal entry
};

}  // namespace bmc::sim
