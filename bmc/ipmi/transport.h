#pragma once

#include <chrono>
#include <string>

#include "bmc/ipmi/message.h"
#include "qstd/exception.h"

namespace bmc::ipmi {

using SteadyTime = std::chrono::steady_clock::time_point;

/// How often a transport may send a request.
enum class Sending_e {
    repeated,  ///< again after each time-out of a try, until the deadline: for requests that change nothing
    once,      ///< never again, whatever happens
};

/// How an exchange failed. Whatever the way, the session is to be opened anew before the next exchange.
enum class TransportFailure_e {
    noAnswer,  ///< nothing came by the deadline; the request may have been executed
    refused,   ///< the controller answered, but not to this account: user, password, privilege, cipher suite, no free
               ///< session
    broken,    ///< an answer that is none: malformed, of another request, of another session
    interrupted,  ///< Interrupt() was called
    system,       ///< this host could not send: no route, no device, no permission, no password file
};

/// A failed opening or exchange. Raised to the controller's thread only.
class TransportError : public qstd::Exception {
public:
    TransportError(TransportFailure_e failure, const std::string& text) : Exception(text), m_failure(failure) {}
    TransportFailure_e GetFailure() const noexcept { return m_failure; }

private:
    TransportFailure_e m_failure;
};

/// One session with one controller. Open, Exchange and Close are called by one thread, the same one all the time;
/// Interrupt by any. No call lasts longer than its deadline says, but for a few milliseconds; deadlines are of the
/// steady clock, so that a host clock that is set moves none of them.
class Transport {
public:
    Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;
    virtual ~Transport() = default;

    /// Opens the session; one that is open is given up first, without a word to the controller.
    /// @throws TransportError
    virtual void Open(SteadyTime deadline) = 0;

    /// Sends @p request to @p target and waits for the answer to it. @pre the session is open
    /// @throws TransportError; a completion code that is not 0 is an answer, also one that the bridge gave itself
    virtual Response Exchange(const Target& target, const Request& request, Sending_e sending, SteadyTime deadline) = 0;

    /// Closes the session, telling the controller if it is open, so that its slot is free at once. Waits for no more
    /// than
    /// @p deadline. Nothing to do when none is open.
    virtual void Close(SteadyTime deadline) noexcept = 0;

    /// Ends a call that is under way, or else the next one, with TransportFailure_e::interrupted. Any thread.
    virtual void Interrupt() = 0;
};

}  // namespace bmc::ipmi
