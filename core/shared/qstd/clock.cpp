#include "qstd/clock.h"

#include <algorithm>
#include <atomic>
#include <ctime>
#include <list>
#include <thread>

namespace qstd {

namespace {

/// One thread asleep in Clock::Sleep, so that a set calendar clock can wake it.
struct Sleeper {
    std::condition_variable& condition;
    std::mutex& mutex;     ///< the one whose lock the sleeper releases
    bool isWoken = false;  ///< guarded by mutex
};

/// The threads asleep. Never destroyed: workers may sleep until the very end of the process.
struct Sleepers {
    std::mutex mutex;  ///< guards list; taken while a sleeper's mutex is held, so those are only tried below it
    std::list<Sleeper> list;
};

Sleepers& AllSleepers() {
    static auto* const sleepers = new Sleepers;
    return *sleepers;
}

std::atomic<Clock*> g_replacement{nullptr};

/// The shortest real sleep: lets a waiting thread take the lock between two passes of a worker without a pause.
constexpr std::chrono::microseconds c_leastSleep{100};
/// The longest: keeps the ends within what the clocks can hold.
constexpr std::chrono::seconds c_longestSleep = std::chrono::hours(24) * 365 * 50;

}  // namespace

std::chrono::microseconds LengthOfSleep(std::chrono::seconds period) noexcept {
    return std::max<std::chrono::microseconds>(std::clamp(period, std::chrono::seconds::zero(), c_longestSleep),
                                               c_leastSleep);
}

std::chrono::system_clock::time_point Clock::SystemNow() const {
    // Not system_clock's own now(): on 32 bits the C++ library asks in a form that ends in 2038.
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return std::chrono::system_clock::time_point(std::chrono::seconds(now.tv_sec) +
                                                 std::chrono::nanoseconds(now.tv_nsec));
}

std::chrono::steady_clock::time_point Clock::SteadyNow() const {
    return std::chrono::steady_clock::now();
}

void Clock::Sleep(std::condition_variable& condition, std::unique_lock<std::mutex>& lock, std::chrono::seconds period) {
    Sleepers& sleepers = AllSleepers();
    std::list<Sleeper>::iterator self;
    {
        const std::lock_guard<std::mutex> guard(sleepers.mutex);
        self = sleepers.list.insert(sleepers.list.end(), Sleeper{condition, *lock.mutex()});
    }
    // The deadline comes after the registration: a clock that is set in between is seen by one or the other.
    condition.wait_until(lock, SystemNow() + LengthOfSleep(period));
    const std::lock_guard<std::mutex> guard(sleepers.mutex);
    sleepers.list.erase(self);
}

void Clock::CalendarClockWasSet() {
    Sleepers& sleepers = AllSleepers();
    for (bool all = false; !all;) {
        all = true;
        std::unique_lock<std::mutex> guard(sleepers.mutex);
        for (Sleeper& sleeper : sleepers.list) {
            if (sleeper.isWoken) {
                continue;
            }
            // Having its mutex proves that the sleeper is asleep or awake again, not in between: no wake-up is lost.
            const std::unique_lock<std::mutex> proof(sleeper.mutex, std::try_to_lock);
            if (!proof.owns_lock()) {
                all = false;
                continue;
            }
            sleeper.isWoken = true;
            sleeper.condition.notify_all();
        }
        guard.unlock();
        if (!all) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

Clock& Clock::Get() {
    static auto* const host = new Clock;
    Clock* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : *host;
}

void Clock::Replace(Clock* clock) noexcept {
    g_replacement.store(clock, std::memory_order_release);
}

}  // namespace qstd
