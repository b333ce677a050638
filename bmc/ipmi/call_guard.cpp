#include "bmc/ipmi/call_guard.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "qstd/exception.h"

#ifndef sigev_notify_thread_id  // the C library of Debian 12 has the member without its name
#define sigev_notify_thread_id _sigev_un._tid
#endif

namespace bmc::ipmi {

namespace {

constexpr int c_signal = SIGURG;

/// From one signal to the next while the call has not come back.
constexpr timespec c_repetition{.tv_sec = 0, .tv_nsec = 5'000'000};

constexpr timespec c_never{.tv_sec = 0, .tv_nsec = 0};
constexpr timespec c_atOnce{.tv_sec = 0, .tv_nsec = 1};

void InstallHandler() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ::sigemptyset(&action.sa_mask);
    ::sigaction(c_signal, &action, nullptr);
}

/// What a thread blocks during a call: all but the guard's signal and those that tell of a fault of the thread itself.
sigset_t SignalsToBlock() {
    sigset_t signals{};
    ::sigfillset(&signals);
    for (const int signal : {c_signal, SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV, SIGSYS, SIGTRAP}) {
        ::sigdelset(&signals, signal);
    }
    return signals;
}

/// The steady clock's time as the timer's clock, CLOCK_MONOTONIC, counts it: they are the same. Not zero, which would
/// stop the timer.
timespec ToTimespec(CallGuard::Time time) {
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    const auto sinceBoot = std::max<nanoseconds>(time.time_since_epoch(), nanoseconds(1));
    const auto whole = std::chrono::floor<seconds>(sinceBoot);
    return {.tv_sec = whole.count(), .tv_nsec = static_cast<long>((sinceBoot - whole).count())};
}

}  // namespace

CallGuard::~CallGuard() {
    if (m_timer) {
        ::timer_delete(*m_timer);
    }
}

void CallGuard::Begin(Time deadline) {
    const std::lock_guard lock(m_mutex);
    if (!m_timer || m_thread != ::gettid()) {
        MakeTimer();
    }
    static const sigset_t signals = SignalsToBlock();
    ::pthread_sigmask(SIG_SETMASK, &signals, &m_formerMask);
    m_isCalling = true;
    SetTimer(m_isInterrupted ? c_atOnce : ToTimespec(deadline));
}

void CallGuard::End() noexcept {
    const std::lock_guard lock(m_mutex);
    m_isCalling = false;
    SetTimer(c_never);
    ::pthread_sigmask(SIG_SETMASK, &m_formerMask, nullptr);
}

void CallGuard::Interrupt() noexcept {
    const std::lock_guard lock(m_mutex);
    m_isInterrupted = true;
    if (m_isCalling) {
        SetTimer(c_atOnce);
    }
}

bool CallGuard::TakeInterruption() noexcept {
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_isInterrupted, false);
}

void CallGuard::MakeTimer() {
    static const bool isInstalled = (InstallHandler(), true);
    static_cast<void>(isInstalled);

    if (m_timer) {
        ::timer_delete(*m_timer);
        m_timer.reset();
    }
    sigevent event{};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = c_signal;
    event.sigev_notify_thread_id = ::gettid();
    timer_t timer{};
    if (::timer_create(CLOCK_MONOTONIC, &event, &timer) != 0) {
        throw qstd::Exception(std::string("cannot make a timer: ") + std::strerror(errno));
    }
    m_timer = timer;
    m_thread = ::gettid();
}

void CallGuard::SetTimer(const timespec& first) noexcept {
    const itimerspec setting{.it_interval = c_repetition, .it_value = first};
    ::timer_settime(*m_timer, TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace bmc::ipmi
