#include "bmc/ipmi/reachability.h"

#include <algorithm>

#include <fmt/format.h>

namespace bmc::ipmi {

namespace {

const char* ControllerWords(TransportFailure_e failure) {
    switch (failure) {
        case TransportFailure_e::refused:
            return "refuses the session";
        case TransportFailure_e::broken:
            return "gives wrong answers";
        case TransportFailure_e::system:
            return "cannot be reached";
        case TransportFailure_e::noAnswer:
        case TransportFailure_e::interrupted:
            break;
    }
    return "does not answer";
}

void Append(std::string& list, const std::string& label) {
    list += (list.empty() ? "" : ", ") + label;
}

}  // namespace

Reachability::Reachability(std::string name, std::string session, const std::vector<BoardOnController>& boards,
                           std::chrono::milliseconds leastBackOff, std::chrono::milliseconds mostBackOff)
    : m_name(std::move(name)), m_session(std::move(session)) {
    const auto addPort = [&](const Target& target) {
        const std::string seed = fmt::format("{} {} {}", m_name, target.channel, target.address);
        m_ports.push_back({target, {}, LinkState(BackOff(leastBackOff, mostBackOff, seed))});
    };
    addPort(Target{});
    for (const BoardOnController& board : boards) {
        if (std::none_of(m_ports.begin(), m_ports.end(),
                         [&](const Port& port) { return port.target == board.target; })) {
            addPort(board.target);
        }
        Append(m_ports[PortOf(board.target)].labels, board.label);
        Append(m_allBoards, board.label);
    }
    if (!m_allBoards.empty()) {
        m_allBoards = (boards.size() == 1 ? " (board " : " (boards ") + m_allBoards + ")";
    }
}

std::size_t Reachability::PortOf(const Target& target) const {
    const auto found =
        std::find_if(m_ports.begin(), m_ports.end(), [&](const Port& port) { return port.target == target; });
    return static_cast<std::size_t>(found - m_ports.begin());
}

std::string Reachability::AddressOf(std::size_t port) const {
    const Target& target = m_ports[port].target;
    if (!target.IsBridged()) {
        return m_name;
    }
    return target.channel == 0 ? fmt::format("{}, IPMB 0x{:02x}", m_name, target.address)
                               : fmt::format("{}, IPMB {}/0x{:02x}", m_name, target.channel, target.address);
}

void Reachability::Take(std::size_t port, const ExchangeResult& result, SteadyTime now, const qstd::Time& calendar) {
    switch (result.verdict) {
        case Verdict_e::answered:
            Answered(0, now);
            Answered(port, now);
            break;
        case Verdict_e::boardSilent:
            Answered(0, now);
            Failed(port, result, now, calendar);
            break;
        case Verdict_e::controllerSilent:
            Failed(0, result, now, calendar);
            break;
        case Verdict_e::undecided:
            break;
    }
}

void Reachability::Answered(std::size_t port, SteadyTime now) {
    LinkState& state = m_ports[port].state;
    const LinkState::Change_e change = state.Answered();
    if (change == LinkState::Change_e::first && port == 0) {
        m_messages.emplace_back(qstd::LogLevel_e::info,
                                fmt::format("Controller {} answers: {}{}", m_name, m_session, m_allBoards));
    } else if (change == LinkState::Change_e::returned) {
        const std::chrono::duration<double> length = now - state.GetSilence().begin;
        m_messages.emplace_back(qstd::LogLevel_e::info, fmt::format("{} answers again after {:.1f} s{}", Name(port),
                                                                    length.count(), port == 0 ? m_allBoards : ""));
    }
}

void Reachability::Failed(std::size_t port, const ExchangeResult& result, SteadyTime now, const qstd::Time& calendar) {
    if (m_ports[port].state.Failed(result.failure, result.text, now, calendar) != LinkState::Change_e::fellSilent) {
        return;
    }
    m_messages.emplace_back(
        qstd::LogLevel_e::warning,
        port == 0 ? fmt::format("{} {}: {}{}", Name(port), ControllerWords(result.failure), result.text, m_allBoards)
                  : fmt::format("{} does not answer: {}", Name(port), result.text));
}

std::string Reachability::Name(std::size_t port) const {
    return port == 0 ? "Controller " + m_name : fmt::format("Board {} ({})", m_ports[port].labels, AddressOf(port));
}

Failure Reachability::WhySilent(std::size_t port) const {
    const std::string subject = IsControllerSilent() && port != 0 ? "the controller: " : "";
    const LinkState& state = IsControllerSilent() ? Controller() : m_ports[port].state;
    return {Failure::Kind_e::noAnswer, subject + SilenceText(state.GetSilence()), false};
}

std::optional<bool> Reachability::IsAnswering(std::size_t port) const {
    if (IsSilent(port)) {
        return false;
    }
    if (m_ports[port].state.Get() == LinkState::State_e::unknown) {
        return std::nullopt;
    }
    return true;
}

unsigned long Reachability::GetReturns(std::size_t port) const {
    return Controller().GetReturns() + (port == 0 ? 0 : m_ports[port].state.GetReturns());
}

std::optional<Reachability::Due> Reachability::NextProbe() const {
    if (IsControllerSilent()) {
        return Due{0, Controller().NextProbe()};
    }
    std::optional<Due> next;
    for (std::size_t port = 1; port < m_ports.size(); ++port) {
        const LinkState& state = m_ports[port].state;
        if (state.IsSilent() && (!next || state.NextProbe() < next->time)) {
            next = Due{port, state.NextProbe()};
        }
    }
    return next;
}

}  // namespace bmc::ipmi
