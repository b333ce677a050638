#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"
#include "qstd/log.h"

namespace bmc::ipmi {

/// Takes log messages. Any thread.
using LogFunction = std::function<void(qstd::LogLevel_e level, const std::string& text)>;

/// A board that is reached through a controller.
struct BoardOnController {
    std::string label;  ///< the board's uri, for messages
    Target target;
};

/// Times of a controller that no configuration changes; tests do.
struct ControllerTiming {
    std::chrono::milliseconds leastBackOff{500};  ///< from a failure to the first probe; doubles from probe to probe
    std::chrono::milliseconds mostBackOff{30'000};
    std::chrono::milliseconds keepAlive{10'000};      ///< an idle session is used after that time, so that it lives
    std::chrono::milliseconds queuePatience{10'000};  ///< how long a request may wait for its turn
};

/// From which moment on accesses are given up because the service stops, see bmc::Backend::LimitAccesses.
struct StopLimit {
    SteadyTime deadline;
    std::chrono::milliseconds patience;
    std::thread::id stopper;
};

/// A management controller: owns the session with it and the one thread that uses it, which executes the requests to
/// the controller itself and to the boards behind it.
///
/// A board (a link) is in one of three states, and the controller as a whole likewise:
/// - unknown: nothing was asked yet; the first request opens the session;
/// - answering: the last exchange brought an answer;
/// - silent: it did not answer, or the session could not be opened. Requests fail at once. A probe (opening the
/// session,
///   or Get Device ID to a board behind the controller) follows after 0.5 s, then after twice that each time, up to
///   30 s (with some jitter); the first that is answered makes it answering.
/// Each transition between answering and silent is logged once, with the reason.
///
/// All operations but construction and destruction may be called from any thread.
class Controller {
public:
    /// Starts the thread, which opens the session at once.
    Controller(ControllerSettings settings, std::vector<BoardOnController> boards, std::unique_ptr<Transport> transport,
               LogFunction log, ControllerTiming timing = {});

    /// Gives up what is queued (the callers get an exception), closes the session and joins the thread. Lasts 200 ms at
    /// the most, whatever the controller does.
    ~Controller();

    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    /// The link to a board, by its index in the constructor's list. Lives as long as this object.
    Link& LinkTo(std::size_t board);

    /// The link to the controller itself, whether it is a board of the list or not.
    Link& OwnLink();

    /// See bmc::Backend::LimitAccesses.
    void LimitAccesses(const StopLimit& limit);

private:
    class Worker;
    std::unique_ptr<Worker> m_worker;
};

}  // namespace bmc::ipmi
