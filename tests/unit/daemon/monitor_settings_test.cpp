// The monitor's life, settings and report.

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "monitor_fixture.h"
#include "qstd/exception.h"
#include "report_blanks.h"
#include "tests/support/file.h"
#include "tests/support/log_gate.h"

namespace {

using test::MonitorTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::Return;

const std::string c_monitorBoards = c_s35 + "Monitoring following sensors\n" + c_s37 + "u:a  (icb)\n" + c_s38 +
                                    " 3 12\n" + c_s37 + "u:b  (power_supply)\n" + c_s38 + " 5\n" + c_s37 +
                                    "u:c  (os)\n" + c_s38 + " 7\n";

std::string MonitorReport(const std::string& enabled, const std::string& frequency, const std::string& sensors,
                          const std::string& absolute, const std::string& relative) {
    return "I: Monitor settings:\n" + c_s35 + "enabled   = " + enabled + "\n" + c_s35 + "frequency = " + frequency +
           " seconds\n" + sensors + c_s35 + "absolute filter = " + absolute + "\n" + c_s35 +
           "relative filter = " + relative + "\n";
}

TEST_F(MonitorTest, ClassName_IsTheSection) {
    StartAndEnd("<monitor enabled='false'/>");
    EXPECT_EQ(m_monitor->GetClassName(), "monitor");
}

TEST_F(MonitorTest, NoSection_DefaultsHoldAndAllSensorsAreWatched) {
    StartAndPass("");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Monitor process started.", "I: No settings found for Monitor module",
                            "I: Configuration for Monitor is not available. Using default values",
                            MonitorReport("true", "60", c_monitorBoards, "true", "false (value = 0)")));
}

TEST_F(MonitorTest, EmptySection_CountsAsNone) {
    StartAndPass("<monitor> </monitor>");
    EXPECT_THAT(m_log.Messages(), Contains("I: No settings found for Monitor module"));
}

TEST_F(MonitorTest, TwoSections_CountAsNone) {
    StartAndPass("<monitor><frequency>5</frequency></monitor><monitor><frequency>7</frequency></monitor>");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Monitor process started.", "I: No settings found for Monitor module",
                            "I: Configuration for Monitor is not available. Using default values",
                            MonitorReport("true", "60", c_monitorBoards, "true", "false (value = 0)")));
}

TEST_F(MonitorTest, NothingSelected_SaysSoAndEndsWithoutAPass) {
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    StartAndEnd("<monitor><sensors><exclude>all</exclude></sensors></monitor>");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Monitor process started.",
                            MonitorReport("true", "60", c_s37 + "No sensors found!\n", "true", "false (value = 0)"),
                            "I: *Monitor process stopped"));
}

TEST_F(MonitorTest, Disabled_ReportsAndEndsWithoutAPass) {
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    StartAndEnd("<monitor enabled='false'/>");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Monitor process started.",
                            MonitorReport("false", "60", c_monitorBoards, "true", "false (value = 0)"),
                            "I: *Monitor process stopped"));
    EXPECT_FALSE(test::Exists(m_folder.Path() + "/sensors"));
}

TEST_F(MonitorTest, EnabledThatIsNoBoolean_IsIgnored) {
    StartAndPass("<monitor enabled='maybe'/>");
    EXPECT_THAT(m_log.Messages(), Contains(MonitorReport("true", "60", c_monitorBoards, "true", "false (value = 0)")));
}

TEST_F(MonitorTest, Filters_AreReported) {
    StartAndPass(
        "<monitor><filter><absolute enabled='false'/><relative enabled='true'>5</relative></filter></monitor>");
    EXPECT_THAT(m_log.Messages(), Contains(MonitorReport("true", "60", c_monitorBoards, "false", "true (value = 5)")));
}

TEST_F(MonitorTest, RelativeValueThatIsNoNumber_IsTracedAndStaysZero) {
    const test::TraceCapture trace(2);
    StartAndPass("<monitor><filter><relative enabled='true'>abc</relative></filter></monitor>");
    EXPECT_THAT(m_log.Messages(), Contains(MonitorReport("true", "60", c_monitorBoards, "true", "true (value = 0)")));
    EXPECT_THAT(trace.Texts(), Contains("Cannot cast from config value: Bad cast from abc to double"));
}

TEST_F(MonitorTest, Frequency_IsDecimalOrHexadecimalAndKeepsItsDefaultOtherwise) {
    for (const auto& [text, seconds] :
         {std::pair("abc", "60"), std::pair("0x10", "16"), std::pair("7", "7"), std::pair("12abc", "60")}) {
        m_log.Clear();
        StartAndEnd(std::string("<monitor enabled='false'><frequency>") + text + "</frequency></monitor>");
        EXPECT_THAT(m_log.Messages(),
                    Contains(MonitorReport("false", seconds, c_monitorBoards, "true", "false (value = 0)")));
        m_monitor.reset();
    }
}

TEST_F(MonitorTest, BoardGoneAtTheReport_HasAnEmptyTypeName) {
    const bmc::Uri slot2("u:b", "SLOT", "2");
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(slot2)).WillOnce(Return(&m_boards.slot2)).WillRepeatedly(Return(nullptr));
    StartAndEnd("<monitor enabled='false'/>");
    EXPECT_THAT(m_log.Messages(), Contains(HasSubstr(c_s37 + "u:b  ()\n" + c_s38 + " 5\n")));
}

TEST_F(MonitorTest, BoardTypeWithoutAName_EndsTheWorker) {
    EXPECT_CALL(m_boards.slot2, GetType).WillRepeatedly(Return(static_cast<bmc::BoardType_e>(200)));
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem in monitor process - invalid value"));
}

TEST_F(MonitorTest, BadSensorId_EndsTheWorkerWithItsErrorAndNothingElse) {
    const test::TraceCapture trace(1);
    StartAndEnd("<monitor><sensors><include>x</include></sensors></monitor>");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Monitor process started.", "E: Problem in monitor process - Bad cast from x to int",
                            "I: *Monitor process stopped"));
    const auto records = trace.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().level, 1);
    EXPECT_EQ(records.back().source, "monitor");
    EXPECT_EQ(records.back().function, "void Monitor::operator()()");
    EXPECT_EQ(records.back().text, "Error: Bad cast from x to int");
}

TEST_F(MonitorTest, ExceptionOfAnotherKind_EndsTheWorkerAsUnknown) {
    const test::TraceCapture trace(1);
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillRepeatedly(testing::Throw(42));
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem in monitor process - Unknown Exception"));
    ASSERT_FALSE(trace.Records().empty());
    EXPECT_EQ(trace.Records().back().text, "Unknown Exception");
    EXPECT_EQ(trace.Records().back().function, "void Monitor::operator()()");
}

TEST_F(MonitorTest, StopWhileAsleep_EndsAtOnceAndASecondStopDoesNothing) {
    StartAndPass("");
    m_monitor->StopThread();
    m_monitor->StopThread();
    ASSERT_TRUE(m_log.WaitFor("I: *Monitor process stopped"));
    EXPECT_EQ(m_log.Count("I: *Monitor process stopped"), 1);
}

TEST_F(MonitorTest, Period_RunsFromTheEndOfAPassToTheNext) {
    StartAndPass("<monitor><frequency>5</frequency></monitor>");
    EXPECT_CALL(m_boards.intake, Read).Times(1);
    m_clock.Advance(std::chrono::milliseconds(4999));
    EXPECT_EQ(m_clock.CountSleeps(), 1);
    m_clock.Advance(std::chrono::milliseconds(1));
    m_clock.WaitForSleeps(2);
}

TEST_F(MonitorTest, ZeroPeriod_PassesWithoutPauseAndStillStops) {
    Start("<monitor><frequency>0</frequency></monitor>");
    for (int pass = 1; pass <= 3; ++pass) {
        m_clock.WaitForSleeps(pass);
        m_clock.Advance(std::chrono::milliseconds(1));
    }
    m_monitor->StopThread();
    EXPECT_TRUE(m_log.WaitFor("I: *Monitor process stopped"));
}

/// Holds whoever asks SLOT_2 for its sensors until it is opened.
class Gate {
public:
    explicit Gate(test::MockBoard& board) {
        EXPECT_CALL(board, GetSensorsIds).WillOnce([this] {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_isEntered = true;
            m_changed.notify_all();
            m_changed.wait(lock, [this] { return m_isOpen; });
            return std::vector<bmc::SensorId>{bmc::SensorId(5)};
        });
    }
    void AwaitEntry() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isEntered; });
    }
    void Open() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_isOpen = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_isEntered = false;
    bool m_isOpen = false;
};

TEST_F(MonitorTest, StopBeforeTheLoop_NoPassAndTheUsualMessages) {
    Gate gate(m_boards.slot2);
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    Start("<monitor><frequency>60</frequency></monitor>");
    gate.AwaitEntry();
    m_monitor->StopThread();
    gate.Open();
    ASSERT_TRUE(m_log.WaitFor("I: *Monitor process stopped"));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Monitor process started.", testing::StartsWith("I: Monitor settings:"),
                            "I: *Monitor process stopped"));
}

TEST_F(MonitorTest, StopBeforeEnabledIsRead_StaysAStop) {
    test::LogGate gate;  // the worker's first message comes before it reads its settings
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    Start("<monitor enabled='true'><frequency>60</frequency></monitor>");
    m_monitor->StopThread();
    gate.Open();
    EXPECT_TRUE(m_log.WaitFor("I: *Monitor process stopped"));
    EXPECT_THAT(m_log.Messages(), Contains(MonitorReport("false", "60", c_monitorBoards, "true", "false (value = 0)")));
}

TEST_F(MonitorTest, StopDuringAPass_WaitsForItAndNoPassFollows) {
    std::mutex mutex;
    std::condition_variable changed;
    bool isReading = false;
    bool mayGoOn = false;
    EXPECT_CALL(m_boards.core, Read).WillOnce([&] {
        std::unique_lock<std::mutex> lock(mutex);
        isReading = true;
        changed.notify_all();
        changed.wait(lock, [&] { return mayGoOn; });
        return bmc::SensorReading(40);
    });
    std::atomic<bool> isLastRead = false;  // on the board after SLOT_2: the pass is complete
    EXPECT_CALL(m_boards.cpu, Read).WillOnce([&] {
        isLastRead = true;
        return bmc::SensorReading(45);
    });
    Start("<monitor><frequency>0</frequency></monitor>");
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return isReading; });
    }
    std::thread stopper([&] {
        m_monitor->StopThread();
        EXPECT_TRUE(isLastRead);
    });
    {
        const std::lock_guard<std::mutex> guard(mutex);
        mayGoOn = true;
        changed.notify_all();
    }
    stopper.join();
    EXPECT_TRUE(m_log.WaitFor("I: *Monitor process stopped"));
}

TEST_F(MonitorTest, Convert_AppendsInOrderAndClearsNothing) {
    Module::Selection selection;
    selection[&m_boards.slot2] = {bmc::SensorId(5), bmc::SensorId(1)};
    selection[&m_boards.icb] = {bmc::SensorId(12), bmc::SensorId(3)};
    Monitor::Sensors out;
    Monitor::Convert(selection, out);
    Monitor::Convert(selection, out);
    std::string text;
    for (const auto& [uri, sensors] : out) {
        text += uri.ToString() + ":";
        for (const Monitor::SensorData& data : sensors) {
            text += " " + bmc::ToString(data.id);
            EXPECT_FALSE(data.valid);
            EXPECT_EQ(data.value, 0.0);
        }
        text += ";";
    }
    EXPECT_EQ(text, "u:a: 3 12 3 12;u:b: 1 5 1 5;");
}

}  // namespace
