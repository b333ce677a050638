#include "tools/regctl/interruption.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <utility>

namespace regctl {

namespace {

sigset_t Signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

}  // namespace

Interruption::Interruption() : m_end(::eventfd(0, EFD_CLOEXEC)) {
    const sigset_t signals = Signals();
    ::pthread_sigmask(SIG_BLOCK, &signals, &m_formerMask);
    const int descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC);
    m_thread = std::thread([this, descriptor] {
        AwaitSignal(descriptor);
        ::close(descriptor);
    });
}

Interruption::~Interruption() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_end, &one, sizeof one);
    m_thread.join();
    ::close(m_end);
    ::pthread_sigmask(SIG_SETMASK, &m_formerMask, nullptr);
}

void Interruption::SetAction(std::function<void()> action) {
    const std::lock_guard lock(m_mutex);
    m_action = std::move(action);
}

void Interruption::AwaitSignal(int signals) {
    std::array<pollfd, 2> sources{{{signals, POLLIN, 0}, {m_end, POLLIN, 0}}};
    while (::poll(sources.data(), sources.size(), -1) < 0) {
    }
    if (sources[0].revents == 0) {
        return;
    }
    signalfd_siginfo signal{};
    if (::read(signals, &signal, sizeof signal) != sizeof signal) {
        return;
    }
    const sigset_t both = Signals();
    ::pthread_sigmask(SIG_UNBLOCK, &both, nullptr);  // in this thread: the next one is as usual
    m_came = true;
    const std::lock_guard lock(m_mutex);
    if (m_action) {
        m_action();
    }
}

}  // namespace regctl
