// A board that does not answer, seen by those who use it and by those who use the others.

#include <thread>

#include "tests/integration/ipmi/failure_fixture.h"

namespace test {

namespace {

using testing::HasSubstr;

/// The ways in which a controller dies.
enum class Death_e { frozen, stopped, black_hole, closed_port };

class DeadBoardTest : public IpmiFailureTest, public testing::WithParamInterface<Death_e> {
protected:
    void Kill(std::size_t site) {
        switch (GetParam()) {
            case Death_e::frozen:
                return Simulator(site).Freeze();
            case Death_e::stopped:
                return Simulator(site).Stop();
            case Death_e::black_hole:
                return Relay(site).SetFaults({.drop = 1});
            case Death_e::closed_port:
                return Relay(site).Close();
        }
    }
    void Revive(std::size_t site) {
        switch (GetParam()) {
            case Death_e::frozen:
                return Simulator(site).Thaw();
            case Death_e::stopped:
                return Simulator(site).Restart();
            case Death_e::black_hole:
                return Relay(site).SetFaults({});
            case Death_e::closed_port:
                return Relay(site).Open();
        }
    }
};

TEST_P(DeadBoardTest, ItsCallersWaitOnceThenFailAtOnce_AndItIsFoundAgain) {
    m_timing.leastBackOff = std::chrono::seconds(1);
    StartControllers();
    OpenBackend();
    Kill(0);
    EXPECT_THAT(ReadError(0, 1), HasSubstr("no answer within "));
    EXPECT_EQ(CountMessages(" does not answer: "), 1);

    const std::uint64_t packets = PacketsTo(0);
    const auto dead = Clock::now();
    for (int id = 1; id <= 20; ++id) {
        EXPECT_THAT(ReadError(0, id), HasSubstr("no answer since "));
    }
    EXPECT_THAT(ErrorOf([&] { Board().PowerDown(); }), HasSubstr("no answer since "));
    EXPECT_THAT(ErrorOf([&] { Board().SetTime(qstd::Time(1'700'000'000UL, 0UL)); }), HasSubstr("no answer since "));
    EXPECT_EQ(Board().GetStatus(), bmc::BoardStatus_e::not_responding);
    EXPECT_LT(Clock::now() - dead, 20 * c_timeout) << "each of two dozen callers would wait for longer than a time-out";
    if (Clock::now() - dead < Milliseconds(800)) {
        EXPECT_EQ(PacketsTo(0), packets) << "nobody is asked before the probe";
    }

    Revive(0);
    EXPECT_TRUE(AwaitAnswer(0));
    EXPECT_EQ(Read(0, 3), 24);
    EXPECT_EQ(CountMessages(" does not answer: "), 1) << testing::PrintToString(Messages());
    EXPECT_EQ(CountMessages(" answers again after "), 1) << testing::PrintToString(Messages());
    EXPECT_EQ(Simulator().GetWrites().size(), 0U) << "what failed at once was not sent later";
}

TEST_P(DeadBoardTest, SweepOverAllBoards_CostsTheOthersNothing) {
    m_timing.leastBackOff = std::chrono::seconds(1);
    m_ways.timeout = std::chrono::seconds(3);
    StartControllers(3);
    OpenBackend();
    bmc::SensorIds ids;
    for (std::size_t site = 0; site < 3; ++site) {
        ids[m_sites[site].uri] = Board(site).GetSensorsIds();
    }
    Kill(1);
    const auto begin = Clock::now();
    const auto sweep = m_backend->StartSweep(ids);
    // Living boards first: none of their readings waits for the dead one.
    for (const std::size_t site : {0U, 2U}) {
        for (int id = 1; id <= 20; ++id) {
            EXPECT_EQ(sweep->Read(*Board(site).GetSensor(bmc::SensorId(id))).Converted(), id * 8);
        }
    }
    EXPECT_LT(Clock::now() - begin, m_ways.timeout) << "less than one time-out of the dead board";
    int silent = 0;
    for (int id = 1; id <= 20; ++id) {
        const std::string error = ErrorOf([&] { sweep->Read(*Board(1).GetSensor(bmc::SensorId(id))); });
        silent += error.find("no answer") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(silent, 20);
    EXPECT_LT(Clock::now() - begin, 5 * m_ways.timeout * (c_retries + 1)) << "not each of its sensors costs one";
    Revive(1);
    EXPECT_TRUE(AwaitAnswer(1));
    EXPECT_EQ(CountMessages(" does not answer: "), 1);
    EXPECT_EQ(CountMessages(" answers again after "), 1);
}

std::string NameOf(const testing::TestParamInfo<Death_e>& info) {
    switch (info.param) {
        case Death_e::frozen:
            return "Frozen";
        case Death_e::stopped:
            return "Stopped";
        case Death_e::black_hole:
            return "BlackHole";
        case Death_e::closed_port:
            return "ClosedPort";
    }
    return "Unknown";
}

INSTANTIATE_TEST_SUITE_P(Death, DeadBoardTest,
                         testing::Values(Death_e::frozen, Death_e::stopped, Death_e::black_hole, Death_e::closed_port),
                         NameOf);

class DeadForLongTest : public IpmiFailureTest {};

TEST_F(DeadForLongTest, ProbesComeWithDoublingWaits_NotMoreOften) {
    m_timing.leastBackOff = Milliseconds(50);
    m_timing.mostBackOff = Milliseconds(400);
    m_ways.timeout = Milliseconds(100);
    StartControllers();
    OpenBackend();
    Relay().SetFaults({.drop = 1});
    EXPECT_NE(ReadError(0, 1), "");
    const int before = m_openings.tried;
    const auto begin = Clock::now();
    // Waits of 50, 100, 200, 400, 400, 400 ms, a tenth less at the least, each followed by an opening that lasts 150
    // ms.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(Await([&] { return m_openings.tried - before >= 3; }));
    const int probes = m_openings.tried - before;
    const auto length = Clock::now() - begin;
    EXPECT_LE(probes, 4 + length / Milliseconds(500));
    EXPECT_EQ(CountMessages(" does not answer: "), 1) << "a silence that lasts is told once";
}

TEST_F(DeadForLongTest, DeadFromTheStart_BoardsComeWhenTheyAnswer) {
    StartControllers(2);
    Simulator(1).Freeze();
    OpenBackend(false);
    EXPECT_EQ(Board(0).GetSensorsIds().size(), 20U);
    EXPECT_THAT(ErrorOf([&] { Board(1).GetSensorsIds(); }), HasSubstr("slot/1"));
    EXPECT_EQ(CountMessages(" does not answer: "), 1);
    Simulator(1).Thaw();
    EXPECT_TRUE(AwaitAnswer(1));
    EXPECT_EQ(Read(1, 5), 40);
    EXPECT_EQ(CountMessages("slot/1: its 20 sensors are known only now"), 1);
}

}  // namespace

}  // namespace test
