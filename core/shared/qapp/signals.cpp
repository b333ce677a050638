#include "qapp/signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "qstd/exception.h"

namespace qapp {

Signals::Signals() : m_descriptor(-1) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGHUP);
    std::signal(SIGPIPE, SIG_IGN);
    if (pthread_sigmask(SIG_BLOCK, &set, nullptr) == 0) {
        m_descriptor = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
    }
    if (m_descriptor < 0) {
        throw qstd::Exception(std::string("Cannot take signals: ") + std::strerror(errno));
    }
}

Signals::~Signals() {
    ::close(m_descriptor);
}

void Signals::Poll() {
    signalfd_siginfo info{};
    while (::read(m_descriptor, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        if (info.ssi_signo == SIGHUP) {
            m_isReopenRequested = true;
        } else {
            m_isStopRequested = true;
        }
    }
}

bool Signals::IsStopPending() noexcept {
    sigset_t set;
    return sigpending(&set) == 0 && (sigismember(&set, SIGTERM) == 1 || sigismember(&set, SIGINT) == 1);
}

bool Signals::TakeReopenRequest() noexcept {
    return std::exchange(m_isReopenRequested, false);
}

}  // namespace qapp
