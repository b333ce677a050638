// All four workers together, on fixed readings and in the closed loop with a chassis that heats.

#include "chassis_fixture.h"

namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

/// What an orderly stop takes is measured elsewhere; this is far above it, and below what waiting for the end of a
/// default period would take.
constexpr std::chrono::seconds c_stopLimit(50);

class WholeTest : public test::ChassisTest {
protected:
    static constexpr const char* c_fans =
        "<fans><set lower='40' upper='50' rpm='3000'/><set lower='45' upper='60' rpm='4000'/>"
        "<set lower='55' upper='70' rpm='6500'/></fans>";

    static std::string AllSections() {
        return std::string(
                   "<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter></monitor>\n"
                   "<damage_protection><frequency>1</frequency></damage_protection>\n"
                   "<temperature_control><frequency>1</frequency>") +
               c_fans + "</temperature_control>\n<timesync><frequency>1</frequency></timesync>\n";
    }

    void Run(const std::string& sections, const std::string& chassis = c_threeBoards) {
        Configure(sections, chassis);
        Start();
        for (const char* message : {"Monitor settings:", "Damage Protection settings:", "Temperature Control settings:",
                                    "Fans changed", "Time Synchronization settings:"}) {
            ASSERT_TRUE(AwaitLog(message)) << test::ReadFile(m_folder.Path("err"));
        }
    }

    /// Those of the messages that hold one of @p marks.
    std::vector<std::string> MessagesWith(const std::vector<std::string>& marks) const {
        std::vector<std::string> found;
        for (const std::string& message : Messages()) {
            if (std::any_of(marks.begin(), marks.end(),
                            [&](const std::string& mark) { return message.find(mark) != std::string::npos; })) {
                found.push_back(message);
            }
        }
        return found;
    }

    std::vector<std::string> SensorLog(const std::string& label) const {
        return test::ReadLines(m_folder.Path("log/sensors/" + label + ".log"));
    }

    /// Waits for so many more passes of the monitor.
    bool AwaitRecords(std::size_t count) const {
        return Await([this, enough = SensorLog("os_0").size() + count] { return SensorLog("os_0").size() >= enough; });
    }

    /// Stops the daemon, which must not take long. Before that no worker may have ended, besides @p ended.
    void StopInTime(const std::vector<std::string>& ended = {}) {
        const auto stopped = MessagesWith({"process stopped"});
        EXPECT_EQ(stopped, ended);
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_EQ(Stop(), 0);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, c_stopLimit);
        std::vector<std::string> all;
        for (const char* worker : {"Monitor", "Damage Protection", "Temperature Control", "Time synchronization"}) {
            all.push_back(std::string("INFO     *") + worker + " process stopped");
        }
        EXPECT_THAT(MessagesWith({"process stopped"}), testing::UnorderedElementsAreArray(all));
    }

    static constexpr const char* c_first = "INFO     Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)";
};

TEST_F(WholeTest, WholeLife_EachWorkerDoesItsWorkAndSaysItsMessagesInTheirOrder) {
    Run(AllSections(), With(c_threeBoards, "name=\"ICB\"", "name=\"ICB\" clock=\"-5\""));
    FollowJournal();
    ASSERT_TRUE(Await([this] {
        return SensorLog("icb_0").size() >= 13 && SensorLog("io_2").size() >= 13 && SensorLog("os_0").size() >= 13;
    }));
    StopInTime();

    EXPECT_THAT(MessagesWith({"Monitor "}),
                ElementsAre("INFO     *Monitor process started.",
                            "INFO     Monitor settings:", "INFO     *Monitor process stopped"));
    EXPECT_THAT(MessagesWith({"Damage Protection "}),
                ElementsAre("INFO     *Damage Protection process started.",
                            "INFO     Damage Protection settings:", "INFO     *Damage Protection process stopped"));
    EXPECT_THAT(MessagesWith({"Temperature Control ", "(Max temperature"}),
                ElementsAre("INFO     *Temperature Control process started.", "INFO     Temperature Control settings:",
                            c_first, "INFO     *Temperature Control process stopped"));
    EXPECT_THAT(
        MessagesWith({"ynchroniz"}),
        ElementsAre("INFO     Time Synchronization settings:", "INFO     *Time synchronization process started.",
                    "INFO     Reference for time synchronization is board os_0.",
                    "INFO     Board io_2 will be synchronized.", "INFO     Board icb_0 will be synchronized.",
                    StartsWith("INFO     Synchronizing time on board icb_0 - difference is "),
                    "INFO     *Time synchronization process stopped"));
    EXPECT_THAT(MessagesWith({"***"}),
                ElementsAre("INFO     " + std::string(50, '*'), "INFO     ***Platform daemon started",
                            "INFO     ***Platform daemon is stopping."));
    EXPECT_THAT(MessagesWith({" RPM."}), ElementsAre(c_first, LeftFast()));
    const auto messages = Messages();
    EXPECT_THAT(messages, SizeIs(3 + 3 + 4 + 7 + 3 + 1)) << "nothing else was said";
    EXPECT_EQ(messages.at(1), "INFO     ***Platform daemon started") << "before any worker";
    const auto stopping = std::find(messages.begin(), messages.end(), "INFO     ***Platform daemon is stopping.");
    EXPECT_THAT(std::vector<std::string>(stopping + 1, messages.end()),
                UnorderedElementsAre(
                    LeftFast(), "INFO     *Monitor process stopped", "INFO     *Damage Protection process stopped",
                    "INFO     *Temperature Control process stopped", "INFO     *Time synchronization process stopped"));

    const auto actions = FanWrites(AllActions());
    EXPECT_THAT(actions, UnorderedElementsAre("483", StartsWith("icb/0 SetTime "), "297"));
    EXPECT_EQ(actions.back(), "297") << "the fans are left fast";

    for (const char* label : {"icb_0", "io_2", "os_0"}) {
        SCOPED_TRACE(label);
        const auto lines = SensorLog(label);
        ASSERT_GE(lines.size(), 13U);
        EXPECT_THAT(lines[8], StartsWith("[TIME];["));
        const std::string values = label == std::string("icb_0") ? ";12;48" : ";20";
        EXPECT_THAT(std::vector<std::string>(lines.begin() + 9, lines.end()),
                    Each(MatchesRegex("\\[[^]]+\\] " + values)));
    }
}

TEST_F(WholeTest, IntakeThatHeatsUp_IsWarnedOfToldCooledAndAtLastSwitchedOff) {
    Run(AllSections());
    test::Process watch(RegistryCommand({"watch", "boards/ICB/sensors/ID_12/hnr"}), m_folder.Path("watch"),
                        m_folder.Path("watch-err"));
    const std::vector<std::pair<std::string, std::string>> ramp{
        {"70", ""},
        {"76", "HNC (id = icb_0[12]:Intake; value = 76 C; HNC = 75)"},
        {"86", "HC (id = icb_0[12]:Intake; value = 86 C; HC = 85)"},
        {"96", "HNR (id = icb_0[12]:Intake; value = 96 C; HNR = 95)"}};
    std::vector<std::string> warnings;
    for (const auto& [value, crossing] : ramp) {
        Do({"set", "icb/0", "12", value});
        if (!crossing.empty()) {
            warnings.push_back("WARNING  Sensor value is above " + crossing);
            EXPECT_TRUE(AwaitMessage(warnings.back()));
        }
    }
    EXPECT_TRUE(AwaitMessages("CRITICAL Sensor source board will be powered off now.", 2)) << "in every pass";
    const std::string above =
        "WARNING  Temperature: 96 is above max fan speed range: 6500. Will be set to max speed: 6500";
    EXPECT_TRUE(AwaitMessages(above, 2));
    EXPECT_TRUE(Await([this] { return test::ReadLines(m_folder.Path("watch")).size() >= 2; }))
        << test::ReadFile(m_folder.Path("watch-err"));
    EXPECT_EQ(Do({"power", "icb/0"}), "off\n");
    StopInTime();
    EXPECT_EQ(watch.Wait(), 2);

    EXPECT_EQ(MessagesWith({"WARNING  Sensor value"}), warnings);
    EXPECT_THAT(test::ReadLines(m_folder.Path("watch")),
                Each(MatchesRegex(".* boards/ICB/sensors/ID_12/hnr threshold 96")));
    const auto critical = MessagesWith({"CRITICAL "});
    const std::vector<std::string> pass{
        "CRITICAL Value of sensor id: 12 on board icb_0 is higher than HNR!!! (value = 96; HNC = 95)",
        "CRITICAL !!! Shutting down board icb_0 to prevent damage.",
        "CRITICAL Sensor source board will be powered off now."};
    ASSERT_EQ(critical.size() % pass.size(), 0U);
    for (std::size_t at = 0; at < critical.size(); ++at) {
        EXPECT_EQ(critical[at], pass[at % pass.size()]);
    }
    EXPECT_THAT(MessagesWith({"ERROR "}), IsEmpty());
    EXPECT_THAT(Log(), HasSubstr("RPM to 6500 RPM. (Max temperature is "));
}

TEST_F(WholeTest, ClientThatSlowsTheFansDown_IsOverruledWithinAPeriod) {
    Run(AllSections());
    const test::Result refused = Registry({"set", "fans", "20"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.error, HasSubstr("Too high rpm value: 20\n"));
    Ask({"set", "fans", "2000"});
    EXPECT_TRUE(AwaitMessage("INFO     Fans changed from 2001 RPM to 4000 RPM. (Max temperature is 48)"));
    EXPECT_THAT(FanWrites(), ElementsAre("483", "967", "483"));
    StopInTime();
    EXPECT_THAT(
        Messages(),
        Contains(MatchesRegex("INFO     Registry: fans set from (unknown|[0-9.]+) to 2000 by 127[.]0[.]0[.]1")));
    EXPECT_THAT(MessagesWith({"WARNING ", "ERROR ", "CRITICAL "}),
                ElementsAre(MatchesRegex(
                    "WARNING  Registry: fans not set from (unknown|[0-9.]+) to 20 for 127[.]0[.]0[.]1: Too high "
                    "rpm value: 20")));
}

TEST_F(WholeTest, WorkerThatEnds_LeavesTheOthersAtWork) {
    Run(AllSections());
    Ask({"set", "fans", "29.6"});
    EXPECT_TRUE(AwaitMessage("INFO     *Temperature Control process stopped"));
    EXPECT_TRUE(AwaitRecords(1)) << "the monitor goes on";
    Do({"clock", "io/2", "30"});
    EXPECT_TRUE(AwaitLog("Synchronizing time on board io_2 - difference is 42949672")) << "and the clocks' worker";
    Do({"set", "io/2", "5", "101"});
    EXPECT_TRUE(AwaitMessage("CRITICAL Sensor source board will be powered off now.")) << "and the protection";
    Ask({"set", "fans", "3000"});
    FollowJournal();
    StopInTime({"INFO     *Temperature Control process stopped"});
    EXPECT_THAT(MessagesWith({"ERROR "}),
                ElementsAre("ERROR    Problem in Temperature Control process - Too high rpm value: 29"));
    EXPECT_THAT(MessagesWith({" RPM."}), ElementsAre(c_first, LeftFast()));
    EXPECT_EQ(FanWrites(AllActions()).back(), "297");
}

TEST_F(WholeTest, NoSections_EightMessagesTellOfTheDefaultsAndOneWarnsOfTheFans) {
    Run("");
    ASSERT_TRUE(AwaitLog("Board icb_0 will be synchronized."));
    StopInTime();  // from the middle of waits of minutes
    EXPECT_THAT(
        MessagesWith({"No settings found", "not available"}),
        UnorderedElementsAre("INFO     No settings found for Monitor module",
                             "INFO     Configuration for Monitor is not available. Using default values",
                             "INFO     No settings found for Damage Protection module",
                             "INFO     Configuration for Damage Protection is not available. Using default values",
                             "INFO     No settings found for Temperature Control module",
                             "INFO     Configuration for Temperature Control is not available. Using default values",
                             "INFO     No settings found for Time Synchronization module",
                             "INFO     Configuration for time synchronization is not available. Using default values"));
    EXPECT_THAT(MessagesWith({"WARNING ", "ERROR ", "CRITICAL "}),
                ElementsAre("WARNING  User did not specify valid temperature ranges."));
}

TEST_F(WholeTest, AllDisabled_OnlySettingsAreSaidAndTheFansAreLeftFast) {
    Configure(
        "<monitor enabled='false'/>\n<damage_protection enabled='false'/>\n<temperature_control enabled='false'/>\n"
        "<timesync enabled='false'/>\n");
    Start();
    EXPECT_TRUE(Await([this] {
        return MessagesWith({"process stopped"}).size() == 3 &&
               MessagesWith({"Time Synchronization settings:"}).size() == 1;
    }));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(
        MessagesWith({"process started."}),
        UnorderedElementsAre("INFO     *Monitor process started.", "INFO     *Damage Protection process started.",
                             "INFO     *Temperature Control process started."));
    EXPECT_THAT(Messages(), AllOf(Each(StartsWith("INFO ")), SizeIs(3 + 9 + 1 + 1)));
    EXPECT_THAT(Messages(), Contains("INFO     Fans changed from 0 RPM to 6500 RPM."));
}

/// Sixteen clients that read the whole tree, again and again until that fails.
class SixteenReaders {
public:
    SixteenReaders(const std::string& folder, const std::vector<std::string>& readTree) {
        // Of each tree the last value is written down, that of the last fan.
        std::vector<std::string> command{
            "/bin/sh", "-c", "while tree=$(\"$@\" 2>&1); do echo \"${tree##*right_rear = }\"; done; echo \"$tree\" >&2",
            "reader"};
        command.insert(command.end(), readTree.begin(), readTree.end());
        for (int index = 0; index < 16; ++index) {
            m_files.push_back(folder + "/reader" + std::to_string(index));
            m_processes.push_back(std::make_unique<test::Process>(command, m_files.back(), m_files.back() + "-err"));
        }
    }

    /// How many trees the one of them has read that has read least.
    std::size_t LeastTrees() const {
        std::size_t least = test::ReadLines(m_files.front()).size();
        for (const std::string& file : m_files) {
            least = std::min(least, test::ReadLines(file).size());
        }
        return least;
    }

    /// Waits until all have ended. @return the values that they read, and what the failures say
    std::pair<std::vector<std::string>, std::vector<std::string>> Join() {
        std::pair<std::vector<std::string>, std::vector<std::string>> results;
        for (std::size_t index = 0; index < m_files.size(); ++index) {
            EXPECT_EQ(m_processes[index]->Wait(), 0);
            const auto values = test::ReadLines(m_files[index]);
            results.first.insert(results.first.end(), values.begin(), values.end());
            results.second.push_back(test::ReadFile(m_files[index] + "-err"));
        }
        return results;
    }

private:
    std::vector<std::string> m_files;
    std::vector<std::unique_ptr<test::Process>> m_processes;
};

TEST_F(WholeTest, SixteenClientsDuringFaults_HoldUpNeitherTheWorkersNorTheStop) {
    Run(AllSections());
    SixteenReaders readers(m_folder.Path("."), RegistryCommand({"tree"}));
    const std::vector<std::vector<std::string>> faults{
        {"slow", "io/2", "2"}, {"fail", "io/2", "bus is stuck"}, {"missing", "io/2"}, {"heal", "io/2"}};
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.front());
        Do(fault);
        const std::size_t enough = readers.LeastTrees() + 2;
        EXPECT_TRUE(Await([&] { return readers.LeastTrees() >= enough; }));
        EXPECT_TRUE(AwaitRecords(1));
    }
    Do({"set", "icb/0", "12", "61"});
    EXPECT_TRUE(AwaitMessage("INFO     Fans changed from 4007 RPM to 6500 RPM. (Max temperature is 61)"));
    StopInTime();
    const auto [values, failures] = readers.Join();
    EXPECT_THAT(values, Each(MatchesRegex("[0-9]+")));
    EXPECT_THAT(failures, Each(AnyOf(HasSubstr("127.0.0.1"), HasSubstr("The server is about to end"))))
        << "of the server that goes or has gone";
    EXPECT_THAT(MessagesWith({"ERROR "}),
                AllOf(Not(IsEmpty()), Each(AnyOf(HasSubstr("io_2"), HasSubstr("io/2"),
                                                 HasSubstr("time synchronization process - bus is stuck")))));
    EXPECT_THAT(MessagesWith({"CRITICAL "}), IsEmpty());
}

TEST_F(WholeTest, ClosedLoop_HeatDrivesTheFansUpMoreAirCoolsAndTheLoopSettles) {
    // The example's hottest sensor would settle at 55 degrees with 4500 RPM and at 49 with 6500. Time goes 40 times
    // faster: a period is as long as most of its time constant.
    const std::string sections =
        With(AllSections(), c_fans,
             "<fans><set lower='10' upper='45' rpm='3000'/><set lower='20' upper='52' rpm='4500'/>"
             "<set lower='48' upper='70' rpm='6500'/></fans><sensors><exclude board='icb/0'>all</exclude></sensors>");
    Run(sections,
        With(test::ReadFile(std::string(ZELKOR_EXAMPLES) + "/chassis/small.xml"), "speed=\"1\"", "speed=\"40\""));
    const auto temperature = [this] { return std::stod(Ask({"get", "boards/IO1/sensors/ID_17/value"})); };
    ASSERT_TRUE(AwaitLog("RPM to 6500 RPM. (Max temperature is 5"));
    EXPECT_TRUE(Await([&] { return temperature() < 49.8; })) << "it cools";
    EXPECT_NEAR(std::stod(Ask({"get", "fans"})), 6516, 5) << "the fans turn as they were told";
    EXPECT_TRUE(AwaitRecords(3));
    EXPECT_NEAR(temperature(), 49.4, 0.4);
    StopInTime();
    EXPECT_THAT(MessagesWith({"Fans changed"}),
                ElementsAre(MatchesRegex(".* from 3998 RPM to 4500 RPM\\. \\(Max temperature is [2345][0-9.]+\\)"),
                            MatchesRegex(".* from 4501 RPM to 6500 RPM\\. \\(Max temperature is 5[2-5][0-9.]*\\)")))
        << "it does not swing";
    EXPECT_THAT(MessagesWith({"WARNING ", "ERROR ", "CRITICAL "}), IsEmpty());
}

}  // namespace
