// The host's clock is set by an hour while sessions are open, used, and lost.

#include <ctime>
#include <thread>

#include "tests/integration/ipmi/failure_fixture.h"
#include "tests/support/clock_shim.h"

namespace test {

namespace {

/// By how much the clock is set, in seconds.
class ClockStepTest : public IpmiFailureTest, public testing::WithParamInterface<int> {
protected:
    static constexpr std::chrono::seconds c_farBelowTheStep{60};

    ~ClockStepTest() override { SetClockStep(0); }

    void SetUp() override {
        IpmiFailureTest::SetUp();
        const std::time_t before = std::time(nullptr);
        SetClockStep(GetParam());
        ASSERT_NEAR(static_cast<double>(std::time(nullptr) - before), GetParam(), 2) << "the clock can be set here";
        SetClockStep(0);
    }
};

TEST_P(ClockStepTest, BetweenReadings_NobodySeesAnError) {
    StartControllers(2);
    OpenBackend();
    for (const int step : {GetParam(), 0}) {
        SetClockStep(step);
        for (int id = 1; id <= 20; ++id) {
            EXPECT_EQ(Read(0, id), id * 8);
            EXPECT_EQ(Read(1, id), id * 8);
        }
        EXPECT_EQ(Board().FpgaSpiWrite(0x40, 297).failed, 0);
        EXPECT_NO_THROW(Board().SetTime(qstd::Time(1'700'000'000UL, 0UL)));
    }
    EXPECT_EQ(Simulator().GetWrites().size(), 4U);
    EXPECT_LE(m_openings.opened, 2 + 2 * 2) << "at most one new session a controller and step";
    EXPECT_EQ(CountMessages(" does not answer: "), 0);
}

TEST_P(ClockStepTest, InTheMiddleOfASweep_AllReadingsAreThere) {
    StartControllers();
    OpenBackend();
    Simulator().SetServiceTime(c_bmc, Milliseconds(5));
    const auto begin = Clock::now();
    const auto sweep = m_backend->StartSweep({{m_sites[0].uri, Board().GetSensorsIds()}});
    for (int id = 1; id <= 20; ++id) {
        EXPECT_EQ(sweep->Read(*Board().GetSensor(bmc::SensorId(id))).Converted(), id * 8);
        SetClockStep(id % 5 < 2 ? GetParam() : 0);
    }
    EXPECT_LT(Clock::now() - begin, c_farBelowTheStep);
    EXPECT_LE(m_openings.opened, 1 + 8);
    EXPECT_EQ(CountMessages(" does not answer: "), 0);
}

TEST_P(ClockStepTest, WhileSomebodyWaitsForADeadBoard_ItWaitsNoLonger) {
    m_ways.timeout = Milliseconds(300);
    StartControllers();
    OpenBackend();
    Simulator().Freeze();
    const auto begin = Clock::now();
    std::thread setter([] {
        std::this_thread::sleep_for(Milliseconds(100));
        SetClockStep(GetParam());
        std::this_thread::sleep_for(Milliseconds(300));
        SetClockStep(-GetParam());
    });
    EXPECT_THAT(ReadError(0, 1), testing::HasSubstr("no answer"));
    const auto waited = Clock::now() - begin;
    setter.join();
    EXPECT_GT(waited, Milliseconds(300)) << "nor is it cut short";
    EXPECT_LT(waited, c_farBelowTheStep);
    Simulator().Thaw();
    const auto thawed = Clock::now();
    EXPECT_TRUE(AwaitAnswer(0));
    EXPECT_LT(Clock::now() - thawed, c_farBelowTheStep);
    EXPECT_EQ(Read(0, 1), 8);
    EXPECT_EQ(CountMessages(" does not answer: "), 1);
    EXPECT_EQ(CountMessages(" answers again after "), 1);
}

TEST_P(ClockStepTest, WhileABoardIsDead_ProbesGoOn) {
    StartControllers();
    OpenBackend();
    Relay().SetFaults({.drop = 1});
    EXPECT_NE(ReadError(0, 1), "");
    SetClockStep(GetParam());
    const int tried = m_openings.tried;
    EXPECT_TRUE(Await([&] { return m_openings.tried >= tried + 2; }));
    Relay().SetFaults({});
    EXPECT_TRUE(AwaitAnswer(0));
    const auto messages = Messages();
    EXPECT_THAT(messages.back(), testing::MatchesRegex(".* answers again after [0-9]{1,2}\\.[0-9] s .*"))
        << "the length of the silence is true";
}

INSTANTIATE_TEST_SUITE_P(Step, ClockStepTest, testing::Values(3600, -3600),
                         [](const auto& step) { return step.param > 0 ? "AnHourOn" : "AnHourBack"; });

}  // namespace

}  // namespace test
