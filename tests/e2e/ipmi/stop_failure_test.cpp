// The daemon is asked to stop while its boards are dead, and is soon gone: within two seconds on a machine that has
// nothing else to do, which is what the time for the boards' answers and for the last try add up to. The limit here
// lies between that and what waiting for a board takes; how long it took is printed.

#include "failing_boards_fixture.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::HasSubstr;

class StopFailureTest : public test::FailingBoardsTest {
protected:
    static constexpr std::chrono::seconds c_limit{15};
    /// Whoever waits for a board that does not answer does so for a minute.
    static constexpr const char* c_patient = "timeout='20000' retries='2'";
    static constexpr int c_boards = 6;

    void KillAll(Death_e death) {
        for (const Site& site : m_sites) {
            Kill(site, death);
        }
    }

    /// Sends SIGTERM. @return the exit status
    std::optional<int> StopInTime() {
        const auto begin = Clock::now();
        m_daemon->Signal(SIGTERM);
        const std::optional<int> status = m_daemon->Wait();
        const std::chrono::duration<double> length = Clock::now() - begin;
        EXPECT_LE(length, c_limit) << Log();
        std::printf("stopped after %.3f s with status %d\n", length.count(), status.value_or(-1000));
        EXPECT_TRUE(status.has_value());
        EXPECT_GE(status.value_or(-1), 0) << "no signal ended it";
        return status;
    }

    /// All workers end, and it is told that the fans are not known to be fast.
    void ExpectEndWithoutFans() {
        for (const char* process : {"Monitor", "Damage Protection", "Temperature Control", "Time synchronization"}) {
            EXPECT_EQ(CountMessages("INFO     *" + std::string(process) + " process stopped"), 1) << Log();
        }
        EXPECT_THAT(Messages(), Contains(HasSubstr("ERROR    Problem at stop - "))) << Log();
    }
};

TEST_F(StopFailureTest, LivingBoards_AllFansAreLeftAtMaximumSpeed) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond);
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    ASSERT_TRUE(Await([&] { return FanRegisters()[5] != 0; }));
    EXPECT_EQ(StopInTime(), 0);
    EXPECT_THAT(FanRegisters(), Each(c_fastest));
    EXPECT_EQ(CountMessages("ERROR"), 0) << Log();
}

TEST_F(StopFailureTest, AllDeadForLong) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond, "timeout='1000' retries='2'");
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    KillAll(Death_e::frozen);
    for (const Site& site : m_sites) {
        ASSERT_TRUE(AwaitLog(Controller(site) + " does not answer: ")) << Log();
    }
    EXPECT_EQ(StopInTime(), 1);
    ExpectEndWithoutFans();
}

TEST_F(StopFailureTest, AllDeadJustBefore) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond, c_patient);
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    KillAll(Death_e::frozen);
    EXPECT_EQ(StopInTime(), 1);
    ExpectEndWithoutFans();
}

TEST_F(StopFailureTest, AllDeadInTheMiddleOfTheirPasses) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond, c_patient);
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    KillAll(Death_e::black_hole);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // everybody waits for an answer
    EXPECT_EQ(StopInTime(), 1);
    ExpectEndWithoutFans();
}

TEST_F(StopFailureTest, AllDeadButTheChassisController_FansAreLeftAtMaximumSpeed) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond, c_patient);
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    for (std::size_t i = 1; i < m_sites.size(); ++i) {
        Kill(m_sites[i], Death_e::frozen);
    }
    EXPECT_EQ(StopInTime(), 0);
    EXPECT_THAT(FanRegisters(), Each(c_fastest));
}

TEST_F(StopFailureTest, ChassisControllerThatCameBackSinceTheLastProbe_FansAreLeftAtMaximumSpeed) {
    StartControllers(1);
    ConfigureBoards(c_everySecond, "timeout='300' retries='1'");
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    Kill(m_sites[0], Death_e::frozen);
    ASSERT_TRUE(AwaitLog(Controller(m_sites[0]) + " does not answer: ")) << Log();
    // Probes follow after 0.5 s and after one more second, each for 0.45 s, and then after two.
    std::this_thread::sleep_for(std::chrono::milliseconds(2700));
    ASSERT_EQ(CountMessages(" answers again "), 0);
    Revive(m_sites[0], Death_e::frozen);
    StopInTime();
    EXPECT_THAT(FanRegisters(), Each(c_fastest)) << Log();
}

TEST_F(StopFailureTest, AllDeadFromTheStart_AndKnownToBe) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond, "timeout='1000' retries='2'");
    KillAll(Death_e::frozen);
    Start();
    for (const Site& site : m_sites) {
        ASSERT_TRUE(AwaitLog(Controller(site) + " does not answer: ")) << Log();
    }
    EXPECT_EQ(StopInTime(), 1);
    EXPECT_THAT(Messages(), Contains(HasSubstr("ERROR    Problem at stop - "))) << Log();
}

/// Milliseconds from the start to SIGTERM.
class StopDuringStartTest : public StopFailureTest, public testing::WithParamInterface<int> {};

TEST_P(StopDuringStartTest, AllDeadFromTheStart) {
    StartControllers(c_boards);
    ConfigureBoards(c_everySecond, c_patient);
    KillAll(Death_e::frozen);
    Start();
    ASSERT_TRUE(AwaitLog("***Platform daemon started"));
    std::this_thread::sleep_for(std::chrono::milliseconds(GetParam()));
    EXPECT_EQ(StopInTime(), 1);
    EXPECT_THAT(Messages(), Contains(HasSubstr("ERROR    Problem at stop - "))) << Log();
    EXPECT_THAT(Messages(), testing::Not(Contains(HasSubstr("service stops"))))
        << "what the stop breaks off is no error";
}

INSTANTIATE_TEST_SUITE_P(After, StopDuringStartTest, testing::Values(0, 400, 1500),
                         [](const auto& when) { return std::to_string(when.param) + "ms"; });

}  // namespace
