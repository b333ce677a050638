// Sessions are lost under the running daemon: by controllers that start anew, by a clock that is set, by another daemon
// beside it.

#include <fcntl.h>
#include <unistd.h>

#include "failing_boards_fixture.h"
#include "tests/support/clock_shim.h"

namespace {

using testing::Each;
using testing::StartsWith;

class LostSessionTest : public test::FailingBoardsTest {
protected:
    /// Each board is recorded twice more, as it is every second.
    void ExpectPassesGoOn() {
        std::vector<std::ptrdiff_t> wanted;
        for (const Site& site : m_sites) {
            wanted.push_back(CountRecords(site) + 2);
        }
        const auto areThere = [&] {
            for (std::size_t i = 0; i < m_sites.size(); ++i) {
                if (CountRecords(m_sites[i]) < wanted[i]) {
                    return false;
                }
            }
            return true;
        };
        EXPECT_TRUE(Await(areThere)) << Log();
    }

    /// Nothing is told but information: no reading, write or board was missed.
    void ExpectNoTrouble() { EXPECT_THAT(Messages(), Each(StartsWith("INFO "))) << Log(); }
};

TEST_F(LostSessionTest, ControllersRestart_NobodySeesIt) {
    StartControllers(3);
    ConfigureBoards(c_everySecond);
    Start();
    ASSERT_NO_FATAL_FAILURE(AwaitPasses());
    for (const Site& site : m_sites) {
        site.simulator->Restart();
    }
    ExpectPassesGoOn();
    EXPECT_EQ(CountMessages("Controller "), 3) << "the first answer of each";
    EXPECT_EQ(Stop(), 0);
    ExpectNoTrouble();
    EXPECT_THAT(FanRegisters(), Each(c_fastest));
}

/// The daemon with a calendar clock of its own.
class ClockStepTest : public LostSessionTest, public testing::WithParamInterface<int> {
protected:
    void SetStep(std::int64_t seconds) const {
        const int file = ::open(m_folder.Path("step").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
        ASSERT_EQ(::pwrite(file, &seconds, sizeof seconds, 0), static_cast<ssize_t>(sizeof seconds));
        ::close(file);
    }
    void StartWithClock() {
        SetStep(0);
        // The sanitizers' libraries want to come first, and bear it when they do not.
        Start({}, {{"LD_PRELOAD", ZELKOR_CLOCK_SHIM},
                   {test::c_clockStepFile, m_folder.Path("step")},
                   {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    }
};

TEST_P(ClockStepTest, PassesGoOnAndNoReadingIsMissed) {
    StartControllers(2);
    ConfigureBoards("<timesync enabled='false'/>\n" + std::string(c_everySecondButClocks));
    StartWithClock();
    ASSERT_TRUE(AwaitLog("Fans changed from ")) << test::ReadFile(m_folder.Path("err"));
    ExpectPassesGoOn();
    SetStep(GetParam());
    ExpectPassesGoOn();
    SetStep(0);
    ExpectPassesGoOn();
    EXPECT_EQ(CountMessages("Controller "), 2) << "the first answer of each";
    EXPECT_EQ(Stop(), 0);
    ExpectNoTrouble();
}

TEST_P(ClockStepTest, InTheMiddleOfAnOutage_TheBoardComesBackAsEver) {
    StartControllers(2);
    ConfigureBoards("<timesync enabled='false'/>\n" + std::string(c_everySecondButClocks),
                    "timeout='1000' retries='2'");
    StartWithClock();
    ExpectPassesGoOn();
    Kill(m_sites[1], Death_e::frozen);
    ASSERT_TRUE(AwaitLog(Controller(m_sites[1]) + " does not answer: "));
    SetStep(GetParam());
    const auto records = CountRecords(m_sites[0]);
    EXPECT_TRUE(Await([&] { return CountRecords(m_sites[0]) >= records + 2; }));
    Revive(m_sites[1], Death_e::frozen);
    ASSERT_TRUE(AwaitLog(Controller(m_sites[1]) + " answers again after ")) << Log();
    ExpectPassesGoOn();
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(CountMessages(" does not answer: "), 1);
    EXPECT_EQ(CountMessages(" answers again after "), 1);
}

INSTANTIATE_TEST_SUITE_P(Step, ClockStepTest, testing::Values(3600, -3600),
                         [](const auto& step) { return step.param > 0 ? "AnHourOn" : "AnHourBack"; });

TEST_F(LostSessionTest, TwoDaemonsOnTheSameControllers_BothGoOn) {
    StartControllers(2);
    ConfigureBoards(c_everySecond);
    test::Process other({Program("zelkor-platformd"), "--config", m_folder.Path("config.xml"), "--log-dir",
                         m_folder.Path("other"), "--port", "0"},
                        m_folder.Path("other.out"), m_folder.Path("other.err"));
    Start();
    ASSERT_TRUE(AwaitLog("Damage Protection settings:"));
    ExpectPassesGoOn();
    ExpectPassesGoOn();
    EXPECT_EQ(Stop(), 0);
    ExpectNoTrouble();
    other.Signal(SIGTERM);
    EXPECT_EQ(other.Wait(), 0);
    const std::string log = test::ReadFile(m_folder.Path("other/zelkor-platformd.log"));
    EXPECT_THAT(log, testing::HasSubstr("*Temperature Control process stopped"));
    EXPECT_THAT(log, testing::Not(testing::HasSubstr("Problem")));
    EXPECT_THAT(log, testing::Not(testing::HasSubstr("does not answer")));
}

}  // namespace
