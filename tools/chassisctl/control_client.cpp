#include "tools/chassisctl/control_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include "bmc/sim/control_protocol.h"
#include "qstd/exception.h"

namespace chassisctl {

namespace {

using Outcome_e = Reply::Outcome_e;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr std::size_t c_lineSize = std::size_t{64} * 1024;           // a longer line is no answer of a daemon
constexpr std::size_t c_answerSize = std::size_t{64} * 1024 * 1024;  // nor is more than this before the final line
constexpr std::size_t c_chunkSize = std::size_t{16} * 1024;

/// A file descriptor that is closed at the end of the scope.
class Socket {
public:
    explicit Socket(int fd) : m_fd(fd) {}
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;
    ~Socket() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    int Get() const { return m_fd; }

private:
    int m_fd;
};

std::string ErrorText(int error) {
    return std::generic_category().message(error);
}

/// The request as one line; nothing when a field cannot be sent, @p why then says which.
std::optional<std::string> RequestLine(const Fields& request, std::string& why) {
    try {
        std::string line = bmc::sim::JoinFields(request) + "\n";
        if (line.size() <= bmc::sim::c_maxRequestSize) {
            return line;
        }
        why = "the request has " + std::to_string(line.size()) + " bytes, at most " +
              std::to_string(bmc::sim::c_maxRequestSize) + " are allowed";
    } catch (const qstd::Exception& error) {
        why = error.what();
    }
    return std::nullopt;
}

/// One request: connection, deadline and what has come so far.
class Exchange {
public:
    Exchange(const std::string& path, std::chrono::milliseconds limit)
        : m_path(path), m_limit(limit), m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {}

    /// Null when the request is on its way; else why not.
    std::optional<Reply> Send(const std::string& line) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (m_path.empty() || m_path.size() >= sizeof(address.sun_path)) {
            return Reply{Outcome_e::refused,
                         "socket path \"" + m_path + "\" has " + std::to_string(m_path.size()) + " bytes, 1 to " +
                             std::to_string(sizeof(address.sun_path) - 1) + " are allowed",
                         {}};
        }
        std::copy(m_path.begin(), m_path.end(), std::begin(address.sun_path));
        // The limit of both connecting and sending; a daemon that is stuck may have a full queue.
        const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(m_limit).count();
        constexpr long c_microsPerSecond = 1000000;
        const timeval limit{micros / c_microsPerSecond, micros % c_microsPerSecond};
        setsockopt(m_socket.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
        if (connect(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            return errno == EAGAIN ? TooSlow() : NoAnswer(ErrorText(errno));
        }
        std::string_view rest = line;
        while (!rest.empty()) {
            const ssize_t sent = send(m_socket.Get(), rest.data(), rest.size(), MSG_NOSIGNAL);
            if (sent < 0 && (errno == EPIPE || errno == ECONNRESET)) {
                break;  // the daemon has closed already; it may have said why
            }
            if (sent < 0 && errno != EINTR) {
                return errno == EAGAIN ? TooSlow() : NoAnswer(ErrorText(errno));
            }
            rest.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(sent, 0)));
        }
        return std::nullopt;
    }

    /// Hands on the body, line by line, until the final line. @param deadline nothing: wait for ever
    Reply Receive(const std::optional<SteadyTime>& deadline, const std::function<bool(const Fields&)>& onRow) {
        std::size_t received = 0;
        for (;;) {
            const auto end = m_pending.find('\n');
            if (end != std::string::npos) {
                const std::string line = m_pending.substr(0, end);
                m_pending.erase(0, end + 1);
                if (auto reply = TakeLine(line, onRow)) {
                    return *std::move(reply);
                }
                continue;
            }
            if (m_pending.size() > c_lineSize || (deadline && received > c_answerSize)) {
                return NoAnswer("its answer is too long");
            }
            if (!WaitReadable(deadline)) {
                return TooSlow();
            }
            std::array<char, c_chunkSize> chunk{};
            const ssize_t got = recv(m_socket.Get(), chunk.data(), chunk.size(), 0);
            if (got == 0 || (got < 0 && errno == ECONNRESET)) {
                return NoAnswer("it closed the connection before the end of its answer");
            }
            if (got < 0 && errno != EINTR) {
                return NoAnswer(ErrorText(errno));
            }
            m_pending.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
            received += static_cast<std::size_t>(std::max<ssize_t>(got, 0));
        }
    }

private:
    /// Nothing as long as the answer goes on.
    std::optional<Reply> TakeLine(const std::string& line, const std::function<bool(const Fields&)>& onRow) {
        if (line.starts_with('+')) {
            return onRow(bmc::sim::SplitFields(line.substr(1))) ? std::nullopt : std::optional<Reply>(Reply{});
        }
        if (line == "ok") {
            return Reply{};
        }
        constexpr std::string_view c_error = "error\t";
        if (line.starts_with(c_error)) {
            return Reply{Outcome_e::refused, line.substr(c_error.size()), {}};
        }
        return NoAnswer("its answer is not understood");
    }

    /// False when the deadline is over.
    bool WaitReadable(const std::optional<SteadyTime>& deadline) const {
        for (;;) {
            int wait = -1;
            if (deadline) {
                const auto left =
                    std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now());
                wait = static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
            }
            pollfd readable{m_socket.Get(), POLLIN, 0};
            const int ready = poll(&readable, 1, wait);
            if (ready >= 0 || errno != EINTR) {
                return ready != 0;
            }
        }
    }

    Reply NoAnswer(const std::string& why) const {
        return {Outcome_e::noAnswer, "no daemon answers at " + m_path + ": " + why, {}};
    }

    Reply TooSlow() const { return NoAnswer("nothing came within " + std::to_string(m_limit.count()) + " ms"); }

    std::string m_path;
    std::chrono::milliseconds m_limit;
    Socket m_socket;
    std::string m_pending;
};

}  // namespace

ControlClient::ControlClient(std::string socketPath, std::chrono::milliseconds limit)
    : m_socketPath(std::move(socketPath)), m_limit(limit) {}

Reply ControlClient::Ask(const Fields& request) const {
    std::vector<Fields> rows;
    Reply reply = Converse(request, std::chrono::steady_clock::now() + m_limit, [&rows](const Fields& row) {
        rows.push_back(row);
        return true;
    });
    reply.rows = std::move(rows);
    return reply;
}

Reply ControlClient::Follow(const Fields& request, const std::function<bool(const Fields&)>& onRow) const {
    return Converse(request, std::nullopt, onRow);
}

Reply ControlClient::Converse(const Fields& request,
                              const std::optional<std::chrono::steady_clock::time_point>& deadline,
                              const std::function<bool(const Fields&)>& onRow) const {
    std::string why;
    const auto line = RequestLine(request, why);
    if (!line) {
        return {Outcome_e::refused, why, {}};
    }
    Exchange exchange(m_socketPath, m_limit);
    if (auto failed = exchange.Send(*line)) {
        return *std::move(failed);
    }
    return exchange.Receive(deadline, onRow);
}

}  // namespace chassisctl
