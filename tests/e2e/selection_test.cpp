// Which sensors each worker watches, as its report says.

#include "traced_workers_fixture.h"

namespace {

using test::Worker;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class SelectionTest : public test::WorkersTest {
protected:
    /// The three workers that watch sensors with one list of entries each; the clocks are left alone.
    static std::string Lists(const std::string& monitor, const std::string& protection, const std::string& control) {
        return "<monitor><sensors>" + monitor + "</sensors></monitor>\n<damage_protection><sensors>" + protection +
               "</sensors></damage_protection>\n<temperature_control><sensors>" + control +
               "</sensors></temperature_control>\n<timesync enabled='false'/>\n";
    }

    /// Starts with one list for all three and stops.
    void RunWith(const std::string& list) { RunWithEach(list, list, list); }

    void RunWithEach(const std::string& monitor, const std::string& protection, const std::string& control) {
        std::filesystem::remove_all(m_folder.Path("log"));
        StartWith(Lists(monitor, protection, control), c_boards);
        EXPECT_EQ(Stop(), 0);
    }

    /// The boards and ids of a report in one line: "icb/0 3 12, os/0 7".
    std::string WatchedBy(Worker worker) const {
        constexpr std::size_t c_boardColumn = 37;
        constexpr std::size_t c_idColumn = 39;
        std::istringstream lines(ReportOf(worker));
        std::string watched;
        for (std::string line; std::getline(lines, line) && line.find("Temperature to fans") == std::string::npos;) {
            const std::size_t column = line.find_first_not_of(' ');
            if (column == c_boardColumn) {
                watched += watched.empty() ? "" : ",";
            }
            if (column == c_boardColumn || column == c_idColumn) {
                std::istringstream words(line.substr(0, line.find('(')));
                for (std::string word; words >> word;) {
                    watched += (watched.empty() ? "" : " ") + word;
                }
            }
        }
        return watched;
    }

    /// What was logged as warning, error or worse by any thread.
    std::vector<std::string> Problems() const {
        std::vector<std::string> problems = Messages();
        problems.erase(std::remove_if(problems.begin(), problems.end(),
                                      [](const std::string& message) {
                                          return message.find("INFO ") == 0 ||
                                                 message.find("did not specify valid temperature") != std::string::npos;
                                      }),
                       problems.end());
        return problems;
    }

    // io/1 has no temperature sensor; slot/2's ids are not in their order.
    static constexpr const char* c_boards = R"(<chassis>
  <board uri="icb/0" type="icb" name="ICB">
    <fans/>
    <sensor id="3" name="V12" type="voltage" value="12"/>
    <sensor id="12" name="Intake" type="temperature" value="48"/>
  </board>
  <board uri="io/1" type="io" name="io1">
    <sensor id="16" name="V5" type="voltage" value="5"/>
  </board>
  <board uri="os/0" type="os" name="host">
    <sensor id="7" name="CPU" type="temperature" value="45"/>
  </board>
  <board uri="slot/2" type="power_supply" name="slot2">
    <sensor id="200" name="Outlet" type="temperature" value="40"/>
    <sensor id="27" name="Core" type="temperature" value="40"/>
    <sensor id="-1" name="Fuse" type="current" value="1"/>
    <sensor id="48" name="Fan" type="fan" value="3000"/>
  </board>
</chassis>
)";
    static constexpr const char* c_all = "icb/0 3 12, io/1 16, os/0 7, slot/2 -1 27 48 200";
    static constexpr const char* c_temperatures = "icb/0 12, os/0 7, slot/2 27 200";
};

TEST_F(SelectionTest, NoList_AllSensorsAreMonitoredAndTheTemperaturesGuardedInTheOrderOfTheirIds) {
    std::filesystem::remove_all(m_folder.Path("log"));
    StartWith("<monitor enabled='true'/>\n<damage_protection enabled='true'/>\n<temperature_control enabled='true'/>\n",
              c_boards);
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(WatchedBy(Worker::monitor), c_all);
    EXPECT_EQ(WatchedBy(Worker::protection), c_temperatures);
    EXPECT_EQ(WatchedBy(Worker::control), c_temperatures);
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, Reports_HaveTheirForm) {
    RunWithEach("<exclude board='slot/2'>-1,48</exclude>", "<exclude board='slot/2'>200</exclude>", "");
    const std::string key = c_keyIndent;
    const std::string board = c_boardIndent;
    EXPECT_EQ(ReportOf(Worker::monitor), "I: Monitor settings:\n" + key + "enabled   = true\n" + key +
                                             "frequency = 60 seconds\n" + key + "Monitoring following sensors\n" +
                                             board + "icb/0  (icb)\n" + board + "  3 12\n" + board + "io/1  (io)\n" +
                                             board + "  16\n" + board + "os/0  (os)\n" + board + "  7\n" + board +
                                             "slot/2  (power_supply)\n" + board + "  27 200\n" + key +
                                             "absolute filter = true\n" + key + "relative filter = false (value = 0)");
    EXPECT_EQ(ReportOf(Worker::protection), "I: Damage Protection settings:\n" + key + "enabled   = true\n" + key +
                                                "frequency = 60 seconds\n" + key + "Controlling following sensors\n" +
                                                board + "icb/0  (icb)\n" + board + "  12\n" + board + "os/0  (os)\n" +
                                                board + "  7\n" + board + "slot/2  (power_supply)\n" + board + "  27");
    EXPECT_EQ(ReportOf(Worker::control), "I: Temperature Control settings:\n" + key + "enabled   = true\n" + key +
                                             "frequency = 60 seconds\n" + key + "Controlling following sensors\n" +
                                             board + "icb/0\n" + board + "  12  (Intake)\n" + board + "os/0\n" + board +
                                             "  7  (CPU)\n" + board + "slot/2\n" + board + "  27  (Core)\n" + board +
                                             "  200  (Outlet)\n" + key + "Temperature to fans conversion table\n" +
                                             board + "Fans are set to maximum speed");
}

TEST_F(SelectionTest, ExcludeAll_LeavesNothingAndTheWorkersEnd) {
    StartWith(Lists("<exclude>all</exclude>", "<exclude>all</exclude>", "<exclude>all</exclude>"), c_boards);
    const std::string key = c_keyIndent;
    const std::string none = std::string(c_boardIndent) + "No sensors found!\n";
    const std::string head = key + "enabled   = true\n" + key + "frequency = 60 seconds\n";
    ASSERT_TRUE(AwaitMessage(Worker::monitor, "I: *Monitor process stopped"));
    ASSERT_TRUE(AwaitMessage(Worker::protection, "I: *Damage Protection process stopped"));
    ASSERT_TRUE(AwaitMessage(Worker::control, "I: *Temperature Control process stopped"));
    EXPECT_THAT(Actions(), IsEmpty());
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(MessagesOf(Worker::monitor),
                ElementsAre("I: *Monitor process started.",
                            "I: Monitor settings:\n" + head + none + key + "absolute filter = true\n" + key +
                                "relative filter = false (value = 0)",
                            "I: *Monitor process stopped"));
    EXPECT_THAT(MessagesOf(Worker::protection),
                ElementsAre("I: *Damage Protection process started.",
                            "I: Damage Protection settings:\n" + head + key + "Controlling following sensors\n" +
                                none.substr(0, none.size() - 1),
                            "I: *Damage Protection process stopped"));
    EXPECT_THAT(
        MessagesOf(Worker::control),
        ElementsAre("I: *Temperature Control process started.",
                    "I: Temperature Control settings:\n" + head + key + "Controlling following sensors\n" + none + key +
                        "Temperature to fans conversion table\n" + c_boardIndent + "Fans are set to maximum speed",
                    "I: *Temperature Control process stopped"));
}

TEST_F(SelectionTest, LaterEntry_OverridesTheEarlierOnes) {
    RunWithEach("<exclude>all</exclude><include board='slot/2'>all</include><exclude>48,-1</exclude>",
                "<include>all</include><exclude>0x30</exclude>",
                "<exclude>all</exclude><include>0xC,7</include><exclude board='os/0'>all</exclude>");
    EXPECT_EQ(WatchedBy(Worker::monitor), "slot/2 27 200");
    EXPECT_EQ(WatchedBy(Worker::protection), "icb/0 3 12, io/1 16, os/0 7, slot/2 -1 27 200");
    EXPECT_EQ(WatchedBy(Worker::control), "icb/0 12");
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, IdThatTheBoardLacks_IsPassedOverSilently) {
    RunWith("<exclude>all</exclude><include board='slot/2'>0x1A,27</include><exclude>99</exclude>");
    for (const Worker worker : {Worker::monitor, Worker::protection, Worker::control}) {
        EXPECT_EQ(WatchedBy(worker), "slot/2 27");
    }
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, AnySensorCanBeProtectedFromButOnlyTemperaturesControlTheFans) {
    RunWith("<include board='icb/0'>3</include><include board='io/1'>all</include>");
    EXPECT_EQ(WatchedBy(Worker::monitor), c_all);
    EXPECT_EQ(WatchedBy(Worker::protection), "icb/0 3 12, io/1 16, os/0 7, slot/2 27 200");
    EXPECT_EQ(WatchedBy(Worker::control), c_temperatures);
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, BoardType_ChoosesTheBoardsAndTheBoardIsNotLookedAt) {
    RunWithEach("<exclude boardType='icb' board='slot/2'>all</exclude>", "<exclude boardType='44'>12</exclude>",
                "<exclude boardType='os'>7</exclude><exclude boardType='fan'>all</exclude>");
    EXPECT_EQ(WatchedBy(Worker::monitor), "io/1 16, os/0 7, slot/2 -1 27 48 200");
    EXPECT_EQ(WatchedBy(Worker::protection), "os/0 7, slot/2 27 200");
    EXPECT_EQ(WatchedBy(Worker::control), "icb/0 12, slot/2 27 200");
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, UnknownBoardType_CostsItsEntryOnlyAndIsTold) {
    const std::string error = "E: Unknown board type used in the include/exclude list. ";
    RunWithEach("<exclude boardType='ICB'>all</exclude><exclude board='os/0'>all</exclude>",
                "<exclude boardType='9999'>all</exclude><exclude board='os/0'>all</exclude>",
                "<exclude boardType=''>all</exclude><exclude board='os/0'>all</exclude>");
    EXPECT_EQ(MessagesOf(Worker::monitor).at(1), error + "Invalid integer value");
    EXPECT_EQ(WatchedBy(Worker::monitor), "icb/0 3 12, io/1 16, slot/2 -1 27 48 200");
    EXPECT_EQ(MessagesOf(Worker::protection).at(1), error + "Invalid enum value");
    EXPECT_EQ(WatchedBy(Worker::protection), "icb/0 12, slot/2 27 200");
    EXPECT_EQ(MessagesOf(Worker::control).at(1), error + "Invalid integer value");
    EXPECT_EQ(WatchedBy(Worker::control), "icb/0 12, slot/2 27 200");
}

TEST_F(SelectionTest, BoardThatMatchesNone_ChangesNothingAndSaysNothing) {
    RunWithEach("<exclude board='ICB/0'>all</exclude>", "<exclude board='icb/00'>12</exclude>",
                "<exclude board=' icb/0'>all</exclude><include board='icb_0'>3</include>");
    EXPECT_EQ(WatchedBy(Worker::monitor), c_all);
    EXPECT_EQ(WatchedBy(Worker::protection), c_temperatures);
    EXPECT_EQ(WatchedBy(Worker::control), c_temperatures);
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, OtherElementsAndEmptyTokens_AreSkipped) {
    RunWithEach("<sensor>all</sensor><Exclude>all</Exclude><exclude>16,,48,</exclude>", "<exclude></exclude>",
                "<exclude>12,7,</exclude>");
    EXPECT_EQ(WatchedBy(Worker::monitor), "icb/0 3 12, os/0 7, slot/2 -1 27 200");
    EXPECT_EQ(WatchedBy(Worker::protection), c_temperatures);
    EXPECT_EQ(WatchedBy(Worker::control), "slot/2 27 200");
    EXPECT_THAT(Problems(), IsEmpty());
}

TEST_F(SelectionTest, TokenThatIsNoId_EndsTheWorkerWithItsError) {
    const std::vector<std::string> lists{"x", "0x", "0x1G", "3, 12", "12abc", "ALL"};
    const std::vector<std::string> errors{
        "Bad cast from x to int",   "Bad cast from 0x to int",    "Bad hex cast from 0x1G to unsigned int",
        "Bad cast from  12 to int", "Bad cast from 12abc to int", "Bad cast from ALL to int"};
    for (std::size_t first = 0; first < lists.size(); first += 3) {
        std::filesystem::remove_all(m_folder.Path("log"));
        const auto entry = [&](std::size_t index) { return "<include>" + lists[first + index] + "</include>"; };
        Configure(Lists(entry(0), entry(1), entry(2)), c_boards);
        StartTraced();
        const std::vector<std::pair<Worker, std::string>> workers{{Worker::monitor, "Monitor"},
                                                                  {Worker::protection, "Damage Protection"},
                                                                  {Worker::control, "Temperature Control"}};
        for (std::size_t index = 0; index < workers.size(); ++index) {
            const auto& [worker, name] = workers[index];
            ASSERT_TRUE(AwaitMessage(worker, "I: *" + name + " process stopped"));
            EXPECT_THAT(MessagesOf(worker),
                        ElementsAre("I: *" + name + " process started.",
                                    "E: Problem in " + (worker == Worker::monitor ? "monitor" : name) + " process - " +
                                        errors[first + index],
                                    "I: *" + name + " process stopped"));
        }
        EXPECT_EQ(Stop(), 0);
    }
}

TEST_F(SelectionTest, BoardMissingFromTheStart_IsToldForEachListAndLeftOut) {
    for (const bool hasSection : {true, false}) {
        SCOPED_TRACE(hasSection ? "with sections" : "without sections");
        std::filesystem::remove_all(m_folder.Path("log"));
        StartHeld(hasSection ? Lists("", "", "") : "", c_boards);
        Do({"missing", "slot/2"});
        Release();
        AwaitReports();
        EXPECT_EQ(Stop(), 0);
        const std::string error = "E: Problem accessing board: slot_2";
        EXPECT_EQ(CountOf(Worker::monitor, error), 1);
        EXPECT_EQ(CountOf(Worker::protection, error), hasSection ? 2 : 1);
        EXPECT_EQ(CountOf(Worker::control, error), 1);
        EXPECT_EQ(WatchedBy(Worker::monitor), "icb/0 3 12, io/1 16, os/0 7");
        EXPECT_EQ(WatchedBy(Worker::protection), "icb/0 12, os/0 7");
        EXPECT_EQ(WatchedBy(Worker::control), "icb/0 12, os/0 7");
    }
}

TEST_F(SelectionTest, BoardThatRaisesFromTheStart_IsToldForEachListAndTheOthersAreKept) {
    StartHeld(Lists("", "", ""), c_boards);
    Do({"fail", "os/0", "bus is stuck"});
    Release();
    AwaitReports();
    EXPECT_EQ(Stop(), 0);
    const std::string error = "E: Problem accessing board os_0. Exception: bus is stuck";
    EXPECT_EQ(CountOf(Worker::monitor, error), 1);
    EXPECT_EQ(CountOf(Worker::protection, error), 2);
    EXPECT_EQ(CountOf(Worker::control, error), 1);
    EXPECT_EQ(WatchedBy(Worker::monitor), "icb/0 3 12, io/1 16, slot/2 -1 27 48 200");
    EXPECT_EQ(WatchedBy(Worker::protection), "icb/0 12, slot/2 27 200");
    EXPECT_EQ(WatchedBy(Worker::control), "icb/0 12, slot/2 27 200");
}

TEST_F(SelectionTest, SensorMissingFromTheStart_IsLeftOutWhereItsTypeIsAsked) {
    StartHeld("<monitor><frequency>60</frequency><filter><absolute enabled='false'/></filter></monitor>\n", c_boards);
    Do({"missing", "slot/2", "27"});
    Release();
    AwaitReports();
    const std::string error = "E: Problem accessing sensor id: 27 on board slot_2";
    ASSERT_TRUE(AwaitMessage(Worker::monitor, error)) << "of its first pass, not of the selection";
    ASSERT_TRUE(Await([this] { return SensorLog("slot_2").size() == 10; }));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(WatchedBy(Worker::monitor), c_all);
    EXPECT_EQ(SensorLog("slot_2")[8], "[TIME];[-1]-Fuse;[27];[48]-Fan;[200]-Outlet");
    EXPECT_THAT(SensorLog("slot_2")[9], testing::EndsWith("] ;1;N/A;3000;40"));
    EXPECT_EQ(CountOf(Worker::protection, error), 1);
    EXPECT_EQ(CountOf(Worker::control, error), 1);
    EXPECT_EQ(WatchedBy(Worker::protection), "icb/0 12, os/0 7, slot/2 200");
    EXPECT_EQ(WatchedBy(Worker::control), "icb/0 12, os/0 7, slot/2 200");
}

}  // namespace
