// The life of the time synchronization, its settings, report and choice of boards.

#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "qcfg/document.h"
#include "qstd/exception.h"
#include "qstd/trace_file.h"
#include "report_blanks.h"
#include "time_sync_fixture.h"

namespace {

using qstd::Time;
using test::TimeSyncTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::Return;
using testing::Throw;

std::string TimeSyncReport(const std::string& enabled, const std::string& frequency, const std::string& delta) {
    return "I: Time Synchronization settings:\n" + c_s35 + "enabled   = " + enabled + "\n" + c_s35 +
           "frequency = " + frequency + " seconds\n" + c_s35 + "delta     = " + delta + " seconds";
}

TEST_F(TimeSyncTest, ClassName_IsTheSection) {
    StartAndPass("");
    EXPECT_EQ(m_worker->GetClassName(), "timesync");
}

TEST_F(TimeSyncTest, NoSection_DefaultsHoldAndAllBoardsButTheHostAreSynchronized) {
    StartAndPass("");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: No settings found for Time Synchronization module",
                            "I: Configuration for time synchronization is not available. Using default values",
                            TimeSyncReport("true", "3600", "2"), "I: *Time synchronization process started.",
                            "I: Reference for time synchronization is board HOST_0.",
                            "I: Board SLOT_2 will be synchronized.", "I: Board ICB_1 will be synchronized."));
}

TEST_F(TimeSyncTest, EmptySectionOrTwo_CountAsNone) {
    for (const char* const sections :
         {"<timesync> </timesync>", "<timesync><delta>5</delta></timesync><timesync enabled='false'/>"}) {
        m_log.Clear();
        StartAndPass(sections);
        EXPECT_THAT(m_log.Messages(), Contains("I: No settings found for Time Synchronization module"));
        EXPECT_THAT(m_log.Messages(), Contains(TimeSyncReport("true", "3600", "2")));
        m_worker.reset();
    }
}

TEST_F(TimeSyncTest, Section_IsReadAndReported) {
    StartAndPass("<timesync enabled='true'><frequency>60</frequency><delta>0x5</delta></timesync>");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(TimeSyncReport("true", "60", "5"), "I: *Time synchronization process started.", _, _, _));
}

TEST_F(TimeSyncTest, ValuesThatAreNoNumbers_KeepTheirDefaults) {
    StartAndPass("<timesync enabled='maybe'><frequency>abc</frequency><delta>5s</delta></timesync>");
    EXPECT_THAT(m_log.Messages(), Contains(TimeSyncReport("true", "3600", "2")));
}

TEST_F(TimeSyncTest, Disabled_ReportsOnlyAndTouchesNoBoard) {
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).Times(0);
    EXPECT_CALL(m_boards.backend, GetBoard).Times(0);
    Start("<timesync enabled='false'/>");
    m_worker.reset();  // waits for the end
    EXPECT_THAT(m_log.Messages(), ElementsAre(TimeSyncReport("false", "3600", "2")));
}

TEST_F(TimeSyncTest, StopBeforeTheLoop_ReportsOnly) {
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).Times(0);
    std::promise<void> stop;
    const std::shared_future<void> stopped = stop.get_future().share();
    qstd::TraceFile::GetInstance().Listen([stopped](const auto& /*record*/) { stopped.wait(); }, 2);
    Start("<timesync enabled='true'><frequency>abc</frequency></timesync>");  // whose reading is traced
    m_worker->StopThread();
    stop.set_value();
    m_worker.reset();
    qstd::TraceFile::GetInstance().Listen(nullptr, 0);
    EXPECT_THAT(m_log.Messages(), ElementsAre(TimeSyncReport("false", "3600", "2")));
}

TEST_F(TimeSyncTest, EnabledReadAfterAStop_StaysAStop) {
    StartAndPass("");
    m_worker->StopThread();
    ASSERT_TRUE(m_log.WaitFor(m_stopped));
    m_log.Clear();
    EXPECT_TRUE(m_worker->Deserialize({qcfg::ReadXmlText("<timesync enabled='true'/>", "test")}));
    m_worker->LogProperties();
    EXPECT_THAT(m_log.Messages(), ElementsAre(TimeSyncReport("false", "3600", "2")));
}

TEST_F(TimeSyncTest, StopWhileAsleep_EndsAtOnceAndASecondStopDoesNothing) {
    StartAndPass("");
    m_worker->StopThread();
    m_worker->StopThread();
    ASSERT_TRUE(m_log.WaitFor("I: *Time synchronization process stopped"));
    EXPECT_EQ(m_log.Count("I: *Time synchronization process stopped"), 1);
}

TEST_F(TimeSyncTest, Period_RunsFromTheEndOfAPassToTheNext) {
    StartAndPass("");
    EXPECT_CALL(m_boards.slot2, GetTime).Times(1);
    m_clock.Advance(std::chrono::seconds(3599));
    EXPECT_EQ(m_clock.CountSleeps(), 1);
    m_clock.Advance(std::chrono::seconds(1));
    m_clock.WaitForSleeps(2);
}

TEST_F(TimeSyncTest, PeriodOfZeroOrLess_PassesWithoutPauseAndStillStops) {
    for (const char* const period : {"0", "-5"}) {
        m_log.Clear();
        Start(std::string("<timesync><frequency>") + period + "</frequency></timesync>");
        for (int pass = 1; pass <= 3; ++pass) {
            m_clock.WaitForSleeps(++m_passes);
            m_clock.Advance(std::chrono::milliseconds(1));
        }
        m_worker->StopThread();
        EXPECT_TRUE(m_log.WaitFor(m_stopped));
        m_worker.reset();
        m_passes = m_clock.CountSleeps();
    }
}

TEST_F(TimeSyncTest, OnlyTheHost_WarnsAndEnds) {
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris)
        .WillRepeatedly(Return(std::vector<bmc::Uri>{bmc::Uri("u:c", "HOST", "0")}));
    const test::TraceCapture trace(2);
    StartAndEnd("");
    const std::string warning = "Cannot find boards for time synchronization - stopping the synchronization process.";
    EXPECT_THAT(m_log.Messages(), ElementsAre(_, _, _, "I: *Time synchronization process started.",
                                              "I: Reference for time synchronization is board HOST_0.", "W: " + warning,
                                              "I: *Time synchronization process stopped"));
    EXPECT_EQ(m_clock.CountSleeps(), 0);
    ASSERT_EQ(trace.Records().size(), 1U);
    EXPECT_EQ(trace.Records().front().level, 2);
    EXPECT_EQ(trace.Records().front().text, warning);
}

TEST_F(TimeSyncTest, NoBoards_WarnsAndEnds) {
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillRepeatedly(Return(std::vector<bmc::Uri>()));
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(),
                ElementsAre(_, _, _, "I: *Time synchronization process started.",
                            "W: Cannot find boards for time synchronization - stopping the synchronization process.",
                            "I: *Time synchronization process stopped"));
}

TEST_F(TimeSyncTest, ExceptionBeforeTheFirstPass_EndsTheWorker) {
    const test::TraceCapture trace(1);
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillOnce(Throw(qstd::Exception("bus"))).WillOnce(Throw(42));
    for (const auto& [text, traced] :
         {std::pair("bus", " .Error: bus"), std::pair("Unknown Exception", "Unknown Exception")}) {
        m_log.Clear();
        StartAndEnd("");
        EXPECT_THAT(m_log.Messages(), ElementsAre(_, _, _, "I: *Time synchronization process started.",
                                                  std::string("E: Problem in time synchronization process - ") + text,
                                                  "I: *Time synchronization process stopped"));
        m_worker.reset();
        ASSERT_FALSE(trace.Records().empty());
        EXPECT_EQ(trace.Records().back().text, traced);
        EXPECT_EQ(trace.Records().back().function, "void TimeSync::operator()()");
    }
    EXPECT_EQ(m_clock.CountSleeps(), 0);
}

TEST_F(TimeSyncTest, BoardWhoseTypeRaises_EndsTheWorkerBeforeTheFirstPass) {
    EXPECT_CALL(m_boards.slot2, GetType).WillRepeatedly(Throw(qstd::Exception("bus")));
    StartAndEnd("");
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem in time synchronization process - bus"));
    EXPECT_EQ(m_clock.CountSleeps(), 0);
}

using TimeSyncDeathTest = TimeSyncTest;

/// The single instance lives to the end of the process, so it gets a process of its own.
TEST_F(TimeSyncDeathTest, FirstCallFromManyThreads_ConstructsOne) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            m_application.Use("", m_folder.Path());
            std::vector<const TimeSync*> instances(8);
            std::vector<std::thread> callers;
            for (const TimeSync*& instance : instances) {
                callers.emplace_back([&instance] { instance = &TimeSync::GetInstance(); });
            }
            for (std::thread& caller : callers) {
                caller.join();
            }
            m_clock.WaitForSleeps(1);
            TimeSync::GetInstance().StopThread();
            const bool isOne = instances == std::vector<const TimeSync*>(8, instances.front()) &&
                               m_log.WaitFor("I: *Time synchronization process stopped") &&
                               m_log.Count("I: *Time synchronization process started.") == 1;
            std::exit(isOne ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
