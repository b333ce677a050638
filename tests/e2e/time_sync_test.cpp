// The clocks of the boards and what is told of them.

#include <regex>

#include "traced_workers_fixture.h"

namespace {

using test::Worker;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::MatchesRegex;

class BoardClockTest : public test::WorkersTest {
protected:
    struct Clock {
        std::string uri;
        std::string type;
        std::string offset;  ///< to the host, in seconds
    };

    /// A chassis of boards without sensors, so that the workers that watch sensors end by themselves.
    static std::string Boards(const std::vector<Clock>& clocks) {
        std::string text = "<chassis>\n";
        for (const Clock& clock : clocks) {
            text.append("<board uri='").append(clock.uri).append("' type='").append(clock.type);
            text.append("' clock='").append(clock.offset).append("'>");
            text.append(clock.type == "icb" ? "<fans/>" : "").append("</board>\n");
        }
        return text + "</chassis>\n";
    }

    /// A clock that was set, as it was told.
    struct SetClock {
        std::uint32_t difference;
        std::time_t oldTime;
        std::time_t newTime;
    };

    /// The whole seconds of "2026/11/21 11:12:44.084", which is a time of UTC here.
    static std::time_t Seconds(const std::string& text) {
        std::tm time{};
        EXPECT_NE(::strptime(text.c_str(), "%Y/%m/%d %H:%M:%S", &time), nullptr) << text;
        return ::timegm(&time);
    }

    /// Each time that the clock of the board with this label was set.
    std::vector<SetClock> SetClocksOf(const std::string& label) const {
        static const std::regex c_form(
            "I: Synchronizing time on board (\\w+) - difference is (\\d+) seconds\\. "
            "\\(Old time ([0-9/]{10} [0-9:]{8}\\.\\d{3}); New time ([0-9/]{10} [0-9:]{8}\\.\\d{3})\\)\\.");
        std::vector<SetClock> found;
        for (const std::string& message : MessagesOf(Worker::clocks)) {
            std::smatch parts;
            if (std::regex_match(message, parts, c_form) && parts[1] == label) {
                found.push_back(
                    {static_cast<std::uint32_t>(std::stoul(parts[2])), Seconds(parts[3]), Seconds(parts[4])});
            }
        }
        return found;
    }

    bool AwaitSet(const std::string& label, std::size_t count = 1) const {
        return Await([&] { return SetClocksOf(label).size() >= count; });
    }

    /// The journal's actions on this board.
    std::vector<std::string> ActionsOn(const std::string& uri) const {
        std::vector<std::string> actions = Actions();
        actions.erase(std::remove_if(actions.begin(), actions.end(),
                                     [&](const std::string& action) { return action.find(uri + " ") != 0; }),
                      actions.end());
        return actions;
    }

    /// What the worker says before its first pass, the report of its settings left out.
    std::vector<std::string> Beginning() const {
        std::vector<std::string> beginning;
        for (const std::string& message : MessagesOf(Worker::clocks)) {
            if (message.find("I: Synchronizing") == 0) {
                break;
            }
            if (message.find("settings:") == std::string::npos) {
                beginning.push_back(message);
            }
        }
        return beginning;
    }

    static std::string Settings(const std::string& enabled, const std::string& frequency, const std::string& delta) {
        const std::string indent = c_keyIndent;
        return "I: Time Synchronization settings:\n" + indent + "enabled   = " + enabled + "\n" + indent +
               "frequency = " + frequency + " seconds\n" + indent + "delta     = " + delta + " seconds";
    }

    /// Between the reading of a board's clock and that of the host's a second may begin, and a loaded machine may have
    /// others to do.
    static testing::Matcher<std::uint32_t> SomewhatMoreThan(std::uint32_t difference) {
        return testing::ResultOf([difference](std::uint32_t found) { return found - difference; }, testing::Le(30U));
    }

    static constexpr const char* c_everySecond = "<timesync><frequency>1</frequency></timesync>\n";
    const std::string c_started = "I: *Time synchronization process started.";
    const std::string c_stopped = "I: *Time synchronization process stopped";
};

TEST_F(BoardClockTest, DriftingClocks_AreSetToTheHostsTimeAndToldWithBothTimes) {
    StartWith("", Boards({{"icb/0", "icb", "-10"}, {"os/0", "os", "-100"}, {"slot/2", "power_supply", "35"}}));
    ASSERT_TRUE(AwaitSet("slot_2"));
    const std::vector<SetClock> behind = SetClocksOf("icb_0");
    const std::vector<SetClock> ahead = SetClocksOf("slot_2");
    ASSERT_EQ(behind.size(), 1U);
    ASSERT_EQ(ahead.size(), 1U);
    EXPECT_THAT(behind[0].difference, SomewhatMoreThan(10));
    EXPECT_EQ(behind[0].difference, behind[0].newTime - behind[0].oldTime);
    EXPECT_THAT(ahead[0].difference, SomewhatMoreThan(4294967261U)) << "a board ahead wraps";
    EXPECT_EQ(ahead[0].difference, static_cast<std::uint32_t>(ahead[0].newTime - ahead[0].oldTime));
    EXPECT_LE(std::time(nullptr) - ahead[0].newTime, 200) << "the new time is that of the host";
    EXPECT_THAT(ActionsOn("icb/0"), testing::Contains("icb/0 SetTime " + std::to_string(behind[0].newTime)));
    EXPECT_THAT(ActionsOn("slot/2"), ElementsAre("slot/2 SetTime " + std::to_string(ahead[0].newTime)));
    EXPECT_THAT(ActionsOn("os/0"), ElementsAre()) << "the host is the reference";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, NoSection_DefaultsHoldAndTheWholeStoryIsTold) {
    StartWith("", Boards({{"os/0", "os", "0"}, {"slot/2", "power_supply", "0"}, {"icb/0", "icb", "0"}}));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, "I: Board icb_0 will be synchronized."));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(
        MessagesOf(Worker::clocks),
        ElementsAre("I: No settings found for Time Synchronization module",
                    "I: Configuration for time synchronization is not available. Using default values",
                    Settings("true", "3600", "2"), c_started, "I: Reference for time synchronization is board os_0.",
                    "I: Board slot_2 will be synchronized.", "I: Board icb_0 will be synchronized.", c_stopped));
}

TEST_F(BoardClockTest, ClockThatIsSet_IsLeftAloneUntilItDriftsAgain) {
    StartWith(c_everySecond, Boards({{"icb/0", "icb", "-10"}, {"os/0", "os", "0"}, {"slot/2", "power_supply", "0"}}));
    ASSERT_TRUE(AwaitSet("icb_0"));
    Do({"clock", "slot/2", "-20"});
    ASSERT_TRUE(AwaitSet("slot_2"));
    EXPECT_EQ(SetClocksOf("icb_0").size(), 1U);
    Do({"clock", "icb/0", "-30"});
    ASSERT_TRUE(AwaitSet("icb_0", 2));
    EXPECT_THAT(SetClocksOf("icb_0")[1].difference, SomewhatMoreThan(30));
    EXPECT_EQ(SetClocksOf("slot_2").size(), 1U);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, ClockInsideTheMargin_IsLeftAloneOnEitherSide) {
    StartWith("<timesync><delta>60</delta></timesync>\n", Boards({{"slot/1", "io", "30"},
                                                                  {"slot/2", "io", "-30"},
                                                                  {"slot/3", "io", "90"},
                                                                  {"slot/4", "io", "-90"},
                                                                  {"icb/0", "icb", "-99"},
                                                                  {"os/0", "os", "0"}}));
    ASSERT_TRUE(AwaitSet("icb_0"));  // the last of the pass
    EXPECT_EQ(SetClocksOf("slot_1").size(), 0U);
    EXPECT_EQ(SetClocksOf("slot_2").size(), 0U);
    EXPECT_EQ(SetClocksOf("slot_3").size(), 1U);
    EXPECT_EQ(SetClocksOf("slot_4").size(), 1U);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, NumbersThatDoNotConvert_KeepTheirDefaultsAndHexadecimalOnesAreTaken) {
    const std::string boards = Boards({{"slot/2", "io", "-40"}, {"icb/0", "icb", "-90"}, {"os/0", "os", "0"}});
    StartWith("<timesync><frequency>abc</frequency><delta>0x50</delta></timesync>\n", boards);
    ASSERT_TRUE(AwaitSet("icb_0"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(ReportOf(Worker::clocks), Settings("true", "3600", "80"));
    EXPECT_EQ(SetClocksOf("slot_2").size(), 0U) << "80 seconds are allowed";

    std::filesystem::remove_all(m_folder.Path("log"));
    StartWith("<timesync enabled='perhaps'><frequency>0x</frequency><delta>2.5</delta></timesync>\n", boards);
    ASSERT_TRUE(AwaitSet("icb_0"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(ReportOf(Worker::clocks), Settings("true", "3600", "2"));
    EXPECT_EQ(SetClocksOf("slot_2").size(), 1U) << "2 seconds are allowed";
}

TEST_F(BoardClockTest, EmptySectionOrTwo_CountAsNone) {
    for (const char* sections :
         {"<timesync/>\n", "<timesync><delta>7</delta></timesync>\n<timesync><delta>7</delta></timesync>\n"}) {
        SCOPED_TRACE(sections);
        std::filesystem::remove_all(m_folder.Path("log"));
        StartWith(sections, Boards({{"icb/0", "icb", "0"}, {"os/0", "os", "0"}}));
        ASSERT_TRUE(AwaitMessage(Worker::clocks, "I: Reference for time synchronization is board os_0."));
        EXPECT_EQ(Stop(), 0);
        EXPECT_THAT(MessagesOf(Worker::clocks),
                    ElementsAre("I: No settings found for Time Synchronization module",
                                "I: Configuration for time synchronization is not available. Using default values",
                                Settings("true", "3600", "2"), c_started, "I: Board icb_0 will be synchronized.",
                                "I: Reference for time synchronization is board os_0.", c_stopped));
    }
}

TEST_F(BoardClockTest, Disabled_ReportsItsSettingsAndTouchesNoBoard) {
    // The monitor's passes without pause show that there was time for one of the clocks' worker.
    Configure(
        "<timesync enabled='no'><frequency>0</frequency></timesync>\n<monitor><frequency>0</frequency><filter>"
        "<absolute enabled='false'/></filter></monitor>\n",
        "<chassis><board uri='icb/0' type='icb' clock='-50'><fans/><sensor id='1' value='1'/></board>"
        "<board uri='os/0' type='os'/></chassis>");
    StartTraced();
    AwaitReports();
    ASSERT_TRUE(Await([this] { return SensorLog("icb_0").size() > 30; }));
    const std::vector<std::string> journal = Actions();
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(MessagesOf(Worker::clocks), ElementsAre(Settings("false", "0", "2")));
    EXPECT_THAT(journal, testing::Not(testing::Contains(HasSubstr("SetTime"))));
}

TEST_F(BoardClockTest, NoBoardOfTheHost_TheLastBoardIsNeverSet) {
    StartWith(c_everySecond, Boards({{"slot/2", "io", "-10"}, {"icb/0", "icb", "-10"}, {"io/1", "io", "-10"}}));
    ASSERT_TRUE(AwaitSet("icb_0"));
    Do({"clock", "slot/2", "-20"});
    ASSERT_TRUE(AwaitSet("slot_2", 2)) << "a whole pass later";
    EXPECT_THAT(Beginning(),
                ElementsAre(c_started, "I: Board slot_2 will be synchronized.", "I: Board icb_0 will be synchronized.",
                            "I: Board io_1 will be synchronized."));
    EXPECT_EQ(SetClocksOf("io_1").size(), 0U);
    EXPECT_THAT(ActionsOn("io/1"), ElementsAre());
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, TwoBoardsOfTheHost_TheLastIsTheReference) {
    StartWith("<timesync><delta>3</delta></timesync>\n",
              Boards({{"os/0", "os", "-10"}, {"icb/0", "icb", "-10"}, {"os/1", "os", "-10"}}));
    ASSERT_TRUE(AwaitSet("icb_0"));
    EXPECT_THAT(Beginning(), ElementsAre(c_started, "I: Reference for time synchronization is board os_0.",
                                         "I: Board icb_0 will be synchronized.",
                                         "I: Reference for time synchronization is board os_1."));
    EXPECT_EQ(SetClocksOf("os_0").size(), 1U);
    EXPECT_EQ(SetClocksOf("os_1").size(), 0U);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, OnlyTheHost_WarnsAndEndsAndTheDaemonRunsOn) {
    StartWith("<timesync><delta>1</delta></timesync>\n", Boards({{"os/0", "os", "-10"}}));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, c_stopped));
    EXPECT_THAT(
        MessagesOf(Worker::clocks),
        ElementsAre(Settings("true", "3600", "1"), c_started, "I: Reference for time synchronization is board os_0.",
                    "W: Cannot find boards for time synchronization - stopping the synchronization process.",
                    c_stopped));
    EXPECT_THAT(Actions(), ElementsAre());
    EXPECT_EQ(Registry({"ls"}).status, 0);
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1) << "there are no fans to be left at a safe speed";
}

TEST_F(BoardClockTest, BoardThatRaises_EndsThePassAndTheNextComesAfterThePeriod) {
    StartWith(c_everySecond,
              Boards({{"slot/1", "io", "0"}, {"icb/0", "icb", "0"}, {"slot/2", "io", "0"}, {"os/0", "os", "0"}}));
    Do({"fail", "icb/0", "bus is stuck"});
    Do({"clock", "slot/1", "-10"});
    Do({"clock", "slot/2", "-10"});
    const std::string error = "E: Problem in time synchronization process - bus is stuck";
    ASSERT_TRUE(AwaitSet("slot_1"));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, error, 2));
    EXPECT_EQ(SetClocksOf("slot_1").size(), 1U) << "it comes before the one that raises";
    EXPECT_EQ(SetClocksOf("slot_2").size(), 0U) << "it comes after";
    std::vector<double> times;
    for (const std::string& line : Trace()) {
        if (line.find("LogError") != std::string::npos && line.find(error.substr(3)) != std::string::npos) {
            times.push_back(static_cast<double>(Seconds(line.substr(1, 19))) + std::stod(line.substr(20, 4)));
        }
    }
    ASSERT_GE(times.size(), 2U);
    EXPECT_GE(times[1] - times[0], 0.998) << "no retry before the period is over";
    Do({"heal", "icb/0"});
    EXPECT_TRUE(AwaitSet("slot_2"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, BoardMissingFromTheStart_IsToldInEveryPassAndSetOnceItIsThere) {
    StartHeld(c_everySecond,
              Boards({{"icb/0", "icb", "0"}, {"slot/1", "io", "-10"}, {"slot/2", "io", "-10"}, {"os/0", "os", "0"}}));
    Do({"missing", "slot/1"});
    Release();
    const std::string missing = "E: Problem accessing board: slot_1";
    ASSERT_TRUE(AwaitMessage(Worker::clocks, missing, 3)) << "once at the start, once a pass";
    EXPECT_EQ(SetClocksOf("slot_2").size(), 1U) << "the others are set all the same";
    Do({"heal", "slot/1"});
    ASSERT_TRUE(AwaitSet("slot_1"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Beginning(), ElementsAre(c_started, "I: Board icb_0 will be synchronized.", missing,
                                         "I: Board slot_2 will be synchronized.",
                                         "I: Reference for time synchronization is board os_0.", missing));
}

TEST_F(BoardClockTest, HostMissingFromTheStart_TheLastBoardIsTakenForTheReference) {
    StartHeld("", Boards({{"os/0", "os", "-10"}, {"slot/2", "io", "-10"}, {"icb/0", "icb", "-10"}}));
    Do({"missing", "os/0"});
    Release();
    ASSERT_TRUE(AwaitSet("slot_2"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Beginning(),
                ElementsAre("I: No settings found for Time Synchronization module",
                            "I: Configuration for time synchronization is not available. Using default values",
                            c_started, "E: Problem accessing board: os_0", "I: Board slot_2 will be synchronized.",
                            "I: Board icb_0 will be synchronized.", "E: Problem accessing board: os_0"));
    EXPECT_EQ(SetClocksOf("icb_0").size(), 0U);
}

TEST_F(BoardClockTest, NoDifferenceAllowed_EveryBoardIsSetInEveryPass) {
    StartWith("<timesync><frequency>1</frequency><delta>0</delta></timesync>\n",
              Boards({{"slot/2", "io", "0"}, {"os/0", "os", "0"}, {"icb/0", "icb", "0"}}));
    ASSERT_TRUE(AwaitSet("icb_0", 2));
    EXPECT_EQ(ReportOf(Worker::clocks), Settings("true", "1", "0"));
    EXPECT_GE(SetClocksOf("slot_2").size(), 2U);
    EXPECT_THAT(ActionsOn("os/0"), ElementsAre());
    for (const SetClock& set : SetClocksOf("slot_2")) {
        EXPECT_THAT(set.difference, SomewhatMoreThan(0));
        EXPECT_EQ(set.difference, set.newTime - set.oldTime);
    }
    EXPECT_EQ(Stop(), 0);
}

TEST_F(BoardClockTest, BoardMissingLater_CostsItselfOnly) {
    StartWith(c_everySecond, Boards({{"slot/2", "io", "0"}, {"os/0", "os", "0"}, {"icb/0", "icb", "0"}}));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, "I: Board icb_0 will be synchronized."));
    Do({"clock", "icb/0", "-10"});
    Do({"missing", "slot/2"});
    ASSERT_TRUE(AwaitMessage(Worker::clocks, "E: Problem accessing board: slot_2"));
    EXPECT_TRUE(AwaitSet("icb_0"));
    EXPECT_EQ(Stop(), 0);
}

}  // namespace
