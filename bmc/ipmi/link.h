#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bmc/ipmi/message.h"

namespace bmc::ipmi {

/// What a request is for. It decides its place in the queue (in the order of the enumerators: what is written before
/// what is read), whether it may be sent again, and what becomes of it when the service stops.
enum class Purpose_e {
    switching,  ///< switches power: sent at most once
    writing,    ///< changes a register, the clock: sent at most once
    verifying,  ///< changes nothing; shows whether what was written before is so, and belongs to it at a stop
    reading,    ///< changes nothing; somebody waits for it
    sweeping,   ///< changes nothing; one of many
};

/// Requests that were handed over together and are answered in their order. Used by one thread. Its end gives up what
/// was not sent yet, without waiting. May outlive its link.
class Batch {
public:
    Batch() = default;
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;
    virtual ~Batch() = default;

    /// Waits for the answer to request @p index. To be called once for each. May return some milliseconds after the
    /// answer came: who waits is not woken for each.
    /// @throws qstd::Exception as Link::Execute
    virtual Response Await(std::size_t index) = 0;
};

/// One management controller as its board uses it: the one that a session reaches, or one behind it on the IPMB. All
/// operations may be called from any thread. Requests are executed one after the other, those of one purpose in the
/// order in which they were made.
class Link {
public:
    Link() = default;
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    virtual ~Link() = default;

    /// Executes @p request and waits for the answer. A request that changes nothing is sent again when need be, in a
    /// new session if the old one was lost; one that changes something is sent at most once.
    /// @throws NoAnswer when none came, or at once when the board is known not to answer. For a request that is sent at
    ///         most once also after a wrong answer; when it WasSent(), a request of Purpose_e::verifying tells whether
    ///         it was executed.
    /// @throws BrokenOff when the service stops (bmc::Backend::LimitAccesses)
    /// @throws qstd::Exception for an answer that is none, or when others keep the controller busy; a completion code
    ///         that is not 0 is an answer
    virtual Response Execute(const Request& request, Purpose_e purpose) = 0;

    /// Hands over requests that change nothing, without waiting. What goes wrong shows at Batch::Await.
    virtual std::unique_ptr<Batch> Begin(std::vector<Request> requests) = 0;

    /// Whether the last that is known of the board is that it answers; nothing when it was not asked yet. Asks nobody.
    virtual std::optional<bool> IsAnswering() const = 0;

    /// How often the board has come back after it had not answered: who keeps something of it looks at this.
    virtual unsigned long GetReturns() const = 0;
};

}  // namespace bmc::ipmi
