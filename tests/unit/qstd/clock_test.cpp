#include "qstd/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/support/manual_clock.h"

namespace {

using namespace std::chrono_literals;
TEST(LengthOfSleep, IsThePeriod) {
    EXPECT_EQ(qstd::LengthOfSleep(60s), 60s);
}

TEST(LengthOfSleep, PeriodOfZeroOrLess_StillLetsOthersIn) {
    for (const auto period : {0s, -1s, std::chrono::seconds::min()}) {
        EXPECT_EQ(qstd::LengthOfSleep(period), 100us);
    }
}

TEST(LengthOfSleep, EndlessPeriod_IsBoundedToWhatTheClocksHold) {
    EXPECT_EQ(qstd::LengthOfSleep(std::chrono::seconds::max()), 24h * 365 * 50);
}

/// A host clock whose calendar a test sets; sleeps are the real ones.
class SettableClock : public qstd::Clock {
public:
    SettableClock() { Replace(this); }
    ~SettableClock() override { Replace(nullptr); }
    std::chrono::system_clock::time_point SystemNow() const override { return Clock::SystemNow() + offset.load(); }
    std::atomic<std::chrono::seconds> offset{0s};
};

/// A worker that sleeps once.
class Sleeper {
public:
    explicit Sleeper(std::chrono::seconds period)
        : m_thread([this, period] {
              std::unique_lock<std::mutex> lock(m_mutex);
              m_isAsleep = true;
              qstd::Clock::Get().Sleep(m_condition, lock, period);
              m_isAwake = true;
          }) {}
    Sleeper(const Sleeper&) = delete;
    Sleeper& operator=(const Sleeper&) = delete;
    ~Sleeper() { Join(); }

    /// Returns when the sleep has begun: the mutex is free again only then.
    void WaitUntilAsleep() {
        for (;;) {
            const std::lock_guard<std::mutex> guard(m_mutex);
            if (m_isAsleep) {
                return;
            }
        }
    }
    void Notify() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_condition.notify_all();
    }
    bool IsAwake() const { return m_isAwake; }
    void Join() {
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_condition;
    bool m_isAsleep = false;
    std::atomic<bool> m_isAwake{false};
    std::thread m_thread;
};

TEST(ClockSleep, EndsAfterThePeriod) {
    const auto begin = std::chrono::steady_clock::now();
    Sleeper sleeper(1s);
    sleeper.Join();
    // Stray wake-ups are allowed by contract but do not come here.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 990ms);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 60s);
}

TEST(ClockSleep, PeriodOfZero_ReturnsAtOnce) {
    Sleeper zero(0s);
    Sleeper negative(-5s);
    zero.Join();
    negative.Join();
    EXPECT_TRUE(zero.IsAwake());
    EXPECT_TRUE(negative.IsAwake());
}

TEST(ClockSleep, PeriodOfZero_LetsAnotherThreadTakeTheLock) {
    std::mutex mutex;
    std::condition_variable condition;
    bool isStopped = false;
    std::thread worker([&] {
        std::unique_lock<std::mutex> lock(mutex);
        while (!isStopped) {
            qstd::Clock::Get().Sleep(condition, lock, 0s);
        }
    });
    {
        const std::lock_guard<std::mutex> guard(mutex);
        isStopped = true;
        condition.notify_all();
    }
    worker.join();
    EXPECT_TRUE(isStopped);
}

TEST(ClockSleep, NotificationEndsIt) {
    Sleeper sleeper(3600s);
    sleeper.WaitUntilAsleep();
    sleeper.Notify();
    sleeper.Join();
    EXPECT_TRUE(sleeper.IsAwake());
}

TEST(ClockSleep, CalendarSetForward_EndsIt) {
    SettableClock clock;
    Sleeper sleeper(3600s);
    sleeper.WaitUntilAsleep();
    clock.offset = 3601s;
    qstd::Clock::CalendarClockWasSet();
    sleeper.Join();
    EXPECT_TRUE(sleeper.IsAwake());
}

TEST(ClockSleep, CalendarSetBack_DoesNotProlongIt) {
    // The calendar begins an hour ahead and is set back, so that the sleep's end lies an hour away.
    SettableClock clock;
    clock.offset = 3600s;
    Sleeper sleeper(1s);
    sleeper.WaitUntilAsleep();
    clock.offset = 0s;
    qstd::Clock::CalendarClockWasSet();
    sleeper.Join();
    EXPECT_TRUE(sleeper.IsAwake());
}

TEST(ClockSleep, NotificationAtTheMomentOfASetCalendar_IsNotLost) {
    for (int round = 0; round < 200; ++round) {
        Sleeper sleeper(3600s);
        sleeper.WaitUntilAsleep();
        std::thread setter([] { qstd::Clock::CalendarClockWasSet(); });
        sleeper.Notify();
        setter.join();
        sleeper.Join();
        EXPECT_TRUE(sleeper.IsAwake());
    }
}

TEST(ClockSleep, ManySleepersWhileTheCalendarIsSet_AllEnd) {
    constexpr int c_rounds = 50;
    std::mutex mutex;  // one for all: the harder case, as it is often taken
    std::condition_variable condition;
    std::atomic<int> sleeps{0};
    std::vector<std::thread> workers;
    for (int i = 0; i < 8; ++i) {
        workers.emplace_back([&] {
            for (int round = 0; round < c_rounds; ++round) {
                std::unique_lock<std::mutex> lock(mutex);
                qstd::Clock::Get().Sleep(condition, lock, 0s);
                ++sleeps;
            }
        });
    }
    std::vector<std::thread> setters;
    for (int i = 0; i < 2; ++i) {
        setters.emplace_back([&] {
            while (sleeps < 8 * c_rounds) {
                qstd::Clock::CalendarClockWasSet();
                std::this_thread::yield();
            }
        });
    }
    for (auto& thread : workers) {
        thread.join();
    }
    for (auto& thread : setters) {
        thread.join();
    }
    EXPECT_EQ(sleeps, 8 * c_rounds);
}

TEST(Clock, HostClocksGoForward) {
    const auto steady = qstd::Clock::Get().SteadyNow();
    const auto calendar = qstd::Clock::Get().SystemNow();
    EXPECT_GE(qstd::Clock::Get().SteadyNow(), steady);
    EXPECT_GE(std::chrono::system_clock::now() + 1s, calendar);
}

TEST(ManualClock, IsInForceWhileItLives) {
    {
        test::ManualClock clock;
        EXPECT_EQ(&qstd::Clock::Get(), &clock);
        const auto calendar = clock.SystemNow();
        const auto steady = clock.SteadyNow();
        clock.Advance(60s);
        clock.SetCalendarBy(-10s);
        EXPECT_EQ(qstd::Clock::Get().SystemNow(), calendar + 50s);
        EXPECT_EQ(qstd::Clock::Get().SteadyNow(), steady + 60s);
    }
    EXPECT_GE(qstd::Clock::Get().SystemNow() + 1s, std::chrono::system_clock::now());
}

TEST(ManualClock, SleepEndsWhenTheClockReachesItsEnd) {
    test::ManualClock clock;
    Sleeper sleeper(60s);
    clock.WaitForSleeps(1);
    clock.Advance(59s);
    sleeper.WaitUntilAsleep();
    EXPECT_FALSE(sleeper.IsAwake());
    clock.Advance(1s);
    sleeper.Join();
    EXPECT_TRUE(sleeper.IsAwake());
}

TEST(ManualClock, SetCalendar_EndsASleep) {
    test::ManualClock clock;
    int sleeps = 0;
    for (const auto jump : {1s, -3600s}) {
        Sleeper sleeper(60s);
        clock.WaitForSleeps(++sleeps);
        clock.SetCalendarBy(jump);
        sleeper.Join();
        EXPECT_TRUE(sleeper.IsAwake());
    }
}

}  // namespace
