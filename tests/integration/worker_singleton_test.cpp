// The workers' single instances. A program of its own: what is constructed here lives to the end of the process, as in
// the daemon, and the sanitizers watch that end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <thread>
#include <vector>

#include "damage_protection.h"
#include "monitor.h"
#include "platform_daemon.h"
#include "temperature_control.h"
#include "tests/support/log_capture.h"
#include "tests/support/mock_boards.h"
#include "tests/support/temp_folder.h"
#include "time_sync.h"

namespace {

class PreparedDaemon : public PlatformDaemon {
public:
    explicit PreparedDaemon(const std::string& logFileDir) { Prepare("<zelkor/>", logFileDir); }
};

/// How many different instances eight threads get that ask for it at once.
template <class Worker>
std::size_t CountInstances(Worker& (*getInstance)()) {
    std::vector<std::thread> callers;
    std::vector<const Worker*> instances(8);
    for (const Worker*& instance : instances) {
        callers.emplace_back([&instance, getInstance] { instance = &getInstance(); });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    return std::set<const Worker*>(instances.begin(), instances.end()).size();
}

TEST(WorkerSingleton, StopWithoutStart_MakesTheWorkerAndStopsIt_AndManyCallersGetOneInstance) {
    // In the order of the daemon: boards and application before the worker, which is destroyed before them.
    static const test::TempFolder folder;
    static const test::ThreeBoards boards;
    static const auto daemon = std::make_shared<PreparedDaemon>(folder.Path());
    static const test::LogCapture log;

    daemon->OnShutdown();
    EXPECT_TRUE(log.WaitFor("I: *Monitor process stopped"));
    EXPECT_EQ(log.Messages().front(), "I: ***Platform daemon is stopping.");
    EXPECT_TRUE(log.WaitFor("I: *Damage Protection process stopped"));
    EXPECT_TRUE(log.WaitFor("I: *Temperature Control process stopped"));
    // There are no fans to set then, as the stop says, and a first cycle that was quicker than the stop.
    EXPECT_THAT(log.Count("W: Fans node not valid. Can't set fan speed."), testing::AnyOf(1, 2));
    EXPECT_THAT(log.Count("I: *Time synchronization process started."), testing::Le(1));
    for (const char* worker : {"Monitor", "Damage Protection", "Temperature Control"}) {
        EXPECT_EQ(log.Count(std::string("I: *") + worker + " process started."), 1);
    }

    EXPECT_EQ(CountInstances(&Monitor::GetInstance), 1U);
    EXPECT_EQ(CountInstances(&DamageProtection::GetInstance), 1U);
    EXPECT_EQ(CountInstances<TemperatureControl>(
                  []() -> TemperatureControl& { return TemperatureControl::GetInstance(nullptr); }),
              1U);
    EXPECT_EQ(CountInstances(&TimeSync::GetInstance), 1U);
    EXPECT_EQ(log.Count("I: *Monitor process started."), 1);
}

TEST(WorkerSingletonDeathTest, FirstCallFromManyThreads_ConstructsOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            static const test::TempFolder folder;
            static const test::ThreeBoards boards;
            static const auto daemon = std::make_shared<PreparedDaemon>(folder.Path());
            static const test::LogCapture log;
            const bool isOne = CountInstances(&Monitor::GetInstance) == 1 &&
                               log.WaitFor("I: *Monitor process started.") &&
                               log.Count("I: *Monitor process started.") == 1;
            std::exit(isOne ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
