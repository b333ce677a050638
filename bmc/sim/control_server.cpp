#include "bmc/sim/control_server.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "bmc/sim/sim_backend.h"
#include "qstd/exception.h"
#include "qstd/thread_name.h"

namespace bmc::sim {

namespace {

/// How long connections wait when one could not be accepted.
constexpr std::chrono::milliseconds c_acceptPause{1000};

FileDescriptor NewEvent() {
    FileDescriptor made(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (made.Get() < 0) {
        throw qstd::Exception(std::string("control socket: cannot make an event: ") + std::strerror(errno));
    }
    return made;
}

/// Blocks every signal on the calling thread, and so on threads that it starts, while it lives.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all{};
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before{};
};

}  // namespace

ControlServer::ControlServer(SimBackend& chassis, const std::string& socketPath, const Limits& limits)
    : m_chassis(chassis), m_commands(chassis), m_limits(limits), m_wake(NewEvent()), m_listening(socketPath) {
    const AllSignalsBlocked blocked;
    m_thread = std::thread([this] { Serve(); });
    m_chassis.GetJournal().SetListener([event = m_wake.Get()] { ::eventfd_write(event, 1); });
}

ControlServer::~ControlServer() {
    m_chassis.GetJournal().SetListener(nullptr);
    m_stop = true;
    ::eventfd_write(m_wake.Get(), 1);
    m_thread.join();
}

bool ControlServer::IsAcceptPaused() const {
    return ControlClient::Clock::now() < m_acceptAgain;
}

int ControlServer::PollTimeout() const {
    using std::chrono::milliseconds;
    auto first = IsAcceptPaused() ? m_acceptAgain : ControlClient::Clock::time_point::max();
    for (const ControlClient& client : m_clients) {
        first = std::min(first, client.Deadline());
    }
    if (first == ControlClient::Clock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<milliseconds>(first - ControlClient::Clock::now());
    return static_cast<int>(std::clamp(left, milliseconds::zero(), std::max(m_limits.patience, c_acceptPause)).count());
}

void ControlServer::Serve() {
    qstd::SetThreadName("sim-control");
    std::vector<pollfd> waits;
    while (!m_stop) {
        waits.assign({pollfd{m_wake.Get(), POLLIN, 0}, pollfd{IsAcceptPaused() ? -1 : m_listening.Get(), POLLIN, 0}});
        for (const ControlClient& client : m_clients) {
            waits.push_back(pollfd{client.Socket(), client.PollEvents(), 0});
        }
        if (::poll(waits.data(), waits.size(), PollTimeout()) < 0) {
            continue;  // EINTR, or the system is short of memory
        }
        eventfd_t count = 0;
        ::eventfd_read(m_wake.Get(), &count);
        auto wait = waits.begin() + 2;
        for (auto client = m_clients.begin(); client != m_clients.end(); ++wait) {
            client = client->GoOn(wait->revents) ? std::next(client) : m_clients.erase(client);
        }
        if (waits[1].revents != 0) {
            Accept();
        }
    }
    for (ControlClient& client : m_clients) {
        client.GoOn(0);  // a follower of the journal gets what was done up to the end, as far as it takes it at once
    }
}

void ControlServer::Accept() {
    FileDescriptor socket(::accept4(m_listening.Get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (socket.Get() < 0) {
        // Out of descriptors or memory, the connection stays in the queue: poll would tell of it without end.
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            m_acceptAgain = ControlClient::Clock::now() + c_acceptPause;
        }
        return;
    }
    if (m_clients.size() < m_limits.clients) {
        m_clients.emplace_back(std::move(socket), m_commands, m_chassis.GetJournal(), m_limits.patience);
        return;
    }
    const std::string text = "error\ttoo many clients, the limit is " + std::to_string(m_limits.clients) + "\n";
    ::send(socket.Get(), text.data(), text.size(), MSG_NOSIGNAL);
}

}  // namespace bmc::sim
