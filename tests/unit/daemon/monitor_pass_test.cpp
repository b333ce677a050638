// What one pass of the monitor does: filter, messages, sensor logs.

#include <cmath>
#include <filesystem>
#include <limits>
#include <stdexcept>

#include "monitor_fixture.h"
#include "qstd/exception.h"
#include "qstd/ver_info.h"
#include "tests/support/file.h"
#include "tests/support/special_numbers.h"

namespace {

using test::MonitorTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::Return;
using testing::Throw;

/// A monitor that has ended, whose operations the test calls itself.
class MonitorFilter : public MonitorTest {
protected:
    void UseFilters(const std::string& absolute, const std::string& relative, const std::string& value) {
        StartAndEnd("<monitor enabled='false'><filter><absolute enabled='" + absolute + "'/><relative enabled='" +
                    relative + "'>" + value + "</relative></filter></monitor>");
    }
    bool FilterIntake(double previous, double value) {
        return m_monitor->Filter(&m_boards.intake, {bmc::SensorId(12), true, previous}, value);
    }
    bool FilterV12(double previous, double value) {
        return m_monitor->Filter(&m_boards.v12, {bmc::SensorId(3), true, previous}, value);
    }
    bool FilterFresh(double value) { return m_monitor->Filter(&m_boards.v12, {bmc::SensorId(3)}, value); }
};

TEST_F(MonitorFilter, Absolute_RecordsOutsideTheNonCriticalBandAndTheFirstReadingBack) {
    UseFilters("true", "false", "0");
    EXPECT_FALSE(FilterIntake(70, 75));
    EXPECT_TRUE(FilterIntake(70, 75.1));
    EXPECT_FALSE(FilterIntake(70, 0));
    EXPECT_TRUE(FilterIntake(70, -0.1));
    EXPECT_TRUE(FilterIntake(80, 70));
    EXPECT_TRUE(FilterIntake(-1, 70));
    EXPECT_FALSE(FilterIntake(75, 70));
    EXPECT_FALSE(FilterIntake(70, c_nan));
}

TEST_F(MonitorFilter, Absolute_FirstReadingCountsByItselfOnly) {
    UseFilters("true", "false", "0");
    EXPECT_FALSE(FilterFresh(12));
    EXPECT_TRUE(FilterFresh(13.5));
}

TEST_F(MonitorFilter, Absolute_ThresholdThatIsNotThereIsNotLookedAt) {
    UseFilters("true", "false", "0");
    EXPECT_CALL(m_boards.intake, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading::NotAvailable(10)));
    EXPECT_FALSE(FilterIntake(70, 200));
    EXPECT_TRUE(FilterIntake(70, -1));
}

TEST_F(MonitorFilter, Relative_RecordsChangesBeyondThePercentageOfTheNominal) {
    UseFilters("false", "true", "5");
    EXPECT_FALSE(FilterV12(12, 12.6));
    EXPECT_TRUE(FilterV12(12, 12.61));
    EXPECT_TRUE(FilterV12(12, 11.39));
    EXPECT_FALSE(FilterV12(12, 11.4));
    EXPECT_FALSE(FilterFresh(20));
}

TEST_F(MonitorFilter, Relative_NominalThatIsMissingOrNegativeNeverPasses) {
    UseFilters("false", "true", "5");
    EXPECT_CALL(m_boards.v12, GetNominal)
        .WillOnce(Return(bmc::SensorReading()))
        .WillOnce(Return(bmc::SensorReading(0)))
        .WillRepeatedly(Return(bmc::SensorReading(-12)));
    EXPECT_FALSE(FilterV12(12, 20));
    EXPECT_TRUE(FilterV12(0, 0.001));  // any change is beyond a percentage of nothing
    EXPECT_FALSE(FilterV12(-12, -7));
}

TEST_F(MonitorFilter, BothOff_EveryReadingPasses) {
    UseFilters("false", "false", "0");
    EXPECT_TRUE(FilterFresh(12));
    EXPECT_TRUE(FilterV12(12, 12));
    EXPECT_TRUE(FilterV12(12, c_nan));
}

TEST_F(MonitorFilter, BothOn_EitherLetsPass) {
    UseFilters("true", "true", "5");
    EXPECT_TRUE(FilterIntake(40, 50));
    EXPECT_TRUE(FilterIntake(75, 75.1));
    EXPECT_FALSE(FilterIntake(40, 41));
}

TEST_F(MonitorTest, RisingReadings_WarnOnceForEachThreshold) {
    m_boards.intake.Hold(70);
    StartAndPass("");
    m_log.Clear();
    for (const double reading : {80, 80, 90, 100, 100}) {
        m_boards.intake.Hold(reading);
        Pass();
    }
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("W: Sensor value is above HNC (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)",
                            "W: Sensor value is above HC (id = ICB_1[12]:Intake; value = 90 C; HC = 85)",
                            "W: Sensor value is above HNR (id = ICB_1[12]:Intake; value = 100 C; HNR = 95)"));
}

TEST_F(MonitorTest, JumpPastAllThresholds_WarnsOfTheMostSevereOnly) {
    StartAndPass("");
    m_log.Clear();
    m_boards.intake.Hold(100);
    Pass();
    m_boards.intake.Hold(90);  // back between HC and HNR: nothing
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("W: Sensor value is above HNR (id = ICB_1[12]:Intake; value = 100 C; HNR = 95)"));
}

TEST_F(MonitorTest, FirstReadingBeyondAThreshold_WarnsOnce) {
    m_boards.intake.Hold(80);
    StartAndPass("");
    Pass();
    EXPECT_EQ(m_log.Count("W: Sensor value is above HNC (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)"), 1);
}

TEST_F(MonitorTest, ReadingEqualToAThreshold_IsNeitherAboveNorBelow) {
    m_boards.intake.Hold(75);
    m_boards.core.Hold(0);
    StartAndPass("");
    EXPECT_THAT(m_log.Messages(), Not(Contains(testing::StartsWith("W:"))));
}

TEST_F(MonitorTest, FallingReadings_WarnAndTellTheReturnToNormal) {
    m_boards.intake.Hold(5);
    StartAndPass("");
    m_log.Clear();
    for (const double reading : {-1, -6, -11, 0}) {
        m_boards.intake.Hold(reading);
        Pass();
    }
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("W: Sensor value is below LNC (id = ICB_1[12]:Intake; value = -1 C; LNC = 0)",
                            "W: Sensor value is below LC (id = ICB_1[12]:Intake; value = -6 C; LC = -5)",
                            "W: Sensor value is below LNR (id = ICB_1[12]:Intake; value = -11 C; LNR = -10)",
                            "I: Sensor value is is back to normal. (id = ICB_1[12] - Intake;value = 0 C)"));
}

TEST_F(MonitorTest, ReturnToTheThresholdItself_IsBackToNormal) {
    m_boards.intake.Hold(80);
    StartAndPass("");
    m_boards.intake.Hold(75);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                Contains("I: Sensor value is is back to normal. (id = ICB_1[12] - Intake;value = 75 C)"));
}

TEST_F(MonitorTest, LimitsOnOneSideOnly_StillComesBackToNormal) {
    EXPECT_CALL(m_boards.intake, GetLowerNonCritical).WillRepeatedly(Return(bmc::SensorReading::NoLowerLimit()));
    m_boards.intake.Hold(80);
    StartAndPass("");
    m_boards.intake.Hold(70);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                Contains("I: Sensor value is is back to normal. (id = ICB_1[12] - Intake;value = 70 C)"));
}

TEST_F(MonitorTest, ThresholdNotAvailable_NeverWarns) {
    EXPECT_CALL(m_boards.intake, GetUpperNonRecoverable).WillRepeatedly(Return(bmc::SensorReading::NotAvailable(0.0)));
    m_boards.intake.Hold(100);
    StartAndPass("");
    EXPECT_THAT(m_log.Messages(),
                Contains("W: Sensor value is above HC (id = ICB_1[12]:Intake; value = 100 C; HC = 85)"));
    EXPECT_THAT(m_log.Messages(), Not(Contains(HasSubstr("HNR"))));
}

TEST_F(MonitorTest, BackFromNotAvailableBeyondALimit_IsReported) {
    StartAndPass("");
    m_log.Clear();
    m_boards.intake.Hold(c_nan);
    Pass();
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    m_boards.intake.Hold(80);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("W: Sensor value is above HNC (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)"));
}

TEST_F(MonitorTest, Numbers_HaveSixSignificantDigits) {
    m_boards.intake.Hold(1234567);
    m_boards.core.Hold(75.123456);
    EXPECT_CALL(m_boards.core, GetUpperNonCritical).WillRepeatedly(Return(bmc::SensorReading(75)));
    const std::string noUnits;
    EXPECT_CALL(m_boards.core, GetUnits).WillRepeatedly(testing::ReturnRef(noUnits));
    StartAndPass("");
    EXPECT_THAT(m_log.Messages(), Contains(HasSubstr("value = 1.23457e+06 C; HNR = 95)")));
    EXPECT_THAT(m_log.Messages(), Contains(HasSubstr("value = 75.1235 ; HNC = 75)")));
}

TEST_F(MonitorTest, AllInBand_NoSensorLogIsWritten) {
    StartAndPass("");
    Pass();
    Pass();
    EXPECT_FALSE(test::Exists(m_folder.Path() + "/sensors"));
}

TEST_F(MonitorTest, EveryReadingRecorded_LogHoldsHeaderOnceAndALineAPass) {
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    Pass();
    const std::string rule(79, '-');
    const std::string time = "[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}";
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")),
                ElementsAre(rule, "* ***** Sensor logging started *****",
                            "* Version       : " + qstd::VerInfo::Get().ToString(),
                            testing::ContainsRegex("^\\* Start time    : " + time + "$"),
                            testing::ContainsRegex("^\\* Process name  : .+$"), "* Board id      : ICB_1", rule, "",
                            "[TIME];[3]-V12;[12]-Intake", testing::ContainsRegex("^\\[" + time + "\\] ;12;48$"),
                            testing::ContainsRegex("^\\[" + time + "\\] ;12;48$")));
    EXPECT_THAT(test::ReadLines(SensorLogPath("SLOT_2")), Contains("[TIME];[5]-Core"));
    EXPECT_THAT(test::ReadLines(SensorLogPath("HOST_0")), Contains("[TIME];[7]-CPU"));
}

TEST_F(MonitorTest, EarlierRun_IsNeverCut) {
    std::filesystem::create_directories(m_folder.Path() + "/sensors");
    test::WriteFile(SensorLogPath("ICB_1"), "what an earlier run wrote\n");
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    const auto lines = test::ReadLines(SensorLogPath("ICB_1"));
    ASSERT_EQ(lines.size(), 11U);
    EXPECT_EQ(lines.front(), "what an earlier run wrote");
    EXPECT_EQ(lines[1], std::string(79, '-'));
}

TEST_F(MonitorTest, SensorGoneDuringTheRun_ShowsNotAvailable) {
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    m_log.Clear();
    EXPECT_CALL(m_boards.icb, GetSensor(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.icb, GetSensor(bmc::SensorId(12))).WillRepeatedly(Return(nullptr));
    Pass();
    const auto lines = test::ReadLines(SensorLogPath("ICB_1"));
    EXPECT_THAT(lines.back(), testing::EndsWith("] ;12;N/A"));
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "[TIME];[3]-V12;[12]-Intake"), 1);
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing sensor id: 12 on board ICB_1"));
}

TEST_F(MonitorTest, SensorGoneFromTheStart_HasAColumnWithoutName) {
    EXPECT_CALL(m_boards.icb, GetSensor(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.icb, GetSensor(bmc::SensorId(12))).WillRepeatedly(Return(nullptr));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")), Contains("[TIME];[3]-V12;[12]"));
}

TEST_F(MonitorTest, SensorThatRaises_HasNoColumnAndKeepsItsPreviousValue) {
    m_boards.intake.Hold(80);
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    m_log.Clear();
    EXPECT_CALL(m_boards.intake, Read)
        .WillOnce(Throw(qstd::Exception("bus")))
        .WillOnce(Throw(42))
        .WillRepeatedly(Return(bmc::SensorReading(80)));
    Pass();
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")).back(), testing::EndsWith("] ;12"));
    Pass();
    Pass();  // 80 as before the failure: no new crossing
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing sensor id: 12 on board ICB_1. Exception: bus",
                                              "E: Problem accessing sensor id: 12 on board ICB_1. Unknown exception."));
}

TEST_F(MonitorTest, ThresholdThatRaises_KeepsTheColumn) {
    EXPECT_CALL(m_boards.intake, GetUpperNonRecoverable).WillRepeatedly(Throw(std::runtime_error("link")));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")).back(), testing::EndsWith("] ;12;48"));
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem accessing sensor id: 12 on board ICB_1. Exception: link"));
}

TEST_F(MonitorTest, ThresholdThatRaises_TheReadingThatPassedTheFilterIsRecordedAllTheSame) {
    EXPECT_CALL(m_boards.core, GetUpperNonRecoverable).WillRepeatedly(Throw(std::runtime_error("link")));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    EXPECT_THAT(test::ReadLines(SensorLogPath("SLOT_2")).back(), testing::EndsWith("] ;40"));
}

TEST_F(MonitorTest, NameThatRaises_LeavesNoPartOfAColumn) {
    EXPECT_CALL(m_boards.intake, GetName).WillRepeatedly(Throw(std::runtime_error("link")));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")), Contains("[TIME];[3]-V12"));
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")).back(), testing::EndsWith("] ;12"));
}

TEST_F(MonitorTest, IdsListedInAnyOrder_ColumnsStandInTheOrderOfTheIds) {
    StartAndPass(std::string("<monitor>") + c_recordAll +
                 "<sensors><exclude>all</exclude><include>12,3</include></sensors></monitor>");
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")), Contains("[TIME];[3]-V12;[12]-Intake"));
}

TEST_F(MonitorTest, BoardGoneDuringTheRun_IsReportedEveryPassAndGetsNoLine) {
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    m_log.Clear();
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(bmc::Uri("u:b", "SLOT", "2"))).WillRepeatedly(Return(nullptr));
    const auto before = test::ReadLines(SensorLogPath("SLOT_2")).size();
    Pass();
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Problem accessing board: SLOT_2", "E: Problem accessing board: SLOT_2"));
    EXPECT_EQ(test::ReadLines(SensorLogPath("SLOT_2")).size(), before);
    EXPECT_EQ(test::ReadLines(SensorLogPath("HOST_0")).size(), before + 2);
}

TEST_F(MonitorTest, BoardThatRaisesInThePool_IsReportedAndTheOthersGoOn) {
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    m_log.Clear();
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(bmc::Uri("u:b", "SLOT", "2")))
        .WillOnce(Throw(qstd::Exception("bus")))
        .WillOnce(Throw(42));
    Pass();
    Pass();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board SLOT_2. Exception: bus",
                                              "E: Problem accessing board SLOT_2. Unknown exception."));
}

TEST_F(MonitorTest, FileThatCannotBeWritten_WarnsTwiceThenOnceARecordAndGoesOn) {
    // A folder where the file should be stops the superuser too.
    const std::string path = SensorLogPath("ICB_1");
    std::filesystem::create_directories(path);
    m_boards.intake.Hold(80);
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    EXPECT_EQ(m_log.Count("W: Cannot open log file for sensor: " + path), 2);
    EXPECT_EQ(m_log.Count("W: Sensor value is above HNC (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)"), 1);
    Pass();
    EXPECT_EQ(m_log.Count("W: Cannot open log file for sensor: " + path), 3);
    std::filesystem::remove(path);
    Pass();
    EXPECT_EQ(m_log.Count("W: Cannot open log file for sensor: " + path), 3);
    EXPECT_EQ(test::ReadLines(path).size(), 10U);  // nine lines of header and the record
}

TEST_F(MonitorTest, FullDisk_CostsOneWarningARecordAndNothingElse) {
    std::filesystem::create_directories(m_folder.Path() + "/sensors");
    std::filesystem::create_symlink("/dev/full", SensorLogPath("ICB_1"));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    Pass();
    EXPECT_EQ(m_log.Count("W: Cannot open log file for sensor: " + SensorLogPath("ICB_1")), 2);
    std::filesystem::remove(SensorLogPath("ICB_1"));
    Pass();
    EXPECT_EQ(test::ReadLines(SensorLogPath("ICB_1")).size(), 10U);  // the header is not lost
}

TEST_F(MonitorTest, FileDeletedBetweenPasses_IsMadeAnewWithoutHeader) {
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    std::filesystem::remove(SensorLogPath("ICB_1"));
    Pass();
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")), ElementsAre(testing::EndsWith("] ;12;48")));
}

TEST_F(MonitorTest, ReadingThatIsNotValid_IsWrittenAsItConverts) {
    EXPECT_CALL(m_boards.intake, Read).WillRepeatedly(Return(bmc::SensorReading::NotAvailable(-273.15)));
    m_boards.v12.Hold(12.3456789);
    EXPECT_CALL(m_boards.core, Read).WillRepeatedly(Return(bmc::SensorReading()));
    StartAndPass(std::string("<monitor>") + c_recordAll + "</monitor>");
    EXPECT_THAT(test::ReadLines(SensorLogPath("ICB_1")).back(), testing::EndsWith("] ;12.3457;-273.15"));
    EXPECT_THAT(test::ReadLines(SensorLogPath("SLOT_2")).back(), testing::EndsWith("] ;nan"));
}

TEST_F(MonitorTest, OnlyTheBoardWithARecordedReading_GetsALine) {
    m_boards.intake.Hold(80);
    StartAndPass("");
    EXPECT_EQ(test::ReadLines(SensorLogPath("ICB_1")).back().substr(25), " ;12;80");
    EXPECT_FALSE(test::Exists(SensorLogPath("SLOT_2")));
    m_boards.intake.Hold(70);
    Pass();  // the first reading back inside is recorded
    Pass();  // the next one is not
    EXPECT_EQ(test::ReadLines(SensorLogPath("ICB_1")).size(), 11U);
}

}  // namespace
