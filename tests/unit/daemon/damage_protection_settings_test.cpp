// The damage protection's life, settings and report.

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "damage_protection_fixture.h"
#include "report_blanks.h"
#include "tests/support/log_gate.h"

namespace {

using test::DamageProtectionTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Return;
using testing::Throw;

const std::string c_protectionBoards = c_s37 + "u:a  (icb)\n" + c_s38 + " 12\n" + c_s37 + "u:b  (power_supply)\n" +
                                       c_s38 + " 5\n" + c_s37 + "u:c  (os)\n" + c_s38 + " 7\n";

std::string ProtectionReport(const std::string& enabled, const std::string& frequency, const std::string& sensors) {
    return "I: Damage Protection settings:\n" + c_s35 + "enabled   = " + enabled + "\n" + c_s35 +
           "frequency = " + frequency + " seconds\n" + c_s35 + "Controlling following sensors\n" + sensors;
}

std::string Enclosed(const std::string& entries) {
    return "<damage_protection><sensors>" + entries + "</sensors></damage_protection>";
}

TEST_F(DamageProtectionTest, ClassName_IsTheSection) {
    StartAndEnd("<damage_protection enabled='false'/>");
    EXPECT_EQ(m_worker->GetClassName(), "damage_protection");
}

TEST_F(DamageProtectionTest, NoSection_DefaultsHoldAndEveryTemperatureSensorIsWatched) {
    StartAndPass("");
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre("I: *Damage Protection process started.", "I: No settings found for Damage Protection module",
                    "I: Configuration for Damage Protection is not available. Using default values",
                    ProtectionReport("true", "60", c_protectionBoards)));
}

TEST_F(DamageProtectionTest, EmptySectionOrTwo_CountAsNone) {
    for (const char* const sections : {"<damage_protection> </damage_protection>",
                                       "<damage_protection><frequency>5</frequency></damage_protection>"
                                       "<damage_protection enabled='false'/>"}) {
        m_log.Clear();
        StartAndPass(sections);
        EXPECT_THAT(m_log.Messages(), ElementsAre(_, "I: No settings found for Damage Protection module", _,
                                                  ProtectionReport("true", "60", c_protectionBoards)));
        m_worker.reset();
    }
}

TEST_F(DamageProtectionTest, Section_IsReadAndReported) {
    StartAndPass("<damage_protection enabled='true'><frequency>5</frequency></damage_protection>");
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Damage Protection process started.",
                                              ProtectionReport("true", "5", c_protectionBoards)));
}

TEST_F(DamageProtectionTest, Disabled_ReportsAndEndsWithoutAPass) {
    EXPECT_CALL(m_boards.core, Read).Times(0);
    StartAndEnd("<damage_protection enabled='false'/>");
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Damage Protection process started.",
                                              ProtectionReport("false", "60", c_protectionBoards),
                                              "I: *Damage Protection process stopped"));
}

TEST_F(DamageProtectionTest, EnabledThatIsNoBoolean_IsIgnored) {
    StartAndPass("<damage_protection enabled='maybe'/>");
    EXPECT_THAT(m_log.Messages(), Contains(ProtectionReport("true", "60", c_protectionBoards)));
}

TEST_F(DamageProtectionTest, NothingSelected_SaysSoAndEndsWithoutAPass) {
    EXPECT_CALL(m_boards.core, Read).Times(0);
    StartAndEnd(Enclosed("<exclude>all</exclude>"));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Damage Protection process started.",
                                              ProtectionReport("true", "60", c_s37 + "No sensors found!\n"),
                                              "I: *Damage Protection process stopped"));
}

TEST_F(DamageProtectionTest, NoBoards_NothingToProtect) {
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillRepeatedly(Return(std::vector<bmc::Uri>()));
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(), Contains(ProtectionReport("true", "60", c_s37 + "No sensors found!\n")));
}

TEST_F(DamageProtectionTest, AnySensorCanBeIncluded_AndTheTemperatureSensorsAreTheStart) {
    StartAndPass(Enclosed("<include board='u:a'>3</include><exclude board='u:c'>all</exclude>"));
    EXPECT_THAT(m_log.Messages(), Contains(ProtectionReport("true", "60",
                                                            c_s37 + "u:a  (icb)\n" + c_s38 + " 3\n" + c_s38 + " 12\n" +
                                                                c_s37 + "u:b  (power_supply)\n" + c_s38 + " 5\n")));
}

TEST_F(DamageProtectionTest, Frequency_IsAnUnsignedNumberAndKeepsItsDefaultOtherwise) {
    for (const auto& [text, seconds] :
         {std::pair("7", "7"), std::pair("0x10", "16"), std::pair("0", "0"), std::pair("4294967295", "4294967295"),
          std::pair("abc", "60"), std::pair("12abc", "60"), std::pair("4294967296", "60"), std::pair("-1", "60"),
          std::pair("-4294967290", "60"), std::pair("", "60")}) {
        m_log.Clear();
        StartAndEnd(std::string("<damage_protection enabled='false'><frequency>") + text +
                    "</frequency></damage_protection>");
        EXPECT_THAT(m_log.Messages(), Contains(ProtectionReport("false", seconds, c_protectionBoards))) << text;
        m_worker.reset();
    }
}

TEST_F(DamageProtectionTest, FrequencyThatIsNegative_IsTracedLikeAnyThatDoesNotConvert) {
    const test::TraceCapture trace(2);
    StartAndEnd("<damage_protection enabled='false'><frequency>-5</frequency></damage_protection>");
    EXPECT_THAT(trace.Texts(), Contains("Cannot cast from config value: Bad cast from -5 to unsigned int"));
}

TEST_F(DamageProtectionTest, BoardMissingAtTheSelection_IsToldForEachList) {
    PoolFinds(m_slot2Uri, nullptr);
    StartAndEnd("<damage_protection enabled='false'/>");
    EXPECT_EQ(m_log.Count("E: Problem accessing board: SLOT_2"), 2);
    m_log.Clear();
    StartAndPass("");
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre(
            "I: *Damage Protection process started.", "I: No settings found for Damage Protection module",
            "I: Configuration for Damage Protection is not available. Using default values",
            "E: Problem accessing board: SLOT_2",
            ProtectionReport("true", "60",
                             c_s37 + "u:a  (icb)\n" + c_s38 + " 12\n" + c_s37 + "u:c  (os)\n" + c_s38 + " 7\n")));
}

TEST_F(DamageProtectionTest, BoardGoneAtTheReport_HasAnEmptyTypeName) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(m_slot2Uri))
        .WillOnce(Return(&m_boards.slot2))  // all sensors
        .WillOnce(Return(&m_boards.slot2))  // temperature sensors
        .WillRepeatedly(Return(nullptr));
    StartAndEnd("<damage_protection enabled='false'/>");
    EXPECT_THAT(m_log.Messages(), Contains(HasSubstr(c_s37 + "u:b  ()\n" + c_s38 + " 5\n")));
}

TEST_F(DamageProtectionTest, BoardTypeWithoutAName_EndsTheWorker) {
    EXPECT_CALL(m_boards.slot2, GetType).WillRepeatedly(Return(static_cast<bmc::BoardType_e>(200)));
    EXPECT_CALL(m_boards.core, Read).Times(0);
    StartAndEnd("");
    const auto messages = m_log.Messages();
    EXPECT_THAT(messages, Contains("E: Problem in Damage Protection process - invalid value"));
    EXPECT_EQ(messages.back(), "I: *Damage Protection process stopped");
}

TEST_F(DamageProtectionTest, BadSensorId_EndsTheWorkerWithItsErrorAndNothingElse) {
    const test::TraceCapture trace(1);
    StartAndEnd(Enclosed("<include>x</include>"));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Damage Protection process started.",
                                              "E: Problem in Damage Protection process - Bad cast from x to int",
                                              "I: *Damage Protection process stopped"));
    const auto records = trace.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().level, 1);
    EXPECT_EQ(records.back().source, "damage_protection");
    EXPECT_EQ(records.back().function, "void DamageProtection::operator()()");
    EXPECT_EQ(records.back().text, " .Error: Bad cast from x to int");
}

TEST_F(DamageProtectionTest, ExceptionBeforeTheLoop_ShowsTheTextOfAnyStandardOneAndEndsTheWorker) {
    const test::TraceCapture trace(1);
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillOnce(Throw(std::runtime_error("link"))).WillOnce(Throw(42));
    for (const auto& [text, traced] :
         {std::pair("link", " .Error: link"), std::pair("Unknown Exception", "Unknown Exception")}) {
        m_log.Clear();
        StartAndEnd("");
        EXPECT_THAT(m_log.Messages(), Contains(std::string("E: Problem in Damage Protection process - ") + text));
        m_worker.reset();
        ASSERT_FALSE(trace.Records().empty());
        EXPECT_EQ(trace.Records().back().text, traced);
    }
}

TEST_F(DamageProtectionTest, StopWhileAsleep_EndsAtOnceAndASecondStopDoesNothing) {
    StartAndPass("");
    m_worker->StopThread();
    m_worker->StopThread();
    ASSERT_TRUE(m_log.WaitFor("I: *Damage Protection process stopped"));
    EXPECT_EQ(m_log.Count("I: *Damage Protection process stopped"), 1);
}

TEST_F(DamageProtectionTest, StopBeforeEnabledIsRead_StaysAStop) {
    test::LogGate gate;  // the worker's first message comes before it reads its settings
    EXPECT_CALL(m_boards.core, Read).Times(0);
    Start("<damage_protection enabled='true'><frequency>60</frequency></damage_protection>");
    m_worker->StopThread();
    gate.Open();
    ASSERT_TRUE(m_log.WaitFor("I: *Damage Protection process stopped"));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Damage Protection process started.",
                                              ProtectionReport("false", "60", c_protectionBoards),
                                              "I: *Damage Protection process stopped"));
}

TEST_F(DamageProtectionTest, Period_RunsFromTheEndOfAPassToTheNext) {
    StartAndPass("<damage_protection><frequency>5</frequency></damage_protection>");
    EXPECT_CALL(m_boards.core, Read).Times(1);
    m_clock.Advance(std::chrono::milliseconds(4999));
    EXPECT_EQ(m_clock.CountSleeps(), 1);
    m_clock.Advance(std::chrono::milliseconds(1));
    m_clock.WaitForSleeps(2);
}

TEST_F(DamageProtectionTest, ZeroPeriod_PassesWithoutPauseAndStillStops) {
    Start("<damage_protection><frequency>0</frequency></damage_protection>");
    for (int pass = 1; pass <= 3; ++pass) {
        m_clock.WaitForSleeps(pass);
        m_clock.Advance(std::chrono::milliseconds(1));
    }
    m_worker->StopThread();
    EXPECT_TRUE(m_log.WaitFor("I: *Damage Protection process stopped"));
}

TEST_F(DamageProtectionTest, Convert_AppendsInOrderAndClearsNothing) {
    Module::Selection selection;
    selection[&m_boards.slot2] = {bmc::SensorId(5), bmc::SensorId(1)};
    selection[&m_boards.icb] = {bmc::SensorId(200), bmc::SensorId(-1), bmc::SensorId(3)};
    Module::SensorIds out;
    DamageProtection::Convert(selection, out);
    DamageProtection::Convert(selection, out);
    std::string text;
    for (const auto& [uri, ids] : out) {
        text += uri.ToString() + ":";
        for (const bmc::SensorId& id : ids) {
            text += " " + bmc::ToString(id);
        }
        text += ";";
    }
    EXPECT_EQ(text, "u:a: -1 3 200 -1 3 200;u:b: 1 5 1 5;");
}

using DamageProtectionDeathTest = DamageProtectionTest;

/// The single instance lives to the end of the process, so it gets a process of its own.
TEST_F(DamageProtectionDeathTest, FirstCallFromManyThreads_ConstructsOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            m_application.Use("", m_folder.Path());
            std::vector<const DamageProtection*> instances(8);
            std::vector<std::thread> callers;
            for (const DamageProtection*& instance : instances) {
                callers.emplace_back([&instance] { instance = &DamageProtection::GetInstance(); });
            }
            for (std::thread& caller : callers) {
                caller.join();
            }
            m_clock.WaitForSleeps(1);
            DamageProtection::GetInstance().StopThread();
            const bool isOne = instances == std::vector<const DamageProtection*>(8, instances.front()) &&
                               m_log.WaitFor("I: *Damage Protection process stopped") &&
                               m_log.Count("I: *Damage Protection process started.") == 1;
            std::exit(isOne ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
