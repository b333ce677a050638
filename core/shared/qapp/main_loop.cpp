#include "qapp/main_loop.h"

#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include "qstd/clock.h"
#include "qstd/log.h"
#include "qstd/trace_file.h"

namespace qapp {

namespace {

/// Far enough away never to expire in a service's life, near enough for every system's arithmetic.
constexpr std::time_t c_tenYears = 10L * 365 * 24 * 3600;

}  // namespace

MainLoop::MainLoop(Signals& signals, const ServiceNotifier& notifier, const Health& health,
                   std::function<void()> onReload)
    : m_signals(signals),
      m_notifier(notifier),
      m_health(health),
      m_onReload(std::move(onReload)),
      m_clockWatch(::timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (m_clockWatch < 0) {
        qstd::LogWarning(std::string("Setting the calendar clock is not noticed: ") + std::strerror(errno));
    }
    ArmClockWatch();
}

MainLoop::~MainLoop() {
    if (m_clockWatch >= 0) {
        ::close(m_clockWatch);
    }
}

void MainLoop::ArmClockWatch() const {
    itimerspec far{};
    far.it_value.tv_sec = std::time(nullptr) + c_tenYears;
    ::timerfd_settime(m_clockWatch, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &far, nullptr);
}

void MainLoop::OnClockWatch() const {
    std::uint64_t expirations = 0;
    if (::read(m_clockWatch, &expirations, sizeof expirations) < 0 && errno == ECANCELED) {
        qstd::Clock::CalendarClockWasSet();
    }
    ArmClockWatch();
}

void MainLoop::OnSignals() {
    m_signals.Poll();
    if (m_signals.TakeReopenRequest()) {
        qstd::Log::GetInstance().Reopen();
        qstd::TraceFile::GetInstance().Reopen();
        m_onReload();
    }
}

void MainLoop::Run() {
    using std::chrono::milliseconds;
    const auto feedingPeriod = std::chrono::duration_cast<milliseconds>(m_notifier.GetFeedingPeriod());
    std::array<pollfd, 2> sources{
        {{m_signals.GetDescriptor(), POLLIN, 0}, {m_clockWatch, POLLIN, 0}}};  // poll passes over a negative one
    auto nextFeeding = std::chrono::steady_clock::now();
    OnSignals();
    while (!m_signals.IsStopRequested()) {
        int timeout = -1;
        if (feedingPeriod > milliseconds::zero()) {
            const auto now = std::chrono::steady_clock::now();
            if (now >= nextFeeding) {
                if (m_health.IsWell()) {
                    m_notifier.Alive();
                }
                nextFeeding = now + feedingPeriod;
            }
            timeout = static_cast<int>(std::chrono::ceil<milliseconds>(nextFeeding - now).count());
        }
        ::poll(sources.data(), sources.size(), timeout);
        if (sources[1].revents != 0) {
            OnClockWatch();
        }
        OnSignals();
    }
}

}  // namespace qapp
