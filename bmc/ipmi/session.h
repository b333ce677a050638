#pragma once

#include <chrono>
#include <string>

#include "bmc/ipmi/message.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// What an exchange tells of those who were asked.
enum class Verdict_e {
    answered,          ///< the response is there
    boardSilent,       ///< the controller answers, the board behind it does not
    controllerSilent,  ///< the controller does not answer, or lets nobody in
    undecided,         ///< nothing: a wrong answer, an interruption, a write without an answer that may be asked about
};

/// What became of a request.
struct ExchangeResult {
    Verdict_e verdict = Verdict_e::undecided;
    Response response{};
    // Unless answered:
    TransportFailure_e failure = TransportFailure_e::noAnswer;
    std::string text{};
    bool wasSent = false;  ///< the board may have executed it

    bool IsInterrupted() const noexcept {
        return verdict != Verdict_e::answered && failure == TransportFailure_e::interrupted;
    }
};

/// How long a request may take, counted from when it is sent first.
struct TryTimes {
    std::chrono::milliseconds first;  ///< in the present session
    std::chrono::milliseconds whole;  ///< together with a new session, and what is done in that
};

/// The rules by which requests are repeated and a lost session is replaced. Used by one thread. Every failed exchange
/// ends the session: a late answer to it can then be taken for no other's. The time is that of qstd::Clock.
class Session {
public:
    /// @param politeness how long closing a session may take in the middle of the work
    Session(Transport& transport, std::chrono::milliseconds politeness)
        : m_transport(transport), m_politeness(politeness) {}

    bool IsOpen() const noexcept { return m_isOpen; }

    /// Opens the session and asks the controller who it is, which proves that it answers.
    ExchangeResult Establish(std::chrono::milliseconds time);

    /// Executes a request that may be repeated. When the session brings no answer, or a wrong one, there is a new
    /// session, the question who it is and one more try in it: a request that alone is not answered says nothing of the
    /// controller or the board. @pre IsOpen()
    ExchangeResult Read(const Target& target, const Request& request, const TryTimes& times);

    /// Executes a request that is sent at most once. Without an answer to it there is a new session, so that the
    /// board can be asked whether it did it: then the verdict is undecided. @pre IsOpen()
    ExchangeResult Write(const Target& target, const Request& request, const TryTimes& times);

    /// Asks a board behind the controller who it is, once. @pre IsOpen()
    ExchangeResult Probe(const Target& target, std::chrono::milliseconds time);

    /// To be called when Transport::Interrupt may have come after the end of the call that it was for: what it would
    /// hit then is the opening of a new session, which is repeated.
    void ExpectStrayInterrupt() noexcept;

    /// Closes the session if it is open.
    void Close(SteadyTime deadline) noexcept;

private:
    ExchangeResult Open(SteadyTime deadline);
    ExchangeResult Try(const Target& target, const Request& request, Sending_e sending, SteadyTime deadline);

    Transport& m_transport;
    const std::chrono::milliseconds m_politeness;
    bool m_isOpen = false;
    bool m_mayBeInterruptedByStray = false;
};

}  // namespace bmc::ipmi
