// The temperature control's life, settings, checks of the table and report.

#include <atomic>
#include <future>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "qstd/exception.h"
#include "report_blanks.h"
#include "temperature_control_fixture.h"
#include "tests/support/log_gate.h"
#include "tests/support/trace_capture.h"

namespace {

using test::TemperatureControlTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::Return;
using testing::StartsWith;
using testing::Throw;

const char* const c_controlStarted = "I: *Temperature Control process started.";
const char* const c_controlStopped = "I: *Temperature Control process stopped";
const char* const c_noSettings = "I: No settings found for Temperature Control module";
const char* const c_defaults = "I: Configuration for Temperature Control is not available. Using default values";
const char* const c_tableErrors = "E: Errors in temperature to fans conversion table!";

const std::string c_controlBoards = c_s37 + "u:a\n" + c_s38 + " 12  (Intake)\n" + c_s37 + "u:b\n" + c_s38 +
                                    " 5  (Core)\n" + c_s37 + "u:c\n" + c_s38 + " 7  (CPU)\n";
const std::string c_noRows = c_s37 + "Fans are set to maximum speed\n";
const std::string c_threeRows = c_s37 + "40, 50 -> 3000\n" + c_s37 + "45, 60 -> 4000\n" + c_s37 + "55, 70 -> 6500\n";

std::string ControlReport(const std::string& enabled, const std::string& frequency, const std::string& sensors,
                          const std::string& rows) {
    return "I: Temperature Control settings:\n" + c_s35 + "enabled   = " + enabled + "\n" + c_s35 +
           "frequency = " + frequency + " seconds\n" + c_s35 + "Controlling following sensors\n" + sensors + c_s35 +
           "Temperature to fans conversion table\n" + rows;
}

class TemperatureControlSettings : public TemperatureControlTest {
protected:
    /// A section that keeps the worker from cycles.
    static std::string Disabled(const std::string& content) {
        return "<temperature_control enabled='false'>" + content + "</temperature_control>";
    }

    void TakeThresholds() {
        const bmc::SensorReading none = bmc::SensorReading::NotAvailable(60);
        EXPECT_CALL(m_boards.cpu, GetUpperNonCritical).WillRepeatedly(Return(none));
        EXPECT_CALL(m_boards.core, GetUpperNonCritical).WillRepeatedly(Return(none));
        EXPECT_CALL(m_boards.intake, GetUpperNonCritical).WillRepeatedly(Return(none));
    }

    void ExpectBoardCalls() { EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber()); }
};

TEST_F(TemperatureControlSettings, ClassName_IsTheSection) {
    StartAndEnd(Disabled(""));
    EXPECT_EQ(m_control->GetClassName(), "temperature_control");
}

TEST_F(TemperatureControlSettings, Table_IsCheckedAndReported) {
    const test::TraceCapture trace(1);
    StartAndEnd("<temperature_control enabled='false'><frequency>60</frequency>" + std::string(c_threeBands) +
                "</temperature_control>");
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre(c_controlStarted, ControlReport("false", "60", c_controlBoards, c_threeRows), c_controlStopped));
    const auto records = trace.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].text, "Lowest HNC found: 75");
    EXPECT_EQ(records[0].source, "temperature_control");
    EXPECT_EQ(records[0].function, "bool TemperatureControl::VerifyTempFansTable()");
}

TEST_F(TemperatureControlSettings, Enabled_IsReportedAndRuns) {
    StartAndCycle(Section(c_threeBands));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, ControlReport("true", "60", c_controlBoards, c_threeRows),
                            "I: Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)"));
}

TEST_F(TemperatureControlSettings, NoSection_DefaultsHoldAndTheTemperatureSensorsAreWatched) {
    StartAndCycle("");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, c_noSettings, c_defaults,
                            ControlReport("true", "60", c_controlBoards, c_noRows), StartsWith("W: "), _));
}

TEST_F(TemperatureControlSettings, EmptySection_CountsAsNone) {
    StartAndCycle("<temperature_control> </temperature_control>");
    EXPECT_THAT(m_log.Messages(), Contains(c_noSettings));
}

TEST_F(TemperatureControlSettings, TwoSections_CountAsNone) {
    StartAndCycle(Section("<frequency>5</frequency>") + Section(c_threeBands));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, c_noSettings, c_defaults,
                            ControlReport("true", "60", c_controlBoards, c_noRows), StartsWith("W: "), _));
}

TEST_F(TemperatureControlSettings, BoardTypeWithoutAName_EndsNothing) {
    EXPECT_CALL(m_boards.slot2, GetType).WillRepeatedly(Return(static_cast<bmc::BoardType_e>(200)));
    StartAndCycle("");
    EXPECT_THAT(m_log.Messages(), Contains(ControlReport("true", "60", c_controlBoards, c_noRows)));
    EXPECT_EQ(m_log.Count(c_controlStopped), 0);
}

TEST_F(TemperatureControlSettings, DisabledWithABadTable_ChecksReportsAndEndsWithoutACycle) {
    StartAndEnd(Disabled("<fans><set lower='50' upper='40' rpm='1000'/></fans>"));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, "W: Temperature limits are invalid: 50 > 40", c_tableErrors,
                            ControlReport("false", "60", c_controlBoards, c_noRows), c_controlStopped));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(TemperatureControlSettings, NothingSelected_SaysSoAndEndsWithoutACycle) {
    StartAndEnd(Section("<sensors><exclude>all</exclude></sensors>"));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, ControlReport("true", "60", c_s37 + "No sensors found!\n", c_noRows),
                            c_controlStopped));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(TemperatureControlSettings, NoTemperatureSensorAtAll_EndsWithoutACycle) {
    for (test::MockSensor* const sensor : {&m_boards.cpu, &m_boards.core, &m_boards.intake}) {
        EXPECT_CALL(*sensor, GetType).WillRepeatedly(Return(bmc::SensorType_e::voltage));
    }
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(), Contains(ControlReport("true", "60", c_s37 + "No sensors found!\n", c_noRows)));
}

TEST_F(TemperatureControlSettings, SensorOfAnotherType_CannotBeIncluded) {
    StartAndEnd(
        Disabled("<sensors><exclude>all</exclude><include board='u:a'>3</include>"
                 "<include board='u:b'>5</include></sensors>"));
    EXPECT_THAT(m_log.Messages(),
                Contains(ControlReport("false", "60", c_s37 + "u:b\n" + c_s38 + " 5  (Core)\n", c_noRows)));
}

TEST_F(TemperatureControlSettings, EnabledThatIsNoBoolean_IsIgnored) {
    StartAndCycle("<temperature_control enabled='maybe'/>");
    EXPECT_THAT(m_log.Messages(), Contains(ControlReport("true", "60", c_controlBoards, c_noRows)));
}

TEST_F(TemperatureControlSettings, Frequency_IsDecimalOrHexadecimalAndKeepsItsDefaultOtherwise) {
    for (const auto& [text, seconds] : {std::pair("abc", "60"), std::pair("0x10", "16"), std::pair("7", "7"),
                                        std::pair("12abc", "60"), std::pair("-5", "-5")}) {
        m_log.Clear();
        StartAndEnd(Disabled(std::string("<frequency>") + text + "</frequency>"));
        EXPECT_THAT(m_log.Messages(), Contains(ControlReport("false", seconds, c_controlBoards, c_noRows)));
        m_control.reset();
    }
}

TEST_F(TemperatureControlSettings, UpperLimitAboveTheLowestThreshold_FailsBeforeTheReport) {
    EXPECT_CALL(m_boards.intake, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading(65)));
    StartAndEnd(Disabled(c_threeBands));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, "W: Upper temperature limit is invalid: 70 > 65", c_tableErrors,
                            ControlReport("false", "60", c_controlBoards, c_noRows), c_controlStopped));
}

TEST_F(TemperatureControlSettings, NoThresholdAvailable_NoTableWithAnUpperLimitPasses) {
    TakeThresholds();
    const test::TraceCapture trace(1);
    StartAndEnd(Disabled(c_threeBands));
    EXPECT_THAT(m_log.Messages(), Contains("W: Upper temperature limit is invalid: 50 > 0"));
    EXPECT_THAT(trace.Texts(), Contains("Lowest HNC found: 0"));
}

TEST_F(TemperatureControlSettings, EmptyTable_PassesWithoutLookingAtTheThresholds) {
    EXPECT_CALL(m_boards.intake, GetUpperNonCritical).Times(0);
    StartAndEnd(Disabled("<fans/>"));
    EXPECT_EQ(m_log.Count(c_tableErrors), 0);
}

TEST_F(TemperatureControlSettings, OtherChildrenOfTheTable_AreSkipped) {
    StartAndEnd(Disabled("<fans><fan lower='50' upper='40' rpm='1'/><set lower='40' upper='50' rpm='3000'/></fans>"));
    EXPECT_THAT(m_log.Messages(), Contains(ControlReport("false", "60", c_controlBoards, c_s37 + "40, 50 -> 3000\n")));
}

TEST_F(TemperatureControlSettings, LimitThatIsNoNumber_IsTracedAndBecomesZero) {
    const test::TraceCapture trace(2);
    StartAndEnd(Disabled("<fans><set lower='0x28' upper='50' rpm='3000'/></fans>"));
    EXPECT_THAT(m_log.Messages(), Contains(ControlReport("false", "60", c_controlBoards, c_s37 + "0, 50 -> 3000\n")));
    EXPECT_THAT(trace.Texts(), Contains("Cannot cast from config value: Bad cast from 0x28 to unsigned int"));
}

TEST_F(TemperatureControlSettings, SeveralThatAreNoNumbers_AreTracedUpperLowerSpeedAndTheRestIsRead) {
    const test::TraceCapture trace(2);
    StartAndEnd(Disabled("<fans><set lower='l' upper='u' rpm='r'/><set lower='45' upper='z' rpm='4000'/></fans>"));
    std::vector<std::string> casts;
    for (const std::string& text : trace.Texts()) {
        if (text.rfind("Cannot cast", 0) == 0) {
            casts.push_back(text.substr(text.find("from ", text.find(':'))));
        }
    }
    EXPECT_THAT(casts, ElementsAre("from u to unsigned int", "from l to unsigned int", "from r to unsigned int",
                                   "from z to unsigned int"));
    EXPECT_THAT(m_log.Messages(), Contains("W: RPM value is out of range  [2500..6500]: 0"));
}

TEST_F(TemperatureControlSettings, MissingSpeed_IsZeroAndFailsTheCheck) {
    StartAndEnd(Disabled("<fans><set lower='40' upper='50'/></fans>"));
    EXPECT_THAT(m_log.Messages(), Contains("W: RPM value is out of range  [2500..6500]: 0"));
}

TEST_F(TemperatureControlSettings, MissingLowerLimit_IsZero) {
    StartAndEnd(Disabled("<fans><set upper='50' rpm='3000'/></fans>"));
    EXPECT_THAT(m_log.Messages(), Contains(ControlReport("false", "60", c_controlBoards, c_s37 + "0, 50 -> 3000\n")));
}

TEST_F(TemperatureControlSettings, LowestThreshold_IsTheLowestValidOneOfTheWatchedSensors) {
    StartAndEnd(Disabled(""));
    EXPECT_EQ(m_control->LowestHighNonCritical(), 75);
    EXPECT_CALL(m_boards.intake, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading::NotAvailable(10)));
    EXPECT_EQ(m_control->LowestHighNonCritical(), 80);
    EXPECT_CALL(m_boards.cpu, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading(-5)));
    EXPECT_EQ(m_control->LowestHighNonCritical(), -5);
}

TEST_F(TemperatureControlSettings, ThresholdOfZero_CountsAsNone) {
    StartAndEnd(Disabled(""));
    EXPECT_CALL(m_boards.intake, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading(0)));
    EXPECT_EQ(m_control->LowestHighNonCritical(), 80);
    EXPECT_CALL(m_boards.cpu, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading(0)));
    EXPECT_EQ(m_control->LowestHighNonCritical(), 0);
}

TEST_F(TemperatureControlSettings, ThresholdsThatCannotBeRead_AreToldByTheUriAndLeftOut) {
    StartAndEnd(Disabled(""));
    m_log.Clear();
    ExpectBoardCalls();
    EXPECT_CALL(m_boards.backend, GetBoard(m_boards.slot2.GetUri())).WillRepeatedly(Return(nullptr));
    EXPECT_CALL(m_boards.icb, GetSensor(_)).WillRepeatedly(Return(nullptr));
    EXPECT_CALL(m_boards.cpu, GetUpperNonCritical)
        .WillOnce(Throw(std::runtime_error("bus")))
        .WillOnce(Throw(42))
        .WillRepeatedly(Return(bmc::SensorReading(85)));
    EXPECT_EQ(m_control->LowestHighNonCritical(), 0);
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Problem accessing sensor id: 12 on board u:a", "E: Problem accessing board: u:b",
                            "E: Problem accessing board u:c. Exception: bus"));
    m_log.Clear();
    EXPECT_EQ(m_control->LowestHighNonCritical(), 0);
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem accessing board u:c. Unknown exception."));
    EXPECT_EQ(m_control->LowestHighNonCritical(), 85);
}

TEST_F(TemperatureControlSettings, SensorWithoutAName_IsAnInvalidValueInTheReport) {
    StartAndEnd(Disabled(""));
    m_log.Clear();
    ExpectBoardCalls();
    EXPECT_CALL(m_boards.backend, GetBoard(m_boards.slot2.GetUri())).WillRepeatedly(Return(nullptr));
    EXPECT_CALL(m_boards.icb, GetSensor(_)).WillRepeatedly(Return(nullptr));
    EXPECT_CALL(m_boards.cpu, GetName).WillRepeatedly(Throw(42));
    m_control->LogProperties();
    EXPECT_THAT(m_log.Messages(), ElementsAre(ControlReport("false", "60",
                                                            c_s37 + "u:a\n" + c_s38 + " 12  (invalid value)\n" + c_s37 +
                                                                "u:b\n" + c_s38 + " 5  (invalid value)\n" + c_s37 +
                                                                "u:c\n" + c_s38 + " 7  (invalid value)\n",
                                                            c_noRows)));
}

TEST_F(TemperatureControlSettings, BadSensorId_EndsTheWorkerWithItsErrorAndNothingElse) {
    const test::TraceCapture trace(1);
    StartAndEnd(Section("<sensors><include>x</include></sensors>"));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, "E: Problem in Temperature Control process - Bad cast from x to int",
                            c_controlStopped));
    const auto records = trace.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().level, 1);
    EXPECT_EQ(records.back().source, "temperature_control");
    EXPECT_EQ(records.back().function, "void TemperatureControl::operator()()");
    EXPECT_EQ(records.back().text, "Error: Bad cast from x to int");
}

TEST_F(TemperatureControlSettings, ExceptionOfAnotherKind_EndsTheWorkerAsUnknown) {
    const test::TraceCapture trace(1);
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillRepeatedly(Throw(42));
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(c_controlStarted, c_noSettings, c_defaults,
                            "E: Problem in Temperature Control process - Unknown Exception", c_controlStopped));
    ASSERT_FALSE(trace.Records().empty());
    EXPECT_EQ(trace.Records().back().text, "Unknown Exception");
    EXPECT_EQ(trace.Records().back().function, "void TemperatureControl::operator()()");
}

TEST_F(TemperatureControlSettings, StopWhileAsleep_EndsAtOnceAndASecondStopDoesNothing) {
    StartAndCycle("");
    m_control->StopThread();
    m_control->StopThread();
    ASSERT_TRUE(m_log.WaitFor(c_controlStopped));
    EXPECT_EQ(m_log.Count(c_controlStopped), 1);
}

TEST_F(TemperatureControlSettings, StopBeforeTheSettingsAreRead_StaysAStopWhateverTheySay) {
    for (const std::string& section :
         {Section("<frequency>60</frequency>"), std::string("<temperature_control enabled='true'/>")}) {
        m_log.Clear();
        test::LogGate gate;  // the worker's first message comes before it reads its settings
        Start(section);
        m_control->StopThread();
        gate.Open();
        ASSERT_TRUE(m_log.WaitFor(c_controlStopped));
        EXPECT_THAT(
            m_log.Messages(),
            ElementsAre(c_controlStarted, ControlReport("false", "60", c_controlBoards, c_noRows), c_controlStopped));
        EXPECT_EQ(m_fans.TakeWrites(), "-");
        m_control.reset();
    }
}

TEST_F(TemperatureControlSettings, StopDuringACycle_WaitsForItAndNoCycleFollows) {
    std::promise<void> isReading;
    std::promise<void> mayGoOn;
    EXPECT_CALL(m_boards.core, Read).WillOnce([&] {
        isReading.set_value();
        mayGoOn.get_future().wait();
        return bmc::SensorReading(20);
    });
    std::atomic<bool> isLastRead = false;  // on the board after SLOT_2
    EXPECT_CALL(m_boards.cpu, Read).WillOnce([&] {
        isLastRead = true;
        return bmc::SensorReading(20);
    });
    Start(Section("<frequency>0</frequency>"));
    isReading.get_future().wait();
    std::thread stopper([&] {
        m_control->StopThread();
        EXPECT_TRUE(isLastRead);
    });
    mayGoOn.set_value();
    stopper.join();
    EXPECT_TRUE(m_log.WaitFor(c_controlStopped));
}

TEST_F(TemperatureControlSettings, Period_RunsFromTheEndOfACycleToTheNext) {
    StartAndCycle(Section("<frequency>5</frequency>"));
    EXPECT_CALL(m_boards.intake, Read).Times(1);
    m_clock.Advance(std::chrono::milliseconds(4999));
    EXPECT_EQ(m_clock.CountSleeps(), 1);
    m_clock.Advance(std::chrono::milliseconds(1));
    m_clock.WaitForSleeps(2);
}

TEST_F(TemperatureControlSettings, ZeroOrNegativePeriod_CyclesWithoutPauseAndStillStops) {
    for (const std::string period : {"0", "-7"}) {
        m_log.Clear();
        Start(Section("<frequency>" + period + "</frequency>"));
        for (int cycle = 1; cycle <= 3; ++cycle) {
            m_clock.WaitForSleeps(++m_cycles);
            m_clock.Advance(std::chrono::milliseconds(1));
        }
        m_clock.WaitForSleeps(++m_cycles);
        m_control->StopThread();
        EXPECT_TRUE(m_log.WaitFor(c_controlStopped));
        m_control.reset();
    }
}

TEST_F(TemperatureControlSettings, Instance_IsOneWhoeverAsksFirst) {
    static bool wasMade = false;  // by an earlier repetition of this test
    const int constructions = std::exchange(wasMade, true) ? 0 : 1;
    m_application.Use(Disabled(""), m_folder.Path());
    std::vector<std::future<TemperatureControl*>> asked;
    for (int thread = 0; thread < 8; ++thread) {
        asked.push_back(
            std::async(std::launch::async, [this] { return &TemperatureControl::GetInstance(m_fansNode); }));
    }
    std::set<TemperatureControl*> instances;
    for (auto& answer : asked) {
        instances.insert(answer.get());
    }
    EXPECT_EQ(instances.size(), 1U);
    ASSERT_TRUE(constructions == 0 || m_log.WaitFor(c_controlStopped));
    EXPECT_EQ(m_log.Count(c_controlStarted), constructions);
    EXPECT_EQ(&TemperatureControl::GetInstance(nullptr), *instances.begin());
}

}  // namespace
