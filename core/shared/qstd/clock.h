#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>

namespace qstd {

/// Where a sleep ends: at the one point or at the other, whichever comes first.
struct SleepEnd {
    std::chrono::system_clock::time_point calendar;
    std::chrono::steady_clock::time_point steady;
};

/// The end of a sleep of @p period that begins at the given times. The period is taken as at least 100 microseconds
/// and at most 50 years.
SleepEnd EndOfSleep(std::chrono::seconds period, std::chrono::system_clock::time_point calendarNow,
                    std::chrono::steady_clock::time_point steadyNow);

/// The calendar time until which a sleeper goes on to wait after the calendar clock was set, so that it still wakes at
/// @p end on the steady clock when the calendar's was put off. Nothing when the sleep is over.
std::optional<std::chrono::system_clock::time_point> GoOnUntil(const SleepEnd& end,
                                                               std::chrono::system_clock::time_point calendarNow,
                                                               std::chrono::steady_clock::time_point steadyNow);

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
