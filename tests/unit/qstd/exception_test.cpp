#include "qstd/exception.h"

#include <gtest/gtest.h>

#include <exception>

namespace {

TEST(Exception, KeepsItsTextLetterByLetter) {
    EXPECT_STREQ(qstd::Exception("board u:a\n 100 %s").what(), "board u:a\n 100 %s");
    EXPECT_STREQ(qstd::Exception("").what(), "");
}

TEST(Exception, FlagIsOffUnlessGiven) {
    EXPECT_FALSE(qstd::Exception("x").GetFlag());
    EXPECT_FALSE(qstd::Exception("x", false).GetFlag());
    EXPECT_TRUE(qstd::Exception("x", true).GetFlag());
}

TEST(Exception, CopyKeepsTextAndFlag) {
    const qstd::Exception original("text", true);
    const qstd::Exception copy(original);  // NOLINT(performance-unnecessary-copy-initialization): the copy is the test
    EXPECT_STREQ(copy.what(), "text");
    EXPECT_TRUE(copy.GetFlag());
}

TEST(Exception, IsAStandardException) {
    try {
        throw qstd::Exception("text");
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "text");
    }
}

}  // namespace
