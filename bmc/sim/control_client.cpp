#include "bmc/sim/control_client.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <exception>
#include <utility>

#include "bmc/sim/control_protocol.h"
#include "qstd/strings.h"

namespace bmc::sim {

namespace {

/// Journal entries put into a follower's buffer at once: what bounds the buffer of one that does not read.
constexpr std::size_t c_followChunk = 512;

}  // namespace

ControlClient::ControlClient(FileDescriptor socket, ControlCommands& commands, const Journal& journal,
                             std::chrono::milliseconds patience)
    : m_socket(std::move(socket)), m_commands(commands), m_journal(journal), m_patience(patience) {}

short ControlClient::PollEvents() const {
    if (m_state == State_e::reading) {
        return POLLIN;
    }
    return m_sent < m_reply.size() ? POLLOUT : 0;
}

ControlClient::Clock::time_point ControlClient::Deadline() const {
    const bool isIdleFollower = m_state == State_e::following && m_sent == m_reply.size();
    return isIdleFollower ? Clock::time_point::max() : m_moved + m_patience;
}

bool ControlClient::GoOn(short events) {
    constexpr short c_isGone = POLLERR | POLLNVAL;
    if ((events & c_isGone) != 0 || (m_state != State_e::reading && (events & POLLHUP) != 0)) {
        return false;
    }
    if (m_state == State_e::reading && (events & (POLLIN | POLLHUP)) != 0 && !Receive()) {
        return false;
    }
    if (!Send()) {
        return false;
    }
    return Clock::now() < Deadline() && !(m_state == State_e::replying && m_sent == m_reply.size());
}

bool ControlClient::Receive() {
    std::array<char, c_maxRequestSize> buffer{};
    const ssize_t count = ::recv(Socket(), buffer.data(), buffer.size(), 0);
    if (count < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (count == 0) {
        if (m_request.empty()) {
            return false;
        }
        Refuse("incomplete request: no newline at its end");
        return true;
    }
    m_moved = Clock::now();
    m_request.append(buffer.data(), static_cast<std::size_t>(count));
    const std::size_t end = m_request.find('\n');
    if (end == std::string::npos ? m_request.size() >= c_maxRequestSize : end >= c_maxRequestSize) {
        Refuse("request too long, the limit is " + std::to_string(c_maxRequestSize) + " bytes");
    } else if (end != std::string::npos) {
        Handle(m_request.substr(0, end));
    }
    return true;
}

void ControlClient::Handle(const std::string& line) {
    const auto fields = SplitFields(line);
    if (fields.size() == 1 && fields.front() == "journal-follow") {
        m_state = State_e::following;
        return;
    }
    try {
        m_reply = m_commands.Execute(fields) + "ok\n";
        m_state = State_e::replying;
    } catch (const std::exception& error) {
        Refuse(error.what());
    }
}

void ControlClient::Refuse(const std::string& text) {
    m_reply = std::string("error") + c_fieldSeparator + qstd::OneLine(text) + "\n";
    m_state = State_e::replying;
}

void ControlClient::FillFromJournal() {
    const Journal::Extract extract = m_journal.Get(m_next, c_followChunk);
    if (m_next == extract.next) {
        return;
    }
    m_next = extract.next;
    m_reply = ControlCommands::JournalLines(extract);
    m_sent = 0;
    m_moved = Clock::now();
}

bool ControlClient::Send() {
    for (;;) {
        if (m_state == State_e::following && m_sent == m_reply.size()) {
            FillFromJournal();
        }
        if (m_sent == m_reply.size()) {
            return true;
        }
        const ssize_t count = ::send(Socket(), m_reply.data() + m_sent, m_reply.size() - m_sent, MSG_NOSIGNAL);
        if (count < 0) {
            return errno == EAGAIN || errno == EINTR;
        }
        m_sent += static_cast<std::size_t>(count);
        m_moved = Clock::now();
    }
}

}  // namespace bmc::sim
