#include "qstd/log.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"
#include "tests/support/time_zone.h"
#include "tests/support/trace_capture.h"

namespace {

using qstd::Log;
using testing::ElementsAre;
using testing::IsEmpty;

/// A log file in a folder of its own, written under a standing clock.
class LogTest : public testing::Test {
protected:
    LogTest() { Log::m_enabled = false; }
    ~LogTest() override {
        Log::m_enabled = false;
        Log::GetInstance().RemoveSink(m_sink);
    }

    std::string Path() const { return m_folder.Path("zelkor.log"); }
    void Open() { m_sink = Log::GetInstance().OpenFile(Path()); }

    const test::TimeZone m_zone{"UTC"};
    test::ManualClock m_clock;
    test::TempFolder m_folder;
    std::shared_ptr<qstd::LogSink> m_sink;
};

constexpr const char* c_stamp = "[2026/11/21 14:03:07.512] ";

std::string Line(const std::string& level, const std::string& text) {
    return c_stamp + level + std::string(9 - level.size(), ' ') + text;
}

TEST_F(LogTest, FileLine_HasStampLevelAndText) {
    Open();
    Log::GetInstance().Info("*Monitor process started.");
    Log::GetInstance().Warning("w");
    Log::GetInstance().Error("e");
    Log::GetInstance().Critical("c");
    EXPECT_EQ(test::ReadFile(Path()),
              "[2026/11/21 14:03:07.512] INFO     *Monitor process started.\n"
              "[2026/11/21 14:03:07.512] WARNING  w\n"
              "[2026/11/21 14:03:07.512] ERROR    e\n"
              "[2026/11/21 14:03:07.512] CRITICAL c\n");
}

TEST_F(LogTest, Prefix_IsThirtyFiveCharactersWide) {
    Open();
    Log::GetInstance().Info("first\n" + std::string(35, ' ') + "second");
    const auto lines = test::ReadLines(Path());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].find("first"), 35U);
    EXPECT_EQ(lines[1].find("second"), 35U);
}

TEST_F(LogTest, MessageThatEndsWithANewline_LeavesNoEmptyLine) {
    Open();
    Log::GetInstance().Info("a\nb\n");
    Log::GetInstance().Info("");
    Log::GetInstance().Info("\n");
    Log::GetInstance().Info("c\n\n");
    EXPECT_THAT(test::ReadLines(Path()),
                ElementsAre(Line("INFO", "a"), "b", Line("INFO", ""), Line("INFO", ""), Line("INFO", "c"), ""));
}

TEST_F(LogTest, TextIsNotAFormat) {
    Open();
    Log::GetInstance().Info("{} %v %d 100 %");
    EXPECT_THAT(test::ReadLines(Path()), ElementsAre(Line("INFO", "{} %v %d 100 %")));
}

TEST_F(LogTest, OpenedAgain_Appends) {
    test::WriteFile(Path(), "earlier run\n");
    Open();
    Log::GetInstance().Info("x");
    EXPECT_THAT(test::ReadLines(Path()), ElementsAre("earlier run", Line("INFO", "x")));
}

TEST_F(LogTest, OpenFile_CreatesFoldersAndEnablesTheLog) {
    EXPECT_FALSE(Log::m_enabled);
    m_sink = Log::GetInstance().OpenFile(m_folder.Path("a/b/zelkor.log"));
    EXPECT_TRUE(Log::m_enabled);
    EXPECT_TRUE(test::Exists(m_folder.Path("a/b/zelkor.log")));
}

TEST_F(LogTest, FileThatCannotBeOpened_IsNamedWithTheReason) {
    std::filesystem::create_directory(Path());
    EXPECT_EQ(test::TextOf([&] { Open(); }), "Cannot open log file " + Path() + ": Is a directory");
    test::WriteFile(m_folder.Path("file"), "");
    const std::string below = m_folder.Path("file/zelkor.log");
    EXPECT_EQ(test::TextOf([&] { Log::GetInstance().OpenFile(below); }),
              "Cannot open log file " + below + ": Not a directory");
    EXPECT_FALSE(Log::m_enabled);
}

TEST_F(LogTest, ReopenedAfterRename_OldFileKeepsItsLinesAndNewOneGetsTheNext) {
    Open();
    Log::GetInstance().Info("one");
    std::filesystem::rename(Path(), Path() + ".1");
    Log::GetInstance().Info("two");
    Log::GetInstance().Reopen();
    Log::GetInstance().Info("three");
    EXPECT_THAT(test::ReadLines(Path() + ".1"), ElementsAre(Line("INFO", "one"), Line("INFO", "two")));
    EXPECT_THAT(test::ReadLines(Path()), ElementsAre(Line("INFO", "three")));
}

TEST_F(LogTest, ReopenThatFails_GoesOnInTheFileItHad) {
    Open();
    std::filesystem::rename(Path(), Path() + ".1");
    std::filesystem::create_directory(Path());
    Log::GetInstance().Reopen();
    Log::GetInstance().Info("x");
    EXPECT_THAT(test::ReadLines(Path() + ".1"),
                ElementsAre(Line("WARNING", "Cannot open log file " + Path() +
                                                " anew: Is a directory. Messages go on to the file opened before."),
                            Line("INFO", "x")));
}

TEST_F(LogTest, FullDisk_LostMessagesAreCountedAndSaidLater) {
    std::filesystem::create_symlink("/dev/full", Path());
    Open();
    Log::GetInstance().Info("one");
    Log::GetInstance().Info("two");
    Log::GetInstance().Info("three");
    std::filesystem::rename(Path(), Path() + ".1");
    Log::GetInstance().Reopen();
    Log::GetInstance().Info("four");
    Log::GetInstance().Info("five");
    EXPECT_THAT(
        test::ReadLines(Path()),
        ElementsAre(Line("WARNING", "3 log messages before this one could not be written: No space left on device"),
                    Line("INFO", "four"), Line("INFO", "five")));
}

TEST_F(LogTest, OneLostMessage_IsSaidInTheSingular) {
    std::filesystem::create_symlink("/dev/full", Path());
    Open();
    Log::GetInstance().Info("one");
    std::filesystem::remove(Path());
    Log::GetInstance().Reopen();
    Log::GetInstance().Info("two");
    EXPECT_THAT(
        test::ReadLines(Path()),
        ElementsAre(Line("WARNING", "1 log message before this one could not be written: No space left on device"),
                    Line("INFO", "two")));
}

TEST_F(LogTest, StandardErrorThatNobodyReads_CostsMessagesNotTheProgram) {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    // The writing end blocks, as that of a program's standard error does.
    ::fcntl(ends[1], F_SETFL, ::fcntl(ends[1], F_GETFL) & ~O_NONBLOCK);
    const int before = ::dup(STDERR_FILENO);
    ::dup2(ends[1], STDERR_FILENO);
    m_sink = Log::GetInstance().OpenStandardError();
    for (int i = 0; i < 200; ++i) {
        qstd::LogInfo(std::string(2000, 'x'));
    }
    const auto readAll = [&ends] {
        std::string text;
        std::array<char, 4096> buffer{};
        for (ssize_t size = 0; (size = ::read(ends[0], buffer.data(), buffer.size())) > 0;) {
            text.append(buffer.data(), static_cast<std::size_t>(size));
        }
        return text;
    };
    const std::string shown = readAll();
    const auto lines = std::count(shown.begin(), shown.end(), '\n');
    qstd::LogInfo("read again");
    const std::string after = readAll();
    ::dup2(before, STDERR_FILENO);
    for (const int descriptor : {before, ends[0], ends[1]}) {
        ::close(descriptor);
    }
    EXPECT_GT(lines, 10);
    EXPECT_LT(lines, 200);
    EXPECT_THAT(after, testing::HasSubstr("WARNING  " + std::to_string(200 - lines) +
                                          " log messages before this one could not be shown.\n"));
    EXPECT_THAT(after, testing::HasSubstr("INFO     read again\n"));
}

TEST_F(LogTest, StandardError_ShowsTheSameLines) {
    testing::internal::CaptureStderr();
    m_sink = Log::GetInstance().OpenStandardError();
    Log::GetInstance().Error("e\n");
    EXPECT_TRUE(Log::m_enabled);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), Line("ERROR", "e") + "\n");
}

TEST_F(LogTest, DisabledLog_GetsNothingFromTheHelpers) {
    Open();
    Log::m_enabled = false;
    qstd::LogInfo("x");
    qstd::LogCritical("x");
    EXPECT_EQ(test::ReadFile(Path()), "");
}

TEST_F(LogTest, ManyThreads_WriteWholeLines) {
    Open();
    constexpr int c_messages = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int message = 0; message < c_messages; ++message) {
                qstd::LogInfo(std::string(100, static_cast<char>('a' + i)));
            }
        });
    }
    threads.emplace_back([this] {
        for (int round = 0; round < 20; ++round) {
            std::filesystem::rename(Path(), m_folder.Path("old" + std::to_string(round)));
            Log::GetInstance().Reopen();
        }
    });
    threads.emplace_back([] {
        for (int round = 0; round < 20; ++round) {
            const test::LogCapture capture;
        }
    });
    for (auto& thread : threads) {
        thread.join();
    }
    int count = 0;
    for (const auto& file : std::filesystem::directory_iterator(m_folder.Path())) {
        for (const std::string& line : test::ReadLines(file.path().string())) {
            ++count;
            EXPECT_EQ(line, Line("INFO", std::string(100, line.back())));
        }
    }
    EXPECT_EQ(count, 4 * c_messages);
}

// --- the helpers and the trace

constexpr const char* c_source = "core/shared/qstd/log";

struct Helper {
    void (*log)(const std::string&);
    int level;
    const char* function;
    const char* message;
};

const Helper c_helpers[] = {{qstd::LogInfo, 3, "void qstd::LogInfo(const std::string&)", "I: x"},
                            {qstd::LogWarning, 2, "void qstd::LogWarning(const std::string&)", "W: x"},
                            {qstd::LogError, 1, "void qstd::LogError(const std::string&)", "E: x"},
                            {qstd::LogCritical, 1, "void qstd::LogCritical(const std::string&)", "C: x"}};

TEST(LogHelpers, TraceAtTheirLevel_ThenLog) {
    for (const Helper& helper : c_helpers) {
        test::LogCapture log;
        const test::TraceCapture trace(helper.level);
        helper.log("x");
        ASSERT_EQ(trace.Records().size(), 1U) << helper.function;
        const auto record = trace.Records().at(0);
        EXPECT_EQ(record.level, helper.level);
        EXPECT_EQ(record.function, helper.function);
        EXPECT_EQ(record.source, c_source);
        EXPECT_EQ(record.text, "x");
        EXPECT_THAT(log.Messages(), ElementsAre(helper.message));
    }
}

TEST(LogHelpers, TraceBelowTheirLevel_OnlyLog) {
    for (const Helper& helper : c_helpers) {
        test::LogCapture log;
        const test::TraceCapture trace(helper.level - 1);
        helper.log("x");
        EXPECT_THAT(trace.Records(), IsEmpty()) << helper.function;
        EXPECT_THAT(log.Messages(), ElementsAre(helper.message));
    }
}

TEST(LogHelpers, LogDisabled_OnlyTrace) {
    for (const Helper& helper : c_helpers) {
        test::LogCapture log;
        Log::m_enabled = false;
        const test::TraceCapture trace(helper.level);
        helper.log("x");
        EXPECT_THAT(trace.Texts(), ElementsAre("x")) << helper.function;
        EXPECT_THAT(log.Messages(), IsEmpty());
    }
}

TEST(LogHelpers, InfoIsTracedFromLine75) {
    const test::TraceCapture trace(3);
    qstd::LogInfo("x");
    ASSERT_EQ(trace.Records().size(), 1U);
    EXPECT_EQ(trace.Records()[0].line, 75);
}

TEST(LogHelpers, TraceRecordComesBeforeTheLogMessage) {
    struct Sink : qstd::LogSink {
        explicit Sink(std::vector<std::string>& into) : order(into) {}
        void Write(qstd::LogLevel_e, const qstd::Time&, const std::string&) override { order.emplace_back("log"); }
        std::vector<std::string>& order;
    };
    std::vector<std::string> order;
    const test::LogCapture enabled;
    const auto sink = std::make_shared<Sink>(order);
    Log::GetInstance().AddSink(sink);
    for (const Helper& helper : c_helpers) {
        qstd::TraceFile::GetInstance().Listen([&](const auto&) { order.emplace_back("trace"); }, 4);
        order.clear();
        helper.log("x");
        EXPECT_THAT(order, ElementsAre("trace", "log")) << helper.function;
    }
    qstd::TraceFile::GetInstance().Listen(nullptr, 0);
    Log::GetInstance().RemoveSink(sink);
}

}  // namespace
