#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bmc/ipmi/link_state.h"
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/request_queue.h"
#include "bmc/ipmi/session.h"
#include "qstd/log.h"

namespace bmc::ipmi {

/// A board that is reached through a controller.
struct BoardOnController {
    std::string label;  ///< the board's uri, for messages
    Target target{};
};

/// Who of a controller and the boards behind it answers, as the results of exchanges tell, and what there is to log
/// about it. A port is one target: number 0 the controller itself, the others what is behind it. A board behind a
/// controller that is silent is silent, too; when the controller returns, the board is what it was before. Not locked.
class Reachability {
public:
    using Messages = std::vector<std::pair<qstd::LogLevel_e, std::string>>;

    /// @param name the controller's, for messages
    /// @param session how the controller is reached, for the message of its first answer
    Reachability(std::string name, std::string session, const std::vector<BoardOnController>& boards,
                 std::chrono::milliseconds leastBackOff, std::chrono::milliseconds mostBackOff);

    /// @pre @p target is the controller or one of the boards given
    std::size_t PortOf(const Target& target) const;
    const Target& TargetOf(std::size_t port) const { return m_ports[port].target; }

    /// "10.0.0.11:623" or, of what is behind it, "10.0.0.11:623, IPMB 0x86": who is asked, without its label.
    std::string AddressOf(std::size_t port) const;

    /// Takes in what an exchange with @p port told. @param now, calendar the present moment
    void Take(std::size_t port, const ExchangeResult& result, SteadyTime now, const qstd::Time& calendar);

    /// What there is to log since the last call.
    Messages TakeMessages() { return std::exchange(m_messages, {}); }
    bool HasMessages() const noexcept { return !m_messages.empty(); }

    bool IsControllerSilent() const noexcept { return Controller().IsSilent(); }
    bool IsSilent(std::size_t port) const noexcept { return IsControllerSilent() || m_ports[port].state.IsSilent(); }

    /// Why a request to @p port fails at once. @pre IsSilent(port)
    Failure WhySilent(std::size_t port) const;

    /// See Link.
    std::optional<bool> IsAnswering(std::size_t port) const;
    unsigned long GetReturns(std::size_t port) const;

    struct Due {
        std::size_t port = 0;
        SteadyTime time{};
    };
    /// The probe that comes next: of the controller when it is silent, else of a board behind it.
    std::optional<Due> NextProbe() const;

private:
    struct Port {
        Target target;
        std::string labels;  ///< of its boards: "io/1, io/3"
        LinkState state;
    };

    const LinkState& Controller() const noexcept { return m_ports.front().state; }
    void Answered(std::size_t port, SteadyTime now);
    void Failed(std::size_t port, const ExchangeResult& result, SteadyTime now, const qstd::Time& calendar);
    std::string Name(std::size_t port) const;

    const std::string m_name;
    const std::string m_session;
    std::vector<Port> m_ports;
    std::string m_allBoards;  ///< " (boards io/1, io/3)" or nothing
    Messages m_messages;
};

}  // namespace bmc::ipmi
