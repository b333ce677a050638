#include "qstd/any.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/expect_text.h"

namespace {

TEST(Any, HoldsNothingAtFirst) {
    const qstd::Any any;
    EXPECT_TRUE(any.IsEmpty());
    EXPECT_EQ(any.GetType(), typeid(void));
    EXPECT_EQ(test::TextOf([&] { any.Get<double>(); }), "Bad any cast from void to double");
}

TEST(Any, GivesBackTheVeryValue) {
    const qstd::Any any(48.25);
    EXPECT_FALSE(any.IsEmpty());
    EXPECT_EQ(any.GetType(), typeid(double));
    EXPECT_EQ(any.Get<double>(), 48.25);
}

TEST(Any, AnotherTypeIsRefusedByName) {
    const qstd::Any any(48.25);
    EXPECT_EQ(test::TextOf([&] { any.Get<int>(); }), "Bad any cast from double to int");
    EXPECT_EQ(test::TextOf([&] { any.Get<float>(); }), "Bad any cast from double to float");
}

TEST(Any, CopyIsIndependent) {
    qstd::Any original(std::string("a"));
    const qstd::Any copy = original;
    original = qstd::Any(1);
    EXPECT_EQ(copy.Get<std::string>(), "a");
    EXPECT_EQ(original.Get<int>(), 1);
}

}  // namespace
