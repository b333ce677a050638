// The damage protection: boards that are switched off because one of their sensors is too hot.

#include "single_worker_fixture.h"

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class DamageProtectionTest : public test::WorkerTest {
protected:
    DamageProtectionTest() : WorkerTest("damage_protection", "Damage Protection") {}

    static constexpr const char* c_everySecond = "<damage_protection><frequency>1</frequency></damage_protection>\n";
    static constexpr const char* c_withoutPause = "<damage_protection><frequency>0</frequency></damage_protection>\n";
    static constexpr const char* c_poweredOff = "CRITICAL Sensor source board will be powered off now.";
    static constexpr const char* c_shutDown = "CRITICAL Sensor source is OS, shut-down the ICB.";

    /// The first two messages about a sensor beyond its limit.
    static std::string TooHigh(const std::string& id, const std::string& board, const std::string& value,
                               const std::string& limit) {
        return "CRITICAL Value of sensor id: " + id + " on board " + board +
               " is higher than HNR!!! (value = " + value + "; HNC = " + limit + ")";
    }
    static std::string SwitchingOff(const std::string& board) {
        return "CRITICAL !!! Shutting down board " + board + " to prevent damage.";
    }

    /// The three boards, one of which is too hot from the start.
    static std::string HotCore() {
        return With(c_threeBoards, "name=\"Core\" type=\"temperature\" units=\"C\" value=\"20\"",
                    "name=\"Core\" type=\"temperature\" units=\"C\" value=\"101\"");
    }
    static std::string HotHost() {
        return With(c_threeBoards, "name=\"CPU\" type=\"temperature\" units=\"C\" value=\"20\"",
                    "name=\"CPU\" type=\"temperature\" units=\"C\" value=\"106\"");
    }

    /// What the stop of the daemon does to the fans is no matter here.
    static std::vector<std::string> WithoutFans(const std::vector<std::string>& actions) {
        std::vector<std::string> rest;
        std::copy_if(actions.begin(), actions.end(), std::back_inserter(rest),
                     [](const std::string& action) { return action.find("FpgaSpiWrite") == std::string::npos; });
        return rest;
    }
};

TEST_F(DamageProtectionTest, BoardTooHot_IsPoweredDownAndNoOther) {
    Run("", HotCore());
    ASSERT_TRUE(AwaitMessage(c_poweredOff));
    ASSERT_TRUE(Await([this] { return !Actions().empty(); }));
    EXPECT_THAT(Actions(), ElementsAre("io/2 PowerDown"));
    EXPECT_EQ(Do({"power", "io/2"}), "off\n");
    EXPECT_EQ(Do({"power", "icb/0"}), "on\n");
    EXPECT_EQ(Do({"power", "os/0"}), "on\n");
    for (const char* board : {"icb/0", "io/2", "os/0"}) {
        EXPECT_EQ(Do({"shutdown-count", board}), "0\n") << board;
    }
    EXPECT_EQ(Ask({"get", "boards/slot2/board_info/power_status", "boards/ICB/board_info/power_status"}), "off\non\n");
    FollowJournal();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(WithoutFans(AllActions()), ElementsAre("io/2 PowerDown"));
    EXPECT_THAT(Told(),
                ElementsAre("INFO     No settings found for Damage Protection module",
                            "INFO     Configuration for Damage Protection is not available. Using default values",
                            TooHigh("5", "io_2", "101", "100"), SwitchingOff("io_2"), c_poweredOff));
}

TEST_F(DamageProtectionTest, HostTooHot_ShutsTheControllerBoardDown) {
    Run("", HotHost());
    ASSERT_TRUE(Await([this] { return !Actions().empty(); }));
    EXPECT_THAT(Actions(), ElementsAre("icb/0 ShutDown"));
    EXPECT_EQ(Do({"shutdown-count", "icb/0"}), "1\n");
    EXPECT_EQ(Do({"shutdown-count", "os/0"}), "0\n");
    for (const char* board : {"icb/0", "io/2", "os/0"}) {
        EXPECT_EQ(Do({"power", board}), "on\n") << board;
    }
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(),
                ElementsAre("INFO     No settings found for Damage Protection module",
                            "INFO     Configuration for Damage Protection is not available. Using default values",
                            TooHigh("7", "os_0", "106", "105"), SwitchingOff("os_0"), c_shutDown));
}

TEST_F(DamageProtectionTest, HostTooHotWithoutTheLocalControllerBoard_NothingIsSwitchedOff) {
    // Another controller board than the chassis' own does not stand in.
    Run(c_everySecond, With(HotHost(), "uri=\"icb/0\"", "uri=\"icb/1\""));
    const std::string aborted = "CRITICAL !!! Cannot find ICB board. Shut down aborted.";
    EXPECT_TRUE(AwaitMessages(aborted, 2)) << "it is tried in every pass, but not within one";
    EXPECT_THAT(Actions(), IsEmpty());
    EXPECT_EQ(Do({"power", "os/0"}), "on\n");
    EXPECT_EQ(Stop(), 0);
    const std::vector<std::string> pass{TooHigh("7", "os_0", "106", "105"), SwitchingOff("os_0"), c_shutDown, aborted};
    const auto told = Told();
    ASSERT_EQ(told.size() % pass.size(), 0U);
    for (std::size_t at = 0; at < told.size(); ++at) {
        EXPECT_EQ(told[at], pass[at % pass.size()]);
    }
}

TEST_F(DamageProtectionTest, ControllerBoardThatVanishes_IsShutDownOnceItIsBack) {
    Run(c_withoutPause);
    Pace("io/2", 1);
    Do({"missing", "icb/0"});
    EXPECT_TRUE(AwaitMessage("ERROR    Problem accessing board: icb_0"));
    Do({"set", "os/0", "7", "106"});
    EXPECT_TRUE(AwaitMessages("CRITICAL !!! Cannot find ICB board. Shut down aborted.", 2));
    EXPECT_THAT(Actions(), IsEmpty());
    Do({"heal", "icb/0"});
    EXPECT_TRUE(Await([this] { return Do({"shutdown-count", "icb/0"}) != "0\n"; }));
    EXPECT_THAT(Actions(), Each("icb/0 ShutDown"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DamageProtectionTest, ShutDownThatRaises_IsSaidBehindItsMessages) {
    Run(c_withoutPause);
    Pace("io/2", 1);
    Do({"fail", "icb/0", "bus is stuck"});
    const std::string readingFails = "ERROR    Problem accessing sensor id: 12 on board icb_0. Exception: bus is stuck";
    EXPECT_TRUE(AwaitMessage(readingFails));
    Do({"set", "os/0", "7", "106"});
    const std::string fails = "ERROR    Problem accessing sensor id: 7 on board os_0. Exception: bus is stuck";
    EXPECT_TRUE(AwaitMessages(fails, 2));
    Do({"heal", "icb/0"});
    EXPECT_EQ(Stop(), 0);
    const auto told = Told();
    ASSERT_GE(told.size(), 5U);
    EXPECT_THAT(std::vector<std::string>(told.begin(), told.begin() + 5),
                ElementsAre(readingFails, TooHigh("7", "os_0", "106", "105"), SwitchingOff("os_0"), c_shutDown, fails));
}

TEST_F(DamageProtectionTest, TwoSensorsOfABoardTooHot_EachActsInOnePass) {
    const std::string chassis =
        With(With(c_threeBoards, "value=\"48\"", "value=\"96\""), "    <sensor id=\"12\"",
             "    <sensor id=\"20\" name=\"Exhaust\" type=\"temperature\" units=\"C\" value=\"97.5\" unr=\"96.25\"/>\n"
             "    <sensor id=\"12\"");
    Run("", chassis);
    ASSERT_TRUE(Await([this] { return Actions().size() >= 2; }));
    EXPECT_THAT(Actions(), ElementsAre("icb/0 PowerDown", "icb/0 PowerDown"));
    EXPECT_EQ(Do({"power", "icb/0"}), "off\n");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(),
                ElementsAre("INFO     No settings found for Damage Protection module",
                            "INFO     Configuration for Damage Protection is not available. Using default values",
                            TooHigh("12", "icb_0", "96", "95"), SwitchingOff("icb_0"), c_poweredOff,
                            TooHigh("20", "icb_0", "97.5", "96.25"), SwitchingOff("icb_0"), c_poweredOff));
}

TEST_F(DamageProtectionTest, ReadingsThatAreNotBeyondTheLimit_DoNothing) {
    Run(c_withoutPause);
    Pace("io/2", 1);
    BeginHeartbeats();
    for (const auto& command : {std::vector<std::string>{"set", "io/2", "5", "95"},
                                {"set", "io/2", "5", "100"},
                                {"set", "io/2", "5", "nan"},
                                {"set", "io/2", "5", "-inf"},
                                {"invalid", "io/2", "5"}}) {
        Do(command);
        EXPECT_TRUE(AwaitPasses(1));
    }
    Do({"limit", "io/2", "5", "unr", "none"});
    Do({"set", "io/2", "5", "1000"});
    EXPECT_TRUE(AwaitPasses(1));
    EXPECT_THAT(Actions(), IsEmpty());
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(DamageProtectionTest, ReadingBeyondAChangedLimit_ActsInEveryPassUntilItFalls) {
    Run(c_withoutPause);
    Pace("io/2", 1);
    BeginHeartbeats();
    Do({"limit", "io/2", "5", "unr", "19.5"});
    ASSERT_TRUE(AwaitMessages(c_poweredOff, 3)) << "there is no latch";
    Do({"limit", "io/2", "5", "unr", "100"});
    EXPECT_TRUE(AwaitPasses(1));
    const auto downs = Actions();
    EXPECT_GE(downs.size(), 3U);
    EXPECT_THAT(downs, Each("io/2 PowerDown"));
    EXPECT_TRUE(AwaitPasses(2));
    EXPECT_EQ(Actions().size(), downs.size());
    Do({"set", "io/2", "5", "inf"});
    EXPECT_TRUE(AwaitMessage(TooHigh("5", "io_2", "inf", "100")));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(Told().front(), TooHigh("5", "io_2", "20", "19.5"));
}

TEST_F(DamageProtectionTest, VoltageBeyondItsLimit_ActsOnlyWhenItIsIncluded) {
    const std::string chassis = With(c_threeBoards, "value=\"12\"", "value=\"15.5\"");
    Run(c_everySecond, chassis);
    BeginHeartbeats();
    EXPECT_TRUE(AwaitPasses(1));
    EXPECT_THAT(Actions(), IsEmpty());
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), IsEmpty());

    Run("<damage_protection><sensors><include>3</include></sensors></damage_protection>\n", chassis);
    ASSERT_TRUE(Await([this] { return !Actions().empty(); }));
    EXPECT_THAT(Actions(), ElementsAre("icb/0 PowerDown"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Told(), ElementsAre(TooHigh("3", "icb_0", "15.5", "15"), SwitchingOff("icb_0"), c_poweredOff));
    EXPECT_THAT(Settings(),
                ElementsAre("enabled   = true", "frequency = 60 seconds", "Controlling following sensors",
                            "  icb/0  (icb)", "    3", "    12", "  io/2  (io)", "    5", "  os/0  (os)", "    7"));
}

TEST_F(DamageProtectionTest, FaultsOfBoardsAndSensors_AreSaidInEveryPassAndCostThemselvesOnly) {
    Run(c_withoutPause);
    Pace("io/2", 1);
    const std::vector<std::pair<std::vector<std::string>, std::string>> faults{
        {{"missing", "icb/0"}, "ERROR    Problem accessing board: icb_0"},
        {{"missing", "icb/0", "12"}, "ERROR    Problem accessing sensor id: 12 on board icb_0"},
        {{"fail", "icb/0", "bus is stuck"},
         "ERROR    Problem accessing sensor id: 12 on board icb_0. Exception: bus is stuck"},
        {{"fail", "icb/0", "12", "no answer"},
         "ERROR    Problem accessing sensor id: 12 on board icb_0. Exception: no answer"}};
    std::vector<std::string> expected;
    for (const auto& [fault, error] : faults) {
        Do(fault);
        EXPECT_TRUE(AwaitMessages(error, 2)) << error;
        Do({"heal", "icb/0"});
        expected.push_back(error);
    }
    EXPECT_EQ(Told(), expected);
    Do({"missing", "icb/0"});
    Do({"set", "io/2", "5", "101"});
    EXPECT_TRUE(AwaitMessage(c_poweredOff)) << "the boards behind it are protected";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DamageProtectionTest, SlowBoard_DelaysThePassAndStaysProtected) {
    Run(c_everySecond);
    Do({"slow", "io/2", "300"});
    Do({"set", "io/2", "5", "101"});
    EXPECT_TRUE(AwaitMessage(c_poweredOff));
    Do({"heal", "io/2"});
    EXPECT_EQ(Stop(), 0);
    const auto told = Told();
    EXPECT_EQ(told.front(), TooHigh("5", "io_2", "101", "100"));
    EXPECT_THAT(told, Each(StartsWith("CRITICAL ")));
}

TEST_F(DamageProtectionTest, Disabled_SaysItsSettingsAndMakesNoPass) {
    RunToItsEnd("<damage_protection enabled='false'/>\n", HotCore());
    EXPECT_THAT(Told(), IsEmpty());
    EXPECT_THAT(Settings(), ElementsAre("enabled   = false", "frequency = 60 seconds", "Controlling following sensors",
                                        "  icb/0  (icb)", "    12", "  io/2  (io)", "    5", "  os/0  (os)", "    7"));
}

TEST_F(DamageProtectionTest, NoSensors_SaysSoAndMakesNoPass) {
    RunToItsEnd("<damage_protection><sensors><exclude>all</exclude></sensors></damage_protection>\n", HotCore());
    EXPECT_THAT(Told(), IsEmpty());
    EXPECT_THAT(Settings(), ElementsAre("enabled   = true", "frequency = 60 seconds", "Controlling following sensors",
                                        "  No sensors found!"));
}

TEST_F(DamageProtectionTest, SensorThatIsNoNumber_EndsTheWorker) {
    RunToItsEnd("<damage_protection><sensors><include>5,0x</include></sensors></damage_protection>\n", HotCore());
    EXPECT_THAT(Told(), ElementsAre("ERROR    Problem in Damage Protection process - Bad cast from 0x to int"));
    EXPECT_THAT(Log(), Not(HasSubstr("Damage Protection settings:")));
}

TEST_F(DamageProtectionTest, SectionThatIsEmptyOrThereTwice_LeavesTheDefaults) {
    for (const std::string section :
         {"<damage_protection/>\n", "<damage_protection enabled='false'/>\n<damage_protection enabled='false'/>\n"}) {
        SCOPED_TRACE(section);
        Run(section, HotCore());
        ASSERT_TRUE(AwaitMessage(c_poweredOff));
        EXPECT_EQ(Stop(), 0);
        EXPECT_THAT(Told(),
                    ElementsAre("INFO     No settings found for Damage Protection module",
                                "INFO     Configuration for Damage Protection is not available. Using default values",
                                TooHigh("5", "io_2", "101", "100"), SwitchingOff("io_2"), c_poweredOff));
        EXPECT_THAT(Settings(), Contains("frequency = 60 seconds"));
    }
}

TEST_F(DamageProtectionTest, Frequency_ThatIsNegativeOrNoNumberKeepsTheDefault) {
    const std::vector<std::pair<std::string, std::string>> cases{{"-1", "60"},   {"abc", "60"},        {"", "60"},
                                                                 {"0x10", "16"}, {"4294967296", "60"}, {"7", "7"}};
    for (const auto& [text, seconds] : cases) {
        SCOPED_TRACE(text);
        RunToItsEnd("<damage_protection enabled='false'><frequency>" + text + "</frequency></damage_protection>\n");
        EXPECT_EQ(Settings().at(1), "frequency = " + seconds + " seconds");
        EXPECT_THAT(Told(), IsEmpty());
    }
}

TEST_F(DamageProtectionTest, PeriodOfZero_PassesWithoutPauseAndStillStops) {
    Run(c_withoutPause);
    Do({"set", "io/2", "5", "101"});
    EXPECT_TRUE(AwaitMessages(c_poweredOff, 5));
    Do({"auto", "io/2", "5"});
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
    EXPECT_THAT(Told(), Each(StartsWith("CRITICAL ")));
}

}  // namespace
