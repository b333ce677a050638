#include "qstd/strings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qstd/source_name.h"
#include "qstd/thread_name.h"
#include "tests/support/file.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(TokenizeString, SplitsAtEverySeparator) {
    EXPECT_THAT(qstd::TokenizeString("16,17", ','), ElementsAre("16", "17"));
    EXPECT_THAT(qstd::TokenizeString("a/b/c", '/'), ElementsAre("a", "b", "c"));
    EXPECT_THAT(qstd::TokenizeString("16", ','), ElementsAre("16"));
}

TEST(TokenizeString, SkipsEmptyTokens) {
    EXPECT_THAT(qstd::TokenizeString("16,17,", ','), ElementsAre("16", "17"));
    EXPECT_THAT(qstd::TokenizeString(",,16,,17", ','), ElementsAre("16", "17"));
    EXPECT_THAT(qstd::TokenizeString(",", ','), IsEmpty());
    EXPECT_THAT(qstd::TokenizeString("", ','), IsEmpty());
}

TEST(TokenizeString, TrimsNothing) {
    EXPECT_THAT(qstd::TokenizeString(" 16, 17\n", ','), ElementsAre(" 16", " 17\n"));
    EXPECT_THAT(qstd::TokenizeString(" , ", ','), ElementsAre(" ", " "));
}

TEST(GetProgName, IsTheProgramWithoutItsFolder) {
    EXPECT_EQ(qstd::GetProgName(), "qstd_test");
}

TEST(OneLine, ControlCharactersBecomeQuestionMarks) {
    EXPECT_EQ(qstd::OneLine("a\nb\tc\x7f\x1b[0m"), "a?b?c??[0m");
    EXPECT_EQ(qstd::OneLine(std::string("\0", 1)), "?");
    EXPECT_EQ(qstd::OneLine("a\u009b2J\u0085"), "a??2J??");
    EXPECT_EQ(qstd::OneLine("\u00a0\u00bf\xc2"), "\u00a0\u00bf\xc2");
    EXPECT_EQ(qstd::OneLine("T\u00fcr 20 \u00b0C"), "T\u00fcr 20 \u00b0C");
}

TEST(SourceName, IsThePathWithoutSuffix) {
    EXPECT_EQ(qstd::SourceName("core/shared/qstd/log.h"), "core/shared/qstd/log");
    EXPECT_EQ(qstd::SourceName("monitor.cpp"), "monitor");
    EXPECT_EQ(qstd::SourceName("a.b/monitor"), "a.b/monitor");
    EXPECT_EQ(qstd::SourceName(""), "");
}

TEST(SetThreadName, NamesTheThread_CutTo15Characters) {
    const std::string before = test::ReadLines("/proc/thread-self/comm").at(0);
    qstd::SetThreadName("a-rather-long-name");
    EXPECT_EQ(test::ReadLines("/proc/thread-self/comm").at(0), "a-rather-long-n");
    qstd::SetThreadName(before);
}

}  // namespace
