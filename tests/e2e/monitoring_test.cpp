// The daemon at work on a chassis that changes.

#include <filesystem>

#include "traced_workers_fixture.h"

namespace {

using test::DaemonTest;
using test::Worker;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

TEST_F(DaemonTest, ThresholdChangedOnTheChassis_CountsFromTheNextPassOn) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    EXPECT_EQ(Chassis({"set", "slot/2", "5", "50"}).status, 0);
    EXPECT_EQ(Chassis({"limit", "slot/2", "5", "lnc", "45"}).status, 0);
    EXPECT_TRUE(Await([this] {
        return test::ReadFile(m_folder.Path("log/sensors/slot_2.log")).find("] ;50\n") != std::string::npos;
    }));
    EXPECT_EQ(Chassis({"auto", "slot/2", "5"}).status, 0);
    EXPECT_TRUE(AwaitLog("WARNING  Sensor value is below LNC (id = slot_2[5]:Core; value = 40 C; LNC = 45)"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, SensorLogs_GrowByALineABoardAndAPass) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    const auto lines = [this](const char* label) {
        return test::ReadLines(m_folder.Path(std::string("log/sensors/") + label + ".log"));
    };
    ASSERT_TRUE(Await([&] { return lines("slot_2").size() >= 11; }));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(lines("icb_0")[8], "[TIME];[3]-V12;[12]-Intake");
    EXPECT_EQ(lines("icb_0")[9].substr(25), " ;12;48");
    EXPECT_EQ(lines("icb_0")[4], "* Process name  : zelkor-platformd");
    EXPECT_EQ(lines("icb_0")[2], "* Version       : 2.8.167.20437");
    EXPECT_EQ(lines("os_0")[8], "[TIME];[7]-CPU");
    EXPECT_EQ(lines("slot_2")[8], "[TIME];[5]-Core");
}

TEST_F(DaemonTest, SensorLogFolderReplacedByAFile_CostsWarningsOnly) {
    Configure(c_recordEverySecond);
    std::filesystem::create_directory(m_folder.Path("log"));
    test::WriteFile(m_folder.Path("log/sensors"), "");
    StartAndAwait();
    const std::string warning =
        "WARNING  Cannot open log file for sensor: " + m_folder.Path("log/sensors/icb_0.log") + "\n";
    ASSERT_TRUE(AwaitLog(warning));
    std::filesystem::remove(m_folder.Path("log/sensors"));
    EXPECT_TRUE(Await([&] { return test::Exists(m_folder.Path("log/sensors/icb_0.log")); }));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, SensorLists_ChooseWhatIsWatched) {
    Configure(
        "<monitor><frequency>60</frequency><sensors><exclude>all</exclude><include board='icb/0'>0xC,7</include>"
        "<include boardType='os'>all</include></sensors></monitor>");
    StartAndAwait("relative filter");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), HasSubstr("Monitoring following sensors\n" + std::string(37, ' ') + "icb/0  (icb)\n" +
                                 std::string(38, ' ') + " 12\n" + std::string(37, ' ') + "os/0  (os)\n" +
                                 std::string(38, ' ') + " 7\n" + std::string(35, ' ') + "absolute filter"));
}

TEST_F(DaemonTest, SlowBoard_DelaysOnlyWhoAsksIt) {
    Configure("<monitor><frequency>1</frequency></monitor>");
    StartAndAwait();
    EXPECT_EQ(Chassis({"slow", "slot/2", "60000"}).status, 0);
    EXPECT_EQ(Chassis({"list"}).status, 0);  // control is not held up by it
    EXPECT_EQ(Chassis({"heal", "slot/2"}).status, 0);
    EXPECT_EQ(Stop(), 0);  // nor is the stop, once it is healed
}

class MonitoringTest : public test::WorkersTest {
protected:
    /// The monitor at work with @p settings, a second to the pass; the other workers would only be in the way.
    static std::string MonitorOnly(const std::string& settings) {
        return "<monitor><frequency>1</frequency>" + settings +
               "</monitor>\n<damage_protection enabled='false'/>\n<temperature_control enabled='false'/>\n"
               "<timesync enabled='false'/>\n";
    }

    /// What the monitor has logged of one sensor.
    std::vector<std::string> MessagesOfSensor(const std::string& id) const {
        std::vector<std::string> messages = MessagesOf(Worker::monitor);
        messages.erase(std::remove_if(messages.begin(), messages.end(),
                                      [&](const std::string& message) {
                                          return message.find("[" + id + "]") == std::string::npos;
                                      }),
                       messages.end());
        return messages;
    }

    bool AwaitMonitor(const std::string& message) const { return AwaitMessage(Worker::monitor, message); }

    bool AwaitLines(const std::string& label, std::size_t count) const {
        return Await([&] { return SensorLog(label).size() >= count; });
    }

    static constexpr const char* c_filtersOff = "<filter><absolute enabled='false'/></filter>";
    static constexpr std::size_t c_headerLines = 9;
};

TEST_F(MonitoringTest, InBandReadings_MakeNoLogAndTheFirstOneBackIsRecorded) {
    StartWith(MonitorOnly(""));
    Do({"set", "slot/2", "5", "85"});
    ASSERT_TRUE(AwaitLines("slot_2", c_headerLines + 2)) << "every reading out of its band is recorded";
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors/icb_0.log")));
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors/os_0.log")));
    Do({"auto", "slot/2", "5"});
    Do({"set", "os/0", "7", "-1"});
    ASSERT_TRUE(AwaitLines("os_0", c_headerLines + 2));
    EXPECT_EQ(Stop(), 0);
    std::vector<std::string> records;
    for (const std::string& line : SensorLog("slot_2")) {
        if (line.find("] ;") != std::string::npos) {
            records.push_back(line.substr(line.find("] ") + 2));
        }
    }
    ASSERT_GE(records.size(), 3U);
    EXPECT_EQ(std::count(records.begin(), records.end(), ";40"), 1);
    EXPECT_EQ(records.back(), ";40");
}

TEST_F(MonitoringTest, Crossings_AreToldOnceAndTheMostSevereOnly) {
    const std::string limits = "type='temperature' units='C' lnr='-10' lc='-5' lnc='0' unc='75' uc='85' unr='95'/>";
    StartWith(MonitorOnly(""),
              "<chassis><board uri='icb/0' type='icb'><fans/>"
              "<sensor id='1' name='High' value='80' " +
                  limits + "<sensor id='2' name='Jump' value='48' " + limits + "<sensor id='3' name='Low' value='5' " +
                  limits + "<sensor id='4' name='Gone' value='48' " + limits +
                  "<sensor id='5' name='Half' value='80' units='C' lnc='0'/></board></chassis>");
    ASSERT_TRUE(AwaitMonitor("W: Sensor value is above HNC (id = icb_0[1]:High; value = 80 C; HNC = 75)"));
    Do({"invalid", "icb/0", "4"});
    Do({"set", "icb/0", "2", "100"});
    Do({"set", "icb/0", "3", "-1"});
    Do({"set", "icb/0", "5", "-1"});
    ASSERT_TRUE(AwaitMonitor("W: Sensor value is below LNC (id = icb_0[5]:Half; value = -1 C; LNC = 0)"));
    Do({"set", "icb/0", "2", "88"});
    Do({"set", "icb/0", "3", "-6"});
    Do({"set", "icb/0", "4", "80"});
    Do({"set", "icb/0", "5", "1"});
    ASSERT_TRUE(AwaitMonitor("I: Sensor value is is back to normal. (id = icb_0[5] - Half;value = 1 C)"));
    Do({"set", "icb/0", "2", "75"});
    Do({"set", "icb/0", "3", "-11"});
    ASSERT_TRUE(AwaitMonitor("W: Sensor value is below LNR (id = icb_0[3]:Low; value = -11 C; LNR = -10)"));
    Do({"set", "icb/0", "3", "0"});
    ASSERT_TRUE(AwaitMonitor("I: Sensor value is is back to normal. (id = icb_0[3] - Low;value = 0 C)"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(MessagesOfSensor("1"),
                ElementsAre("W: Sensor value is above HNC (id = icb_0[1]:High; value = 80 C; HNC = 75)"));
    EXPECT_THAT(MessagesOfSensor("2"),
                ElementsAre("W: Sensor value is above HNR (id = icb_0[2]:Jump; value = 100 C; HNR = 95)",
                            "I: Sensor value is is back to normal. (id = icb_0[2] - Jump;value = 75 C)"));
    EXPECT_THAT(MessagesOfSensor("3"),
                ElementsAre("W: Sensor value is below LNC (id = icb_0[3]:Low; value = -1 C; LNC = 0)",
                            "W: Sensor value is below LC (id = icb_0[3]:Low; value = -6 C; LC = -5)",
                            "W: Sensor value is below LNR (id = icb_0[3]:Low; value = -11 C; LNR = -10)",
                            "I: Sensor value is is back to normal. (id = icb_0[3] - Low;value = 0 C)"));
    EXPECT_THAT(MessagesOfSensor("4"),
                ElementsAre("W: Sensor value is above HNC (id = icb_0[4]:Gone; value = 80 C; HNC = 75)"));
    EXPECT_THAT(MessagesOfSensor("5"),
                ElementsAre("W: Sensor value is below LNC (id = icb_0[5]:Half; value = -1 C; LNC = 0)",
                            "I: Sensor value is is back to normal. (id = icb_0[5] - Half;value = 1 C)"));
}

TEST_F(MonitoringTest, Notifications_StandOnTheMostSevereThresholdEveryPassOrTellTheChange) {
    StartWith(MonitorOnly(""));
    // Sensors beyond their limits are told of in every pass, so that the tool may subscribe at its own pace.
    Do({"set", "icb/0", "12", "100"});
    Do({"set", "os/0", "7", "96"});
    const test::Process watch(RegistryCommand({"watch"}), m_folder.Path("watch"), m_folder.Path("watch-err"));
    const auto count = [this](const std::string& event) {
        const std::vector<std::string> lines = test::ReadLines(m_folder.Path("watch"));
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return line.size() > event.size() && line.compare(line.size() - event.size(), event.size(), event) == 0;
        });
    };
    const auto awaitEvent = [&](const std::string& event, int times = 1) {
        return Await([&] { return count(" boards/" + event) >= times; });
    };
    ASSERT_TRUE(awaitEvent("ICB/sensors/ID_12/hnr threshold 100", 2)) << test::ReadFile(m_folder.Path("watch"));
    EXPECT_GE(count(" boards/host/sensors/ID_7/hc threshold 96"), 1);
    Do({"set", "icb/0", "12", "50"});
    Do({"set", "os/0", "7", "86"});
    ASSERT_TRUE(awaitEvent("ICB/sensors/ID_12/value value 50"));
    ASSERT_TRUE(awaitEvent("host/sensors/ID_7/hnc threshold 86"));
    Do({"set", "icb/0", "12", "-11"});
    Do({"set", "os/0", "7", "-1"});
    ASSERT_TRUE(awaitEvent("ICB/sensors/ID_12/lnc threshold -11", 2)) << "there is none on lnr";
    ASSERT_TRUE(awaitEvent("host/sensors/ID_7/lnc threshold -1"));
    Do({"set", "icb/0", "12", "-6"});
    ASSERT_TRUE(awaitEvent("ICB/sensors/ID_12/lc threshold -6"));
    EXPECT_EQ(count(" boards/ICB/sensors/ID_12/value value 50"), 1) << "a reading that stays is no change";
    EXPECT_THAT(test::ReadFile(m_folder.Path("watch")), testing::Not(HasSubstr("/lnr ")));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(MonitoringTest, RelativeFilter_RecordsWhatChangesByMoreThanItsShareOfTheNominal) {
    StartWith(
        MonitorOnly("<filter><absolute enabled='false'/><relative enabled='true'>5</relative></filter>"),
        "<chassis><board uri='icb/0' type='icb'><fans/><sensor id='3' name='V12' value='12' nominal='12'/></board>"
        "<board uri='io/1' type='io'><sensor id='1' name='Negative' value='-12' nominal='-12'/></board>"
        "<board uri='io/2' type='io'><sensor id='1' name='Tick' value='10' nominal='10' unc='5'/></board>"
        "</chassis>");
    ASSERT_TRUE(AwaitMonitor("W: Sensor value is above HNC (id = io_2[1]:Tick; value = 10 ; HNC = 5)"))
        << "the first pass, which has nothing to compare with";
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors")));
    Do({"set", "icb/0", "3", "12.6"});
    Do({"set", "io/1", "1", "5"});
    Do({"set", "io/2", "1", "12"});
    ASSERT_TRUE(AwaitLines("io_2", c_headerLines + 1));
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors/icb_0.log"))) << "5 % is not more than 5 %";
    Do({"set", "icb/0", "3", "13.3"});
    ASSERT_TRUE(AwaitLines("icb_0", c_headerLines + 1));
    EXPECT_THAT(SensorLog("icb_0").back(), testing::EndsWith("] ;13.3"));
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors/io_1.log"))) << "of a negative nominal there is no share";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(MonitoringTest, SensorMissingLater_IsNotAvailableUnderTheSameHeadingAndABoardMissing_GetsNoLine) {
    StartWith(MonitorOnly(c_filtersOff));
    ASSERT_TRUE(AwaitLines("slot_2", c_headerLines + 1));
    Do({"missing", "icb/0", "12"});
    Do({"missing", "slot/2"});
    const std::string missing = "E: Problem accessing board: slot_2";
    ASSERT_TRUE(AwaitMonitor(missing));
    const std::size_t lines = SensorLog("slot_2").size();
    ASSERT_TRUE(AwaitMessage(Worker::monitor, missing, 2)) << "in every pass";
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(SensorLog("slot_2").size(), lines);
    const std::vector<std::string> log = SensorLog("icb_0");
    EXPECT_THAT(log.back(), testing::EndsWith("] ;12;N/A"));
    EXPECT_EQ(std::count_if(log.begin(), log.end(),
                            [](const std::string& line) { return line.find("[TIME]") != std::string::npos; }),
              1);
}

TEST_F(MonitoringTest, LogDeletedBetweenPasses_IsMadeAnewWithoutHeader) {
    StartWith(MonitorOnly(c_filtersOff));
    ASSERT_TRUE(AwaitLines("os_0", c_headerLines + 1));
    ASSERT_TRUE(std::filesystem::remove(m_folder.Path("log/sensors/os_0.log")));
    ASSERT_TRUE(AwaitLines("os_0", 1));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(SensorLog("os_0").front(), testing::MatchesRegex("\\[[0-9/]+ [0-9:.]+\\] ;45"));
}

TEST_F(MonitoringTest, LogThatCannotBeOpened_WarnsTwiceOfTheFirstRecordAndOnceOfTheNext) {
    Configure(MonitorOnly(c_filtersOff));
    std::filesystem::create_directory(m_folder.Path("log"));
    test::WriteFile(m_folder.Path("log/sensors"), "");
    StartTraced();
    const auto warning = [this](const std::string& label) {
        return "W: Cannot open log file for sensor: " + m_folder.Path("log/sensors/" + label + ".log");
    };
    ASSERT_TRUE(AwaitMessage(Worker::monitor, warning("slot_2"), 3));
    std::vector<std::string> messages = MessagesOf(Worker::monitor);
    messages.erase(messages.begin(), messages.begin() + 2);  // start and settings
    messages.resize(9);
    EXPECT_THAT(messages,
                ElementsAre(warning("icb_0"), warning("icb_0"), warning("os_0"), warning("os_0"), warning("slot_2"),
                            warning("slot_2"), warning("icb_0"), warning("os_0"), warning("slot_2")));
    // Monitoring goes on.
    Do({"set", "slot/2", "5", "85"});
    EXPECT_TRUE(AwaitMonitor("W: Sensor value is above HNC (id = slot_2[5]:Core; value = 85 C; HNC = 80)"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(MonitoringTest, SecondRun_AppendsItsOwnHeaderToTheLog) {
    for (const std::size_t lines : {c_headerLines + 1, 2 * (c_headerLines + 1)}) {
        std::filesystem::remove_all(m_folder.Path("log/zelkor-platformd.trace"));
        Configure("<monitor>" + std::string(c_filtersOff) + "</monitor>");
        Start({"--trace-level", "3"});
        ASSERT_TRUE(AwaitLines("slot_2", lines));
        EXPECT_EQ(Stop(), 0);
        EXPECT_EQ(SensorLog("slot_2").size(), lines);
    }
    const std::vector<std::string> log = SensorLog("slot_2");
    for (const std::size_t first : {std::size_t{0}, c_headerLines + 1}) {
        EXPECT_EQ(log[first], std::string(79, '-'));
        EXPECT_EQ(log[first + 1], "* ***** Sensor logging started *****");
        EXPECT_THAT(log[first + 3], testing::MatchesRegex("\\* Start time    : [0-9/]{10} [0-9:.]{12}"));
        EXPECT_EQ(log[first + 5], "* Board id      : slot_2");
        EXPECT_EQ(log[first + 6], std::string(79, '-'));
        EXPECT_EQ(log[first + 7], "");
        EXPECT_EQ(log[first + 8], "[TIME];[5]-Core");
        EXPECT_THAT(log[first + 9], testing::MatchesRegex("\\[[0-9/]{10} [0-9:.]{12}\\] ;40"));
    }
}

TEST_F(MonitoringTest, ReadingThatIsInvalid_IsWrittenAndOneThatRaises_HasNoColumn) {
    StartHeld("<monitor>" + std::string(c_filtersOff) + "</monitor>\n");
    Do({"invalid", "icb/0", "12"});
    Do({"fail", "icb/0", "3", "no answer"});
    Do({"set", "os/0", "7", "12.3456789"});
    Release();
    ASSERT_TRUE(AwaitLines("os_0", c_headerLines + 1));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(SensorLog("icb_0").at(8), "[TIME];[12]-Intake");
    EXPECT_THAT(SensorLog("icb_0").at(9), testing::EndsWith("] ;nan"));
    EXPECT_THAT(SensorLog("os_0").at(9), testing::EndsWith("] ;12.3457"));
    EXPECT_EQ(CountOf(Worker::monitor, "E: Problem accessing sensor id: 3 on board icb_0. Exception: no answer"), 1);
}

}  // namespace
