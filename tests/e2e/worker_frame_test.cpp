// What the workers have in common: the order of their messages, their settings, the stop, and what a fault costs them.

#include "traced_workers_fixture.h"

namespace {

using test::Worker;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class WorkerFrameTest : public test::WorkersTest {
protected:
    /// All four sections, each with @p attribute and @p frequency.
    static std::string Sections(const std::string& attribute, const std::string& frequency) {
        std::string text;
        for (const char* name : {"monitor", "damage_protection", "temperature_control", "timesync"}) {
            text.append("<").append(name).append(" ").append(attribute).append("><frequency>").append(frequency);
            text.append("</frequency>");
            text.append(name == std::string("temperature_control") ? c_table : "");
            text.append("</").append(name).append(">\n");
        }
        return text;
    }

    /// "Monitor", as the first and the last message of a worker name it.
    static std::string NameOf(Worker worker) {
        switch (worker) {
            case Worker::monitor:
                return "Monitor";
            case Worker::protection:
                return "Damage Protection";
            case Worker::control:
                return "Temperature Control";
            case Worker::clocks:
                break;
        }
        return "Time synchronization";
    }
    static std::string Started(Worker worker) { return "I: *" + NameOf(worker) + " process started."; }
    static std::string Stopped(Worker worker) { return "I: *" + NameOf(worker) + " process stopped"; }

    /// The position of the only line of the log that is @p message; nothing, and a failure, when it is not there once.
    static std::ptrdiff_t PositionOf(const std::string& message, const std::vector<std::string>& messages) {
        EXPECT_EQ(std::count(messages.begin(), messages.end(), message), 1) << message;
        return std::find(messages.begin(), messages.end(), message) - messages.begin();
    }

    /// Every worker that has started has stopped, once, after the daemon said that it stops.
    void ExpectOrderlyEnd() const {
        const std::vector<std::string> messages = Messages();
        const auto stopping = PositionOf("INFO     ***Platform daemon is stopping.", messages);
        for (const Worker worker : c_workers) {
            EXPECT_GT(PositionOf("INFO     " + Stopped(worker).substr(3), messages), stopping);
        }
    }

    static constexpr const char* c_table =
        "<fans><set lower='40' upper='50' rpm='3000'/><set lower='45' upper='60' "
        "rpm='4000'/><set lower='55' upper='70' rpm='6500'/></fans>";
    static constexpr const char* c_driftingChassis = R"(<chassis>
  <board uri="icb/0" type="icb" name="ICB" clock="-20">
    <fans/>
    <sensor id="12" name="Intake" type="temperature" value="48" unc="75" unr="95"/>
  </board>
  <board uri="os/0" type="os" name="host" clock="-20">
    <sensor id="7" name="CPU" type="temperature" value="45" unc="85" unr="105"/>
  </board>
  <board uri="slot/2" type="power_supply" name="slot2" clock="-20">
    <sensor id="5" name="Core" type="temperature" value="101" unc="80" unr="100"/>
  </board>
</chassis>
)";
};

TEST_F(WorkerFrameTest, Life_EachWorkerTellsStartSettingsWorkAndStopInItsOrder) {
    StartWith(Sections("enabled='true'", "3600"));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, "I: Board slot_2 will be synchronized."));
    ASSERT_TRUE(AwaitMessage(Worker::control, "I: Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)"));
    EXPECT_EQ(Stop(), 0);
    for (const Worker worker : {Worker::monitor, Worker::protection}) {
        EXPECT_THAT(MessagesOf(worker), ElementsAre(Started(worker), ReportOf(worker), Stopped(worker)));
    }
    EXPECT_THAT(
        MessagesOf(Worker::control),
        ElementsAre(Started(Worker::control), ReportOf(Worker::control),
                    "I: Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)", Stopped(Worker::control)));
    EXPECT_THAT(MessagesOf(Worker::clocks),
                ElementsAre(ReportOf(Worker::clocks), Started(Worker::clocks), "I: Board icb_0 will be synchronized.",
                            "I: Reference for time synchronization is board os_0.",
                            "I: Board slot_2 will be synchronized.", Stopped(Worker::clocks)));
    ExpectOrderlyEnd();
    const std::vector<std::string> messages = Messages();
    EXPECT_EQ(messages.at(0), "INFO     " + std::string(50, '*'));
    EXPECT_EQ(messages.at(1), "INFO     ***Platform daemon started");
}

TEST_F(WorkerFrameTest, StopWhileAllSleep_EndsThemWellBeforeTheirPeriods) {
    StartWith(Sections("", "3600"));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, "I: Board slot_2 will be synchronized."));
    const auto begin = std::chrono::steady_clock::now();
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(Stop(), 0) << "a second request changes nothing";
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60)) << "periods are of an hour";
    ExpectOrderlyEnd();
}

TEST_F(WorkerFrameTest, Disabled_TheWorkersReportAndEndAndTouchNothing) {
    // A board past its limit, drifting clocks, a table for the fans: there would be something to do.
    StartWith(Sections("enabled='false'", "0"), c_driftingChassis);
    for (const Worker worker : {Worker::monitor, Worker::protection, Worker::control}) {
        ASSERT_TRUE(AwaitMessage(worker, Stopped(worker)));
    }
    EXPECT_THAT(Actions(), IsEmpty());
    EXPECT_EQ(Chassis({"power", "slot/2"}).output, "on\n");
    EXPECT_EQ(Stop(), 0);
    for (const Worker worker : {Worker::monitor, Worker::protection, Worker::control}) {
        EXPECT_THAT(MessagesOf(worker),
                    ElementsAre(Started(worker), HasSubstr(" enabled   = false\n"), Stopped(worker)));
    }
    EXPECT_THAT(MessagesOf(Worker::clocks), ElementsAre(HasSubstr(" enabled   = false\n")));
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors")));
}

TEST_F(WorkerFrameTest, SectionsAbsentEmptyOrTwice_TheDefaultsHoldAndAreSaid) {
    const std::string twice = Sections("enabled='false'", "7") + Sections("enabled='false'", "7");
    for (const std::string& sections :
         {std::string(), std::string("<monitor/><damage_protection/>\n<temperature_control/><timesync></timesync>\n"),
          twice}) {
        SCOPED_TRACE(sections);
        std::filesystem::remove_all(m_folder.Path("log"));
        StartWith(sections);
        EXPECT_EQ(Stop(), 0);
        const auto expectDefaults = [this](Worker worker, std::size_t first, const std::string& module,
                                           const std::string& process, const std::string& period) {
            const std::vector<std::string> messages = MessagesOf(worker);
            ASSERT_GT(messages.size(), first + 2);
            EXPECT_EQ(messages[first], "I: No settings found for " + module + " module");
            EXPECT_EQ(messages[first + 1],
                      "I: Configuration for " + process + " is not available. Using default values");
            EXPECT_EQ(messages[first + 2], ReportOf(worker));
            EXPECT_THAT(messages[first + 2],
                        HasSubstr(std::string(" settings:\n") + c_keyIndent + "enabled   = true\n" + c_keyIndent +
                                  "frequency = " + period + " seconds\n"));
        };
        expectDefaults(Worker::monitor, 1, "Monitor", "Monitor", "60");
        expectDefaults(Worker::protection, 1, "Damage Protection", "Damage Protection", "60");
        expectDefaults(Worker::control, 1, "Temperature Control", "Temperature Control", "60");
        expectDefaults(Worker::clocks, 0, "Time Synchronization", "time synchronization", "3600");
        EXPECT_THAT(ReportOf(Worker::control), HasSubstr("Fans are set to maximum speed")) << "there is no table";
    }
}

TEST_F(WorkerFrameTest, ValuesThatDoNotConvert_KeepTheDefaultsAndAreTracedOnly) {
    const std::string element = "2 T core/shared/qcfg/element bool qcfg::Element::GetValue(T&) const ";
    const std::string attribute = "2 T core/shared/qcfg/attribute bool qcfg::Attribute::GetValue(T&) const ";
    const std::string failed = "Cannot cast from config value: ";
    for (const char* level : {"2", "1"}) {
        SCOPED_TRACE(level);
        std::filesystem::remove_all(m_folder.Path("log"));
        Configure(Sections("enabled='maybe'", "12abc") + "<other><relative>abc</relative></other>\n");
        Start({"--trace-level", level});
        AwaitReports();
        EXPECT_EQ(Stop(), 0);
        std::vector<std::string> records;
        for (const std::string& line : Trace()) {
            // Without time, thread and line number.
            const std::size_t source = line.find(") ") + 2;
            const std::size_t colon = line.find(':', source);
            if (line.find(failed) != std::string::npos) {
                records.push_back(line.substr(line.find("] ") + 2, 1) + " T " + line.substr(source, colon - source) +
                                  line.substr(line.find(' ', colon)));
            }
        }
        const std::string wrongBool =
            attribute + "[with T = bool]: " + failed + "Wrong bool value maybe .Error: Bad bool cast from maybe";
        const std::string wrongInt = element + "[with T = int]: " + failed + "Bad cast from 12abc to int";
        const std::string wrongUnsigned =
            element + "[with T = unsigned int]: " + failed + "Bad cast from 12abc to unsigned int";
        if (*level == '1') {
            EXPECT_THAT(records, IsEmpty());
        } else {
            EXPECT_THAT(records, testing::UnorderedElementsAre(wrongBool, wrongBool, wrongBool, wrongBool, wrongInt,
                                                               wrongInt, wrongInt, wrongUnsigned));
        }
        EXPECT_THAT(Log(), Not(HasSubstr(failed)));
        const std::string log = Log();
        std::size_t defaults = 0;
        for (std::size_t at = log.find("frequency = 60 seconds"); at != std::string::npos;
             at = log.find("frequency = 60 seconds", at + 1)) {
            ++defaults;
        }
        EXPECT_EQ(defaults, 3U);
        EXPECT_THAT(log, HasSubstr("frequency = 3600 seconds"));
        EXPECT_THAT(log, Not(HasSubstr("enabled   = false")));
    }
}

TEST_F(WorkerFrameTest, Trace_HoldsTheMessagesFromItsLevelOn) {
    for (const int level : {1, 2, 3}) {
        SCOPED_TRACE(level);
        std::filesystem::remove_all(m_folder.Path("log"));
        // A worker that ends by an error, a crossing, a board past its limit.
        Configure("<temperature_control><sensors><include>x</include></sensors></temperature_control>\n",
                  c_driftingChassis);
        Start({"--trace-level", std::to_string(level)});
        ASSERT_TRUE(AwaitLog("Problem in Temperature Control process - Bad cast from x to int"));
        ASSERT_TRUE(AwaitLog("Sensor value is above HNR"));
        ASSERT_TRUE(AwaitLog("Sensor source board will be powered off now."));
        EXPECT_EQ(Stop(), 0);
        const auto isTraced = [this](const std::string& begin, const std::string& end) {
            const std::vector<std::string> lines = Trace();
            return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find("] " + begin + " (") != std::string::npos &&
                       line.find(" core/shared/qstd/log:") != std::string::npos && line.find(end) != std::string::npos;
            });
        };
        const std::string arguments = "(const std::string&): ";
        EXPECT_TRUE(isTraced("1", "void qstd::LogCritical" + arguments + "!!! Shutting down board slot_2 to prevent"));
        EXPECT_TRUE(isTraced("1", "void qstd::LogError" + arguments + "Problem in Temperature Control process - Bad"));
        EXPECT_EQ(isTraced("2", "void qstd::LogWarning" + arguments + "Sensor value is above HNR"), level >= 2);
        EXPECT_EQ(isTraced("3", "void qstd::LogInfo" + arguments + "*Monitor process started."), level >= 3);
    }
}

TEST_F(WorkerFrameTest, FilterThatDoesNotConvert_IsSwitchedOnWithoutItsSize) {
    StartWith(
        "<monitor><frequency>0x10</frequency><filter><absolute enabled='0'/><relative enabled='ON'>abc</relative>"
        "</filter></monitor>\n");
    EXPECT_EQ(Stop(), 0);
    const std::string key = c_keyIndent;
    EXPECT_THAT(ReportOf(Worker::monitor), HasSubstr("\n" + key + "frequency = 16 seconds\n"));
    EXPECT_THAT(ReportOf(Worker::monitor), testing::EndsWith("\n" + key + "absolute filter = false\n" + key +
                                                             "relative filter = true (value = 0)"));
    EXPECT_THAT(Trace(), Contains(HasSubstr("Cannot cast from config value: Bad cast from abc to double")));
}

TEST_F(WorkerFrameTest, WorkerThatEndsByAnError_SaysSoAndCostsTheOthersNothing) {
    const std::string bad = "<sensors><include>x</include></sensors>";
    const auto sections = [&](Worker ended) {
        return "<monitor><filter><absolute enabled='false'/></filter>" + (ended == Worker::monitor ? bad : "") +
               "</monitor>\n<damage_protection><frequency>60</frequency>" + (ended == Worker::protection ? bad : "") +
               "</damage_protection>\n<temperature_control>" + c_table + (ended == Worker::control ? bad : "") +
               "</temperature_control>\n<timesync><delta>3</delta></timesync>\n";
    };
    const std::map<Worker, std::string> records{
        {Worker::monitor, " void Monitor::operator()(): Error: Bad cast from x to int"},
        {Worker::protection, " void DamageProtection::operator()():  .Error: Bad cast from x to int"},
        {Worker::control, " void TemperatureControl::operator()(): Error: Bad cast from x to int"}};
    for (const auto& [ended, record] : records) {
        SCOPED_TRACE(NameOf(ended));
        std::filesystem::remove_all(m_folder.Path("log"));
        Configure(sections(ended), c_driftingChassis);
        StartTraced();
        ASSERT_TRUE(AwaitMessage(ended, Stopped(ended)));
        const std::string prefix = ended == Worker::monitor ? "monitor" : NameOf(ended);
        EXPECT_THAT(MessagesOf(ended),
                    ElementsAre(Started(ended), "E: Problem in " + prefix + " process - Bad cast from x to int",
                                Stopped(ended)));
        EXPECT_THAT(Trace(), Contains(testing::AllOf(HasSubstr("] 1 ("), testing::EndsWith(record))));

        EXPECT_TRUE(ended == Worker::monitor || Await([this] { return !SensorLog("slot_2").empty(); }));
        EXPECT_TRUE(ended == Worker::protection ||
                    AwaitMessage(Worker::protection, "C: Sensor source board will be powered off now."));
        EXPECT_TRUE(ended == Worker::control ||
                    Await([this] { return Log().find("Fans changed") != std::string::npos; }));
        EXPECT_TRUE(AwaitLog("Synchronizing time on board slot_2"));
        EXPECT_EQ(Stop(), 0);
    }
}

TEST_F(WorkerFrameTest, StopBeforeTheFirstPass_TheWorkersStillReadTheirSettingsAndRunNone) {
    StartHeld(
        "<monitor enabled='true'/>\n<damage_protection enabled='true'/>\n<temperature_control enabled='true'/>\n"
        "<timesync enabled='false'/>\n",
        c_driftingChassis);
    Do({"slow", "slot/2", "1000"});
    Release();
    // From here the main thread takes a second to build the tree; each worker then asks the slow board for its sensors.
    ASSERT_TRUE(AwaitLog("***Platform daemon started"));
    EXPECT_EQ(Stop(), 0);
    for (const Worker worker : {Worker::monitor, Worker::protection, Worker::control}) {
        EXPECT_THAT(MessagesOf(worker),
                    ElementsAre(Started(worker), HasSubstr(" enabled   = false\n"), Stopped(worker)));
    }
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors")));
}

TEST_F(WorkerFrameTest, Faults_AreToldByEachWorkerInItsOwnWordsAndEndNone) {
    StartWith(Sections("enabled='true'", "1"));
    ASSERT_TRUE(AwaitMessage(Worker::clocks, "I: Board slot_2 will be synchronized."));
    std::map<Worker, std::vector<std::string>> expected;
    const auto expectEach = [&](const std::map<Worker, std::string>& messages) {
        for (const auto& [worker, message] : messages) {
            EXPECT_TRUE(AwaitMessage(worker, message)) << message;
            expected[worker].push_back(message);
        }
        Do({"heal", "slot/2"});
    };
    Do({"missing", "slot/2"});
    expectEach({{Worker::monitor, "E: Problem accessing board: slot_2"},
                {Worker::protection, "E: Problem accessing board: slot_2"},
                {Worker::control, "E: Problem accessing board: slot/2"},
                {Worker::clocks, "E: Problem accessing board: slot_2"}});
    Do({"fail", "slot/2", "bus is stuck"});
    expectEach({{Worker::monitor, "E: Problem accessing sensor id: 5 on board slot_2. Exception: bus is stuck"},
                {Worker::protection, "E: Problem accessing sensor id: 5 on board slot_2. Exception: bus is stuck"},
                {Worker::control, "E: Problem accessing board slot/2. Exception: bus is stuck"},
                {Worker::clocks, "E: Problem in time synchronization process - bus is stuck"}});
    Do({"missing", "slot/2", "5"});
    expectEach({{Worker::monitor, "E: Problem accessing sensor id: 5 on board slot_2"},
                {Worker::protection, "E: Problem accessing sensor id: 5 on board slot_2"},
                {Worker::control, "E: Problem accessing sensor id: 5 on board slot/2"}});
    Do({"fail", "slot/2", "5", "no answer"});
    expectEach({{Worker::monitor, "E: Problem accessing sensor id: 5 on board slot_2. Exception: no answer"},
                {Worker::protection, "E: Problem accessing sensor id: 5 on board slot_2. Exception: no answer"},
                {Worker::control, "E: Problem accessing board slot/2. Exception: no answer"}});
    // A slow board: all of them get there in the end.
    Do({"slow", "slot/2", "100"});
    Do({"clock", "slot/2", "-20"});
    Do({"set", "slot/2", "5", "101"});
    EXPECT_TRUE(
        AwaitMessage(Worker::monitor, "W: Sensor value is above HNR (id = slot_2[5]:Core; value = 101 C; HNR = 100)"));
    EXPECT_TRUE(AwaitMessage(Worker::protection, "C: Sensor source board will be powered off now."));
    EXPECT_TRUE(AwaitMessage(Worker::control,
                             "W: Temperature: 101 is above max fan speed range: 6500. Will be set to max speed: 6500"));
    EXPECT_TRUE(AwaitLog("Synchronizing time on board slot_2"));
    ASSERT_THAT(Messages(), Not(Contains(HasSubstr("process stopped"))));
    EXPECT_EQ(Stop(), 0);
    // Nobody told of anything else.
    for (const Worker worker : c_workers) {
        std::vector<std::string> errors = MessagesOf(worker);
        errors.erase(std::remove_if(errors.begin(), errors.end(),
                                    [](const std::string& message) { return message.find("E: ") != 0; }),
                     errors.end());
        EXPECT_THAT(errors, Each(testing::AnyOfArray(expected[worker])));
    }
}

}  // namespace
