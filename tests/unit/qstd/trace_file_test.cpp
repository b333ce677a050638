#include "qstd/trace_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "qstd/trace_fnc.h"
#include "tests/support/expect_text.h"
#include "tests/support/file.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"
#include "tests/support/time_zone.h"
#include "tests/support/trace_capture.h"

namespace {

using qstd::TraceFile;
using testing::ElementsAre;
using testing::IsEmpty;

class TraceFileTest : public testing::Test {
protected:
    ~TraceFileTest() override { TraceFile::GetInstance().Close(); }

    std::string Path() const { return m_folder.Path("zelkor.trace"); }

    const test::TimeZone m_zone{"UTC"};
    const test::ManualClock m_clock;
    const test::TempFolder m_folder;
};

std::string Record(const std::string& rest) {
    return "[2026/11/21 14:03:07.512] " + rest;
}

TEST_F(TraceFileTest, IsOffAtFirst) {
    EXPECT_FALSE(TraceFile::GetInstance().IsEnabled());
    EXPECT_EQ(qstd::TraceActiveLevel(), 0);
}

TEST_F(TraceFileTest, Record_HasTimeLevelThreadPlaceAndText) {
    TraceFile::GetInstance().Open(Path(), 2);
    qstd::TraceWrite(1, "void Fan::Stop()", "fan_node", 12, "text {} %");
    EXPECT_THAT(test::ReadLines(Path()),
                ElementsAre(Record("1 (" + std::to_string(::gettid()) + ") fan_node:12 void Fan::Stop(): text {} %")));
}

TEST_F(TraceFileTest, Open_AdmitsUpToTheLevel) {
    for (int level = 1; level <= TraceFile::c_maxLevel; ++level) {
        TraceFile::GetInstance().Open(Path(), level);
        EXPECT_TRUE(TraceFile::GetInstance().IsEnabled());
        EXPECT_EQ(qstd::TraceActiveLevel(), level);
    }
    TraceFile::GetInstance().Close();
    EXPECT_FALSE(TraceFile::GetInstance().IsEnabled());
    EXPECT_EQ(qstd::TraceActiveLevel(), 0);
}

TEST_F(TraceFileTest, RecordAboveTheLevel_IsNotWritten) {
    TraceFile::GetInstance().Open(Path(), 2);
    qstd::TraceWrite(3, "f", "s", 1, "x");
    EXPECT_EQ(test::ReadFile(Path()), "");
}

TEST_F(TraceFileTest, LevelOutOfRange_IsRefused) {
    EXPECT_EQ(test::TextOf([&] { TraceFile::GetInstance().Open(Path(), 0); }),
              "Trace level 0 is not in the range 1..4");
    EXPECT_EQ(test::TextOf([&] { TraceFile::GetInstance().Open(Path(), 5); }),
              "Trace level 5 is not in the range 1..4");
    EXPECT_FALSE(test::Exists(Path()));
}

TEST_F(TraceFileTest, FileThatCannotBeOpened_IsNamedWithTheReason_AndTheOpenOneStays) {
    TraceFile::GetInstance().Open(Path(), 1);
    EXPECT_EQ(test::TextOf([&] { TraceFile::GetInstance().Open(m_folder.Path(), 3); }),
              "Cannot open trace file " + m_folder.Path() + ": Is a directory");
    EXPECT_EQ(qstd::TraceActiveLevel(), 1);
    qstd::TraceWrite(1, "f", "s", 1, "x");
    EXPECT_EQ(test::ReadLines(Path()).size(), 1U);
}

TEST_F(TraceFileTest, Appends) {
    test::WriteFile(Path(), "earlier run\n");
    TraceFile::GetInstance().Open(Path(), 1);
    qstd::TraceWrite(1, "f", "s", 1, "x");
    const auto lines = test::ReadLines(Path());
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "earlier run");
}

TEST_F(TraceFileTest, ReopenedAfterRename_NewFileGetsTheNextRecords) {
    TraceFile::GetInstance().Reopen();  // without a file: nothing
    TraceFile::GetInstance().Open(Path(), 1);
    qstd::TraceWrite(1, "f", "s", 1, "one");
    std::filesystem::rename(Path(), Path() + ".1");
    TraceFile::GetInstance().Reopen();
    qstd::TraceWrite(1, "f", "s", 1, "two");
    EXPECT_THAT(test::ReadLines(Path() + ".1"), ElementsAre(testing::EndsWith("one")));
    EXPECT_THAT(test::ReadLines(Path()), ElementsAre(testing::EndsWith("two")));
}

TEST_F(TraceFileTest, ReopenThatFails_GoesOnInTheFileItHad) {
    TraceFile::GetInstance().Open(Path(), 1);
    std::filesystem::rename(Path(), Path() + ".1");
    std::filesystem::create_directory(Path());
    TraceFile::GetInstance().Reopen();
    qstd::TraceWrite(1, "f", "s", 1, "x");
    EXPECT_EQ(test::ReadLines(Path() + ".1").size(), 1U);
}

TEST_F(TraceFileTest, FullDisk_DisturbsNobody) {
    TraceFile::GetInstance().Open("/dev/full", 1);
    EXPECT_NO_THROW(qstd::TraceWrite(1, "f", "s", 1, "x"));
}

TEST_F(TraceFileTest, ListenerAndFile_EachHasItsLevel) {
    TraceFile::GetInstance().Open(Path(), 1);
    {
        const test::TraceCapture capture(3);
        EXPECT_EQ(qstd::TraceActiveLevel(), 3);
        qstd::TraceWrite(1, "f", "s", 1, "one");
        qstd::TraceWrite(3, "f", "s", 1, "three");
        qstd::TraceWrite(4, "f", "s", 1, "four");
        EXPECT_THAT(capture.Texts(), ElementsAre("one", "three"));
    }
    EXPECT_EQ(qstd::TraceActiveLevel(), 1);
    EXPECT_THAT(test::ReadLines(Path()), ElementsAre(testing::EndsWith("one")));
}

TEST_F(TraceFileTest, ManyThreads_WriteWholeRecords) {
    TraceFile::GetInstance().Open(Path(), 4);
    constexpr int c_records = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            for (int record = 0; record < c_records; ++record) {
                if (qstd::TraceActiveLevel() > 0) {
                    qstd::TraceWrite(1, "f", "s", 1, "text");
                }
            }
        });
    }
    threads.emplace_back([] {
        for (int round = 0; round < 20; ++round) {
            TraceFile::GetInstance().Reopen();
            const test::TraceCapture capture(1);
        }
    });
    for (auto& thread : threads) {
        thread.join();
    }
    const auto lines = test::ReadLines(Path());
    EXPECT_EQ(lines.size(), 4U * c_records);
    // Only the thread's number, digits, stands between these two.
    const std::string before = Record("1 (");
    const std::string after = ") s:1 f: text";
    for (const std::string& line : lines) {
        ASSERT_THAT(line, testing::AllOf(testing::StartsWith(before), testing::EndsWith(after)));
        const std::string thread = line.substr(before.size(), line.size() - before.size() - after.size());
        EXPECT_EQ(thread.find_first_not_of("0123456789"), std::string::npos) << line;
    }
}

// --- the helpers of a function

class Fan {
public:
    virtual ~Fan() = default;
    virtual int Stop(const char* /*why*/, int /*rpm*/) const {
        const qstd::TraceFnc trace;
        return 1;
    }
    void Say(int level) const { qstd::TraceHere(level, "text"); }
    std::string Name() const { return qstd::ThisFncName(); }
};

#ifdef __clang__  // its version 14 gives no signatures
constexpr const char* c_stop = "Stop";
constexpr const char* c_say = "Say";
constexpr const char* c_name = "Name";
#else
constexpr const char* c_stop = "virtual int {anonymous}::Fan::Stop(const char*, int) const";
constexpr const char* c_say = "void {anonymous}::Fan::Say(int) const";
constexpr const char* c_name = "std::string {anonymous}::Fan::Name() const";
#endif

TEST(TraceFnc, TracesEntryAndExitAtLevel4) {
    const test::TraceCapture trace(4);
    Fan().Stop("", 0);
    const auto records = trace.Records();
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].text, "entry");
    EXPECT_EQ(records[1].text, "exit");
    for (const auto& record : records) {
        EXPECT_EQ(record.level, 4);
        EXPECT_EQ(record.function, c_stop);
        EXPECT_EQ(record.source, "tests/unit/qstd/trace_file_test");
        EXPECT_GT(record.line, 0);
    }
}

TEST(TraceFnc, ExitIsTracedWhenAnExceptionLeaves) {
    const test::TraceCapture trace(4);
    const auto raise = [] {
        const qstd::TraceFnc inside;
        throw qstd::Exception("x");
    };
    EXPECT_THROW(raise(), qstd::Exception);
    EXPECT_THAT(trace.Texts(), ElementsAre("entry", "exit"));
}

TEST(TraceFnc, BelowLevel4_NothingIsTraced) {
    const test::TraceCapture trace(3);
    Fan().Stop("", 0);
    EXPECT_THAT(trace.Records(), IsEmpty());
}

TEST(TraceHere, NamesTheCallingFunction) {
    const test::TraceCapture trace(2);
    Fan().Say(2);
    Fan().Say(3);
    const auto records = trace.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 2);
    EXPECT_EQ(records[0].function, c_say);
    EXPECT_EQ(records[0].text, "text");
}

TEST(ThisFncName, IsTheSignatureOfTheCallingFunction) {
    EXPECT_EQ(Fan().Name(), c_name);
}

}  // namespace
