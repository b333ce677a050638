#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace qstd {

/// The length of a sleep of @p period: at least 100 microseconds, at most 50 years, which keeps its end within what the
/// clocks can hold.
std::chrono::microseconds LengthOfSleep(std::chrono::seconds period) noexcept;

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
    /// present time plus @p period. Any notification ends it too, and so does CalendarClockWasSet(): a calendar clock
    /// that is set back does not prolong the sleep. A period of zero or less still releases the lock once, so that
    /// another thread gets it.
    virtual void Sleep(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                       std::chrono::seconds period);

    /// To be called after the calendar clock was set: ends every sleep. (To sleep on would lose the notification that
    /// comes at the same moment, a stop perhaps: two that come together are one to the sleeper.)
    static void CalendarClockWasSet();

    /// The clock in force.
    static Clock& Get();

    /// Puts @p clock in force (null: the host's). The caller keeps it alive until it is replaced and no sleeper is
    /// left.
    static void Replace(Clock* clock) noexcept;
};

}  // namespace qstd
