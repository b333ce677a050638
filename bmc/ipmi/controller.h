#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/reachability.h"
#include "bmc/ipmi/stop_limit.h"
#include "bmc/ipmi/transport.h"
#include "qstd/log.h"

namespace bmc::ipmi {

/// Takes log messages. Called from any thread, without a lock. Must not throw.
using LogFunction = std::function<void(qstd::LogLevel_e level, const std::string& text)>;

/// What a controller's thread has to know of it beside the transport.
struct ControllerOptions {
    std::string name{};                       ///< "10.0.0.11:623", for messages
    std::string session{};                    ///< "session with cipher suite 17", for the message of its first answer
    std::chrono::milliseconds timeout{1000};  ///< how long a try waits for its answer
    unsigned int retries = 2;                 ///< how often a request that changes nothing is sent again
};

/// Times of a controller that no configuration changes; tests do.
struct ControllerTiming {
    std::chrono::milliseconds leastBackOff{500};  ///< from a failure to the first probe; doubles from probe to probe
    std::chrono::milliseconds mostBackOff{30'000};
    std::chrono::milliseconds keepAlive{10'000};      ///< an idle session is used after that time, so that it lives
    std::chrono::milliseconds queuePatience{10'000};  ///< how long a request may wait for its turn
};

class ControllerWorker;

/// A management controller: owns the session with it and the one thread that uses it, which executes the requests to
/// the controller itself and to the boards behind it.
///
/// A board (a link) is in one of three states, and the controller as a whole likewise:
/// - unknown: nothing was asked yet; the session is opened at the start;
/// - answering: the last exchange brought an answer;
/// - silent: it did not answer, or the session could not be opened. Requests fail at once. A probe (opening the
///   session and Get Device ID, or Get Device ID to a board behind the controller) follows after 0.5 s, then after
///   twice that each time, up to 30 s, each 10% more or less; the first that is answered makes it answering. A
///   controller that refuses the account twice is asked every 30 s only, so that it does not lock it.
/// Probing a board behind the controller may hold others up for a timeout; all probes together take a fifth of the
/// time at most.
/// Each transition between answering and silent is logged once, with the reason.
///
/// How long a request lasts, with the configured timeout T and retries R, counted from when its turn comes:
/// - one that changes nothing T * (R + 1), and 2 T without retries: all but the last T in the present session, the
///   rest in a new one, which makes up for a session that the controller has dropped. The board is asked its name
///   there first: one that tells it and leaves the request unanswered is not silent;
/// - one that is sent once T, and one more T for a new session when it was not answered;
/// - a new session that has to be opened before comes on top, with T * (R + 1) at the most;
/// - from LimitAccesses on, what is let through: 0.7 s (T if shorter) for the try, 0.6 s (T) for a session. The first
///   that is for a board that was silent then does not fail at once: the board may have come back since the last probe.
///
/// All operations but construction and destruction may be called from any thread.
class Controller {
public:
    /// Starts the thread, which opens the session at once.
    Controller(const ControllerOptions& options, const std::vector<BoardOnController>& boards,
               std::unique_ptr<Transport> transport, LogFunction log, const ControllerTiming& timing = {});

    /// Gives up what is queued or under way (the callers get an exception), closes the session and joins the thread.
    /// Lasts 200 ms at the most, whatever the controller does.
    ~Controller();

    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    /// The link to a board, by its index in the constructor's list. Lives as long as this object.
    Link& LinkTo(std::size_t board);

    /// The link to the controller itself, whether it is a board of the list or not.
    Link& OwnLink();

    /// See bmc::Backend::LimitAccesses.
    void LimitAccesses(const StopLimit& limit);

    /// How many requests and batches of the callers wait or are under way.
    std::size_t CountJobs() const;

private:
    std::shared_ptr<ControllerWorker> m_worker;
    std::unique_ptr<Link> m_ownLink;
    std::vector<std::unique_ptr<Link>> m_links;
};

}  // namespace bmc::ipmi
