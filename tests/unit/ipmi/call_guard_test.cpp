#include "bmc/ipmi/call_guard.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <thread>

namespace {

using bmc::ipmi::CallGuard;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

/// A guarded call comes back that long after it was told to at the latest, on a busy machine.
constexpr auto c_tolerance = 30s;

constexpr auto c_never = 1h;

/// A call that only a signal ends.
bool WaitIsEndedBySignal(milliseconds limit = 1min) {
    return ::poll(nullptr, 0, static_cast<int>(limit.count())) < 0 && errno == EINTR;
}

TEST(CallGuard, CallThatBlocks_EndsAtTheDeadline) {
    CallGuard guard;
    const auto start = steady_clock::now();

    guard.Begin(start + 30ms);
    const bool isEnded = WaitIsEndedBySignal();
    guard.End();

    EXPECT_TRUE(isEnded);
    EXPECT_GE(steady_clock::now() - start, 30ms);
    EXPECT_LT(steady_clock::now() - start, c_tolerance);
    EXPECT_FALSE(guard.TakeInterruption());
}

TEST(CallGuard, DeadlineThatHasPassed_EndsTheCallAsSoonAsItWaits) {
    CallGuard guard;
    for (const auto deadline : {steady_clock::now() - 1h, steady_clock::now(), CallGuard::Time{}}) {
        guard.Begin(deadline);
        EXPECT_TRUE(WaitIsEndedBySignal());
        guard.End();
    }
}

TEST(CallGuard, CallThatWaitsSeveralTimes_IsEndedEachTime) {
    CallGuard guard;
    guard.Begin(steady_clock::now());
    EXPECT_TRUE(WaitIsEndedBySignal());
    EXPECT_TRUE(WaitIsEndedBySignal());
    EXPECT_TRUE(WaitIsEndedBySignal());
    guard.End();
}

TEST(CallGuard, AfterTheEnd_NoSignalIsLeftOver) {
    CallGuard guard;
    for (int i = 0; i < 300; ++i) {
        guard.Begin(steady_clock::now() + std::chrono::microseconds(i));
        guard.End();
        ASSERT_FALSE(WaitIsEndedBySignal(1ms)) << "round " << i;
    }
}

TEST(CallGuard, EndOfTheGuard_LeavesNoSignal) {
    for (int i = 0; i < 50; ++i) {
        {
            CallGuard guard;
            guard.Begin(steady_clock::now());
            guard.End();
        }
        ASSERT_FALSE(WaitIsEndedBySignal(1ms)) << "round " << i;
    }
}

TEST(CallGuard, InterruptionOfACall_EndsIt) {
    CallGuard guard;
    guard.Begin(steady_clock::now() + c_never);
    std::thread other([&guard] { guard.Interrupt(); });
    EXPECT_TRUE(WaitIsEndedBySignal());
    guard.End();
    other.join();

    EXPECT_TRUE(guard.TakeInterruption());
    EXPECT_FALSE(guard.TakeInterruption());
}

TEST(CallGuard, InterruptionBeforeACall_EndsTheNext) {
    CallGuard guard;
    guard.Interrupt();
    guard.Begin(steady_clock::now() + c_never);
    EXPECT_TRUE(WaitIsEndedBySignal());
    guard.End();
    EXPECT_TRUE(guard.TakeInterruption());
}

TEST(CallGuard, InterruptionThatWasToldOf_DisturbsNoCall) {
    CallGuard guard;
    guard.Interrupt();
    EXPECT_TRUE(guard.TakeInterruption());
    guard.Begin(steady_clock::now() + c_never);
    EXPECT_FALSE(WaitIsEndedBySignal(20ms));
    guard.End();
}

TEST(CallGuard, InterruptionBetweenCalls_SendsNoSignal) {
    CallGuard guard;
    guard.Begin(steady_clock::now() + c_never);
    guard.End();
    guard.Interrupt();
    EXPECT_FALSE(WaitIsEndedBySignal(20ms));
}

TEST(CallGuard, InterruptionsAtAnyMoment_EachEndTheCallUnderWayOrTheNext) {
    CallGuard guard;
    std::atomic<bool> isDone = false;
    std::atomic<int> left = 0;
    std::thread other([&] {
        while (!isDone) {
            if (left.exchange(0) == 1) {
                guard.Interrupt();
            }
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 100; ++i) {
        left = 1;
        // Nothing but the interruption, wherever it comes, ends this.
        while (!guard.TakeInterruption()) {
            guard.Begin(steady_clock::now() + c_never);
            static_cast<void>(WaitIsEndedBySignal(i % 2 == 0 ? 60'000ms : 0ms));
            guard.End();
        }
    }
    isDone = true;
    other.join();
    EXPECT_FALSE(WaitIsEndedBySignal(5ms));
}

std::atomic<int> g_otherSignals = 0;

TEST(CallGuard, OtherSignals_WaitUntilTheCallHasEnded) {
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) { ++g_otherSignals; };
    ::sigaction(SIGUSR1, &action, &former);
    g_otherSignals = 0;

    CallGuard guard;
    guard.Begin(steady_clock::now() + c_never);
    ::pthread_kill(::pthread_self(), SIGUSR1);
    EXPECT_FALSE(WaitIsEndedBySignal(20ms));
    EXPECT_EQ(g_otherSignals, 0);
    guard.End();
    static_cast<void>(WaitIsEndedBySignal(0ms));
    EXPECT_EQ(g_otherSignals, 1);

    ::sigaction(SIGUSR1, &former, nullptr);
}

TEST(CallGuard, ThreadThatBlocksAllSignals_IsServedToo) {
    sigset_t all{};
    sigset_t former{};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &former);
    CallGuard guard;
    guard.Begin(steady_clock::now());
    EXPECT_TRUE(WaitIsEndedBySignal());
    guard.End();

    sigset_t mask{};
    ::pthread_sigmask(SIG_SETMASK, &former, &mask);
    EXPECT_EQ(::sigismember(&mask, SIGURG), 1) << "the guard left the thread's mask changed";
}

TEST(CallGuard, AnotherThreadLater_IsTheOneThatGetsTheSignal) {
    CallGuard guard;
    guard.Begin(steady_clock::now());
    EXPECT_TRUE(WaitIsEndedBySignal());
    guard.End();

    const bool isEnded = std::async(std::launch::async, [&guard] {
                             guard.Begin(steady_clock::now());
                             const bool isEndedThere = WaitIsEndedBySignal();
                             guard.End();
                             return isEndedThere;
                         }).get();
    EXPECT_TRUE(isEnded);
}

TEST(CallGuard, TwoThreads_EachHaveTheirOwnDeadline) {
    CallGuard early;
    CallGuard late;
    std::thread other([&early] {
        early.Begin(steady_clock::now() + 10ms);
        EXPECT_TRUE(WaitIsEndedBySignal());
        early.End();
    });
    late.Begin(steady_clock::now() + c_never);
    EXPECT_FALSE(WaitIsEndedBySignal(60ms));
    late.End();
    other.join();
}

}  // namespace
