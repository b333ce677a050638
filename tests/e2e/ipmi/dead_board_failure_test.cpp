// A board dies under the running daemon, which goes on with the others and takes it back when it returns.

#include "failing_boards_fixture.h"

namespace {

class DeadBoardTest : public test::FailingBoardsTest,
                      public testing::WithParamInterface<test::FailingBoardsTest::Death_e> {
public:
    using test::FailingBoardsTest::Death_e;

protected:
    /// Far above what three passes and a power-down take, and below one pass that waits for each of the dead sensors.
    static constexpr std::chrono::seconds c_limit{35};
};

TEST_P(DeadBoardTest, OthersGoOn_AHotOneIsSwitchedOffInTime_AndItComesBack) {
    StartControllers(3);
    // Whoever waits for the dead board does so for 4 s, and for 40 with its ten sensors one after the other.
    ConfigureBoards(c_everySecond, "timeout='1000' retries='3'");
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    const Site& dead = m_sites[2];
    const Site& hot = m_sites[1];

    Kill(dead, GetParam());
    ASSERT_TRUE(AwaitLog(Controller(dead) + " does not answer: ")) << Log();
    const std::string problem = "ERROR    Problem accessing sensor id: 1 on board io_2. Exception: io/2 (127.0.0.1:" +
                                std::to_string(dead.relay->GetPort()) + "): no answer since ";
    EXPECT_TRUE(Await([&] { return CountMessages(problem) > 0; })) << Log();
    const auto dying = Clock::now();
    const auto records = CountRecords(hot);
    EXPECT_TRUE(Await([&] { return CountRecords(hot) >= records + 2; }));

    hot.simulator->SetReading(c_bmc, 1, 120);
    EXPECT_TRUE(Await([&] { return !hot.simulator->IsPowerOn(); })) << Log();
    EXPECT_LT(Clock::now() - dying, c_limit) << "no pass waits for the dead board";
    EXPECT_GE(CountMessages("!!! Shutting down board io_1 to prevent damage."), 1);
    hot.simulator->SetReading(c_bmc, 1, 31);

    Revive(dead, GetParam());
    ASSERT_TRUE(AwaitLog(Controller(dead) + " answers again after ")) << Log();
    const auto recordsOfDead = CountRecords(dead);
    EXPECT_TRUE(Await([&] { return CountRecords(dead) >= recordsOfDead + 2; }));
    EXPECT_EQ(Registry({"get", "boards/IO2/sensors/ID_4/value"}).output, "34\n");
    EXPECT_EQ(CountMessages(Controller(dead) + " does not answer: "), 1) << Log();
    EXPECT_EQ(CountMessages(Controller(dead) + " answers again after "), 1) << Log();
    EXPECT_EQ(CountMessages(Controller(hot)), 1) << "its first answer\n" << Log();
    EXPECT_EQ(dead.simulator->CountWrites(c_bmc, test::c_chassisControl), 0U);
    EXPECT_EQ(Stop(), 0);
}

std::string NameOf(const testing::TestParamInfo<DeadBoardTest::Death_e>& info) {
    switch (info.param) {
        case DeadBoardTest::Death_e::frozen:
            return "Frozen";
        case DeadBoardTest::Death_e::stopped:
            return "Stopped";
        case DeadBoardTest::Death_e::black_hole:
            break;
    }
    return "BlackHole";
}

INSTANTIATE_TEST_SUITE_P(Death, DeadBoardTest,
                         testing::Values(DeadBoardTest::Death_e::frozen, DeadBoardTest::Death_e::stopped,
                                         DeadBoardTest::Death_e::black_hole),
                         NameOf);

}  // namespace
