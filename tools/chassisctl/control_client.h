#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace chassisctl {

/// The fields of one line of the control protocol.
using Fields = std::vector<std::string>;

/// What became of a request.
struct Reply {
    enum class Outcome_e {
        done,      ///< carried out; rows hold the body
        refused,   ///< the request cannot be sent as it is, or the daemon said no; text says why
        noAnswer,  ///< nobody listens, or no complete answer came; text says what happened
    };
    Outcome_e outcome = Outcome_e::done;
    std::string text;
    std::vector<Fields> rows;
};

/// A client of the simulated chassis' control socket: a Unix stream socket, one connection for each request. A request
/// is one line of fields separated by TAB; the answer is lines that begin with "+", then one line "ok", or "error" TAB
/// text. Nothing raises, no signal is raised either. An object may be used from any thread, one request at a time each.
class ControlClient {
public:
    /// How long connecting, sending and the whole answer may take together.
    static constexpr std::chrono::milliseconds c_usualLimit{10000};

    explicit ControlClient(std::string socketPath, std::chrono::milliseconds limit = c_usualLimit);

    /// Sends a request and waits for the whole answer.
    Reply Ask(const Fields& request) const;

    /// Sends a request whose answer does not end, and hands on each line of the body as it comes.
    /// @param onRow false ends the request: the outcome is then `done`.
    Reply Follow(const Fields& request, const std::function<bool(const Fields&)>& onRow) const;

private:
    /// One request and its reply; @p deadline for all of the reply, nothing: for ever.
    Reply Converse(const Fields& request, const std::optional<std::chrono::steady_clock::time_point>& deadline,
                   const std::function<bool(const Fields&)>& onRow) const;

    std::string m_socketPath;
    std::chrono::milliseconds m_limit;
};

}  // namespace chassisctl
