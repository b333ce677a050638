#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <thread>

#include "qstd/clock.h"

namespace test {

/// A clock that stands still until a test moves it. In force while it lives; no thread may sleep by it at its end.
class ManualClock : public qstd::Clock {
public:
    /// Starts on 2026-11-21, 14:03:07.512 UTC.
    ManualClock() : m_calendar(std::chrono::milliseconds(1795269787512)), m_steady(std::chrono::hours(1)) {
        Replace(this);
    }
    ~ManualClock() override { Replace(nullptr); }

    std::chrono::system_clock::time_point SystemNow() const override {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::chrono::system_clock::time_point(
            std::chrono::duration_cast<std::chrono::system_clock::duration>(m_calendar));
    }
    std::chrono::steady_clock::time_point SteadyNow() const override {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::chrono::steady_clock::time_point(m_steady);
    }

    void Sleep(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
               std::chrono::seconds period) override {
        std::list<Sleeper>::iterator self;
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            const auto length = std::max<std::chrono::nanoseconds>(period, std::chrono::milliseconds(1));
            self = m_sleepers.insert(m_sleepers.end(), {condition, *lock.mutex(), m_calendar + length, false, false});
            ++m_sleeps;
            m_changed.notify_all();
        }
        condition.wait(lock);  // a stray wake-up only starts a pass early, as with the real clock
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_sleepers.erase(self);
        m_changed.notify_all();
    }

    /// Moves both clocks on and wakes those whose sleep ends.
    void Advance(std::chrono::nanoseconds duration) {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_calendar += duration;
            m_steady += duration;
        }
        WakeThoseDue();
    }

    /// Moves the calendar clock only, as a person who sets it does. Ends every sleep, as with the real clock.
    void SetCalendarBy(std::chrono::nanoseconds duration) {
        {
            const std::lock_guard<std::mutex> guard(m_mutex);
            m_calendar += duration;
            for (Sleeper& sleeper : m_sleepers) {
                sleeper.isDue = true;
            }
        }
        WakeThoseDue();
    }

    /// Waits until @p count sleeps have begun since the clock was made.
    void WaitForSleeps(int count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_sleeps >= count; });
    }

    int CountSleeps() const {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_sleeps;
    }

private:
    struct Sleeper {
        std::condition_variable& condition;
        std::mutex& mutex;
        std::chrono::nanoseconds calendarEnd;
        bool isDue;  ///< whatever the clock says
        bool isWoken;
    };

    /// A sleeper's mutex is free only when it sleeps, so having it proves that the wake-up is not lost.
    void WakeThoseDue() {
        for (bool all = false; !all;) {
            all = true;
            std::unique_lock<std::mutex> lock(m_mutex);
            for (Sleeper& sleeper : m_sleepers) {
                if (sleeper.isWoken || (m_calendar < sleeper.calendarEnd && !sleeper.isDue)) {
                    continue;
                }
                const std::unique_lock<std::mutex> proof(sleeper.mutex, std::try_to_lock);
                if (proof.owns_lock()) {
                    sleeper.isWoken = true;
                    sleeper.condition.notify_all();
                } else {
                    all = false;
                }
            }
            lock.unlock();
            std::this_thread::yield();
        }
    }

    mutable std::mutex m_mutex;  ///< guards all below
    std::condition_variable m_changed;
    std::chrono::nanoseconds m_calendar;
    std::chrono::nanoseconds m_steady;
    std::list<Sleeper> m_sleepers;
    int m_sleeps = 0;
};

}  // namespace test
