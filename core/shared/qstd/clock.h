#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace qstd {

/// Where the time comes from, and how a worker sleeps for its period. The host's clocks by default; a test puts its own
/// in place. All operations may be called from any thread.
class Clock {
public:
    Clock() = default;
    Clock(const Clock&) = delete;
    Clock& operator=(const Clock&) = delete;
    virtual ~Clock() = default;

    /// The host's calendar clock, which people and programs may set.
    virtual std::chrono::system_clock::time_point SystemNow() const;

    /// A clock that only goes forward, at its own pace.
    virtual std::chrono::steady_clock::time_point SteadyNow() const;

    /// Sleeps on @p condition with the held @p lock, which is released meanwhile, until the calendar clock reaches the
    /// present time plus @p period, or @p period has gone by on the steady clock, whichever comes first: a calendar
    /// clock that is set back does not prolong the sleep. Any notification ends it too. A period of zero or less
    /// still releases the lock once, so that another thread gets it.
    virtual void Sleep(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                       std::chrono::seconds period);

    /// To be called after the calendar clock was set: sleepers work out their deadline anew.
    static void CalendarClockWasSet();

    /// The clock in force.
    static Clock& Get() noexcept;

    /// Puts @p clock in force (null: the host's). The caller keeps it alive until it is replaced and no sleeper is
    /// left.
    static void Replace(Clock* clock) noexcept;
};

}  // namespace qstd
