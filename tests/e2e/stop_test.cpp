// The stop is bounded, however slow the boards are, and leaves the fans at maximum speed.

#include <algorithm>
#include <filesystem>

#include "chassis_fixture.h"
#include "registry_fixture.h"

namespace {

using std::chrono::steady_clock;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class StopTest : public test::ChassisTest {
protected:
    /// What a stop takes on boards that are slow is measured by bench/daemon_life.py. This is far above it.
    static constexpr std::chrono::seconds c_stopLimit{30};

    static constexpr const char* c_everySecond =
        "<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter></monitor>\n"
        "<damage_protection><frequency>1</frequency></damage_protection>\n"
        "<temperature_control><frequency>1</frequency><fans><set lower='40' upper='60' rpm='4000'/></fans>"
        "</temperature_control>\n"
        "<timesync><frequency>1</frequency><delta>2</delta></timesync>\n";

    /// How long a stop asks boards how things are.
    enum class Patience_e {
        shipped,  ///< half a second, which a loaded machine may miss with boards that are quick
        endless   ///< until they answer
    };

    /// Starts the configured daemon.
    void Start(Patience_e patience, const std::vector<std::string>& options = {}) {
        std::vector<std::string> command = Command(options);
        command[0] = patience == Patience_e::endless ? Program("held_daemon") : command[0];
        m_daemon = std::make_unique<test::Process>(command, m_folder.Path("out"), m_folder.Path("err"));
    }

    /// Runs the daemon with all workers until each has begun its passes.
    void StartAll(Patience_e patience = Patience_e::shipped, const std::vector<std::string>& options = {}) {
        Configure(c_everySecond);
        Start(patience, options);
        ASSERT_TRUE(AwaitLog("Fans changed from ")) << test::ReadFile(m_folder.Path("err"));
        ASSERT_TRUE(AwaitLog("Monitor settings:"));
        ASSERT_TRUE(AwaitLog("Damage Protection settings:"));
        ASSERT_TRUE(AwaitLog("*Time synchronization process started."));
        ASSERT_TRUE(Await([&] { return test::Exists(m_folder.Path("log/sensors/slot_2.log")); }));
    }

    void MakeSlow(const std::string& milliseconds) const {
        for (const char* board : {"icb/0", "os/0", "slot/2"}) {
            ASSERT_EQ(Chassis({"slow", board, milliseconds}).status, 0);
        }
    }

    /// Lets time go by that is longer than the period, so that every worker is in a pass.
    static void GoIntoAPass() { std::this_thread::sleep_for(std::chrono::milliseconds(1500)); }

    /// Messages from the stop on.
    std::vector<std::string> MessagesOfTheStop() const {
        const auto messages = Messages();
        return {std::find(messages.begin(), messages.end(), "INFO     ***Platform daemon is stopping."),
                messages.end()};
    }

    /// @param tellsOfTheWrite whether the log tells of a client's write that was broken off
    void ExpectOrderlyEnd(bool tellsOfTheWrite = false) const {
        const auto messages = MessagesOfTheStop();
        for (const char* process : {"Monitor", "Damage Protection", "Temperature Control", "Time synchronization"}) {
            EXPECT_EQ(
                std::count(messages.begin(), messages.end(), "INFO     *" + std::string(process) + " process stopped"),
                1)
                << process << '\n'
                << Log();
        }
        EXPECT_THAT(messages, Each(StartsWith("INFO "))) << "no problem is told of";
        const std::vector<std::string> lines = test::Lines(Log());
        const auto toldOf = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("broken off") != std::string::npos;
        });
        EXPECT_EQ(toldOf, tellsOfTheWrite ? 1 : 0) << Log();
    }

    /// The last message about the fans.
    std::string LastChangeOfTheFans() const {
        std::string last;
        for (const std::string& message : Messages()) {
            last = message.find("Fans changed") == std::string::npos ? last : message;
        }
        return last;
    }
};

TEST_F(StopTest, QuickBoards_FansAreLeftAtMaximumSpeed) {
    StartAll();
    EXPECT_EQ(Stop(), 0);
    ExpectOrderlyEnd();
    EXPECT_THAT(LastChangeOfTheFans(), LeftFast());
}

TEST_F(StopTest, SpeedThatTheControllerTells_IsTheOneThatTheLogNames) {
    StartAll(Patience_e::endless);
    EXPECT_EQ(Stop(), 0);
    ExpectOrderlyEnd();
    EXPECT_EQ(LastChangeOfTheFans(), "INFO     Fans changed from 4007 RPM to 6500 RPM.");
}

TEST_F(StopTest, EveryBoardTakesASecond_PassesAreBrokenOffAndTheFansAreSet) {
    StartAll();
    MakeSlow("1000");
    GoIntoAPass();
    const auto begin = steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(steady_clock::now() - begin, c_stopLimit);
    ExpectOrderlyEnd();
    EXPECT_EQ(LastChangeOfTheFans(), "INFO     Fans changed from 0 RPM to 6500 RPM.");
}

TEST_F(StopTest, ManyMomentsOfSlowPasses_AreAllOrderly) {
    for (int delay = 0; delay < 600; delay += 170) {
        std::filesystem::remove_all(m_folder.Path("log"));
        StartAll();
        MakeSlow("300");
        std::this_thread::sleep_for(std::chrono::milliseconds(1000 + delay));
        EXPECT_EQ(Stop(), 0) << "after " << delay << " ms";
        ExpectOrderlyEnd();
        EXPECT_THAT(LastChangeOfTheFans(), HasSubstr(" RPM to 6500 RPM."));
    }
}

TEST_F(StopTest, ClientsWriteThatWaitsForASlowBoard_IsBrokenOffAndNeverUndoesTheStop) {
    StartAll(Patience_e::shipped, {"--trace-level", "4"});
    // Where a call is traced as it begins.
    const auto countSets = [this] {
        const auto lines = test::ReadLines(m_folder.Path("log/zelkor-platformd.trace"));
        return std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
            return line.find("FansNode::OnSet(const double*") != std::string::npos;
        });
    };
    const auto before = countSets();
    MakeSlow("1000");
    test::Process client(RegistryCommand({"set", "fans", "2500"}), m_folder.Path("client.out"),
                         m_folder.Path("client.err"));
    ASSERT_TRUE(Await([&] { return countSets() > before; })) << "the client's write waits for the board";
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(client.Wait(), 1) << test::ReadFile(m_folder.Path("client.out"));
    EXPECT_THAT(test::ReadFile(m_folder.Path("client.err")),
                HasSubstr("Access to board icb/0 was broken off: the service stops"));
    ExpectOrderlyEnd(true);
    EXPECT_THAT(Log(),
                MatchesRegex("(.|\n)*WARNING  Registry: fans not set from unknown to 2500 for 127.0.0.1: Access to "
                             "board icb/0 was broken off: the service stops\n(.|\n)*"));
    EXPECT_EQ(LastChangeOfTheFans(), "INFO     Fans changed from 0 RPM to 6500 RPM.");
}

TEST_F(StopTest, SpeedThatNoRegisterStandsFor_DoesNotKeepTheFansFromBeingSet) {
    StartAll(Patience_e::endless);
    FollowJournal();
    Ask({"set", "fans", "29.6"});
    ASSERT_TRUE(AwaitLog("Problem in Temperature Control process - Too high rpm value: 29"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1);
    EXPECT_THAT(MessagesOfTheStop(), Contains("ERROR    Problem at stop - Too high rpm value: 29"));
    EXPECT_EQ(FanWrites(AllActions()).back(), "297");
}

TEST_F(StopTest, RegisterThatDoesNotAnswer_TheOthersAreSetAndItIsTold) {
    Configure("<temperature_control enabled='false'/>\n");
    Start(Patience_e::endless);
    ASSERT_TRUE(AwaitLog("*Temperature Control process stopped")) << test::ReadFile(m_folder.Path("err"));
    Ask({"set", "fans", "6500"});
    FollowJournal();
    Do({"fpga", "write", "0x58", "774"});  // one of the fans is slow, another one cannot be asked
    Do({"fpga", "fail", "0x50"});
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(MessagesOfTheStop(), Contains("ERROR    Only 5 of the 6 fans are known to be set to 6500 RPM."));
    EXPECT_THAT(AllActions(), Contains("icb/0 FpgaSpiWrite 0x58 297"));
}

TEST_F(StopTest, BoardsPastAnyPatience_StopEndsAllTheSameAndSaysThatTheFansAreNotSet) {
    StartAll();
    MakeSlow("60000");
    GoIntoAPass();
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1);
    const auto messages = MessagesOfTheStop();
    EXPECT_THAT(messages, Contains("ERROR    Problem at stop - Board icb/0 did not answer within 20000 ms: the access "
                                   "was given up"));
    EXPECT_EQ(std::count_if(messages.begin(), messages.end(),
                            [](const std::string& message) { return message.rfind("ERROR", 0) == 0; }),
              1)
        << Log();
    EXPECT_THAT(messages, Contains("INFO     *Temperature Control process stopped"));
    EXPECT_THAT(messages, Not(Contains(HasSubstr("Fans changed"))));
}

TEST_F(StopTest, SlowBoardPastItsLimit_IsSwitchedOffAtTheStopAllTheSame) {
    StartAll();
    FollowJournal();
    MakeSlow("400");
    Do({"set", "slot/2", "5", "120"});
    ASSERT_TRUE(AwaitLog("Sensor source board will be powered off now."));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(AllActions(), Contains("slot/2 PowerDown"));
    EXPECT_THAT(Log(), HasSubstr("*Damage Protection process stopped"));
}

}  // namespace
