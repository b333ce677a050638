#include "qstd/time.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <limits>
#include <sstream>

#include "tests/support/expect_text.h"
#include "tests/support/manual_clock.h"
#include "tests/support/time_zone.h"

namespace {

using qstd::Time;
using test::TimeZone;

void ExpectTime(const Time& time, std::int64_t seconds, std::int32_t microseconds) {
    EXPECT_EQ(time.GetSeconds(), seconds);
    EXPECT_EQ(time.GetMicroseconds(), microseconds);
}

TEST(Time, DifferenceAndSumCarry) {
    ExpectTime(Time(10, 200000) - Time(2, 0), 8, 200000);
    ExpectTime(Time(1, 900000) + Time(0, 200000), 2, 100000);
    ExpectTime(Time(3, 100000) - Time(1, 200000), 1, 900000);
    ExpectTime(Time(1, 999999) + Time(0, 1), 2, 0);
    ExpectTime(Time(1, 0) - Time(0, 1), 0, 999999);
    ExpectTime(Time(5, 7) - Time(5, 7), 0, 0);
}

TEST(Time, NegativeDifference_HasSecondsRoundedDown) {
    ExpectTime(Time(1, 0) - Time(2, 500000), -2, 500000);
    ExpectTime(Time(2, 0) - Time(3, 0), -1, 0);
    ExpectTime(Time(0, 0) - Time(0, 1), -1, 999999);
    EXPECT_EQ((Time(1, 0) - Time(2, 500000)).ToMicroseconds(), -1500000);
    EXPECT_LT(Time(1, 0) - Time(2, 0), Time(0, 0));
    ExpectTime((Time(1, 0) - Time(2, 500000)) + Time(2, 500000), 1, 0);
}

TEST(Time, AMillionMicrosecondsAndMore_AreSeconds) {
    ExpectTime(Time(1, 1000000), 2, 0);
    ExpectTime(Time(0, 2500001), 2, 500001);
}

TEST(Time, ComparesExactlyToTheMicrosecond) {
    const Time small(5, 10);
    const Time large(5, 11);
    EXPECT_FALSE(small == large);
    EXPECT_TRUE(small != large);
    EXPECT_TRUE(small < large);
    EXPECT_FALSE(large < small);
    EXPECT_TRUE(large > small);
    EXPECT_TRUE(small <= large);
    EXPECT_FALSE(large <= small);
    EXPECT_TRUE(large >= small);
    EXPECT_TRUE(small == Time(5, 10));
    EXPECT_TRUE(small <= Time(5, 10));
    EXPECT_TRUE(small >= Time(5, 10));
    EXPECT_FALSE(small < Time(5, 10));
    EXPECT_LT(Time(4, 999999), Time(5, 0));
}

TEST(Time, MicrosecondsThereAndBack) {
    for (const std::int64_t count : {0LL, 1LL, -1LL, 999999LL, -1000000LL, -1000001LL, 1795269787512345LL}) {
        const Time time = Time::FromMicroseconds(count);
        EXPECT_EQ(time.ToMicroseconds(), count);
        EXPECT_GE(time.GetMicroseconds(), 0);
        EXPECT_LT(time.GetMicroseconds(), 1000000);
    }
}

TEST(Time, WhatNoCountOfSecondsHolds_StaysAtTheNearest) {
    constexpr auto c_most = std::numeric_limits<std::int64_t>::max();
    const Time longest(std::numeric_limits<std::uint64_t>::max(), 0);
    ExpectTime(longest, c_most, 0);
    ExpectTime(Time(static_cast<std::uint64_t>(c_most), 1000000), c_most, 0);
    ExpectTime(longest + Time(1, 0), c_most, 0);
    EXPECT_EQ(longest.ToMicroseconds(), c_most);
    const Time least = Time(0, 0) - longest - longest - longest;
    EXPECT_LT(least.GetSeconds(), -c_most + 2);
    EXPECT_EQ(least.ToMicroseconds(), std::numeric_limits<std::int64_t>::min());
    EXPECT_LT(least, longest);
    ExpectTime(longest - longest, 0, 0);
    ExpectTime(least - least, 0, 0);
}

TEST(Time, KindsAreCurrentAndZero) {
    const test::ManualClock clock;
    ExpectTime(Time(Time::c_zero), 0, 0);
    ExpectTime(Time(7), 1795269787, 512000);
    ExpectTime(Time::Now(7), 1795269787, 512000);
    ExpectTime(Time::Now(Time::c_zero), 0, 0);
    EXPECT_EQ(test::TextOf([] { Time(1); }), "Unknown kind of time: 1 (known: 0 zero, 7 current)");
    EXPECT_EQ(test::TextOf([] { Time::Now(-7); }), "Unknown kind of time: -7 (known: 0 zero, 7 current)");
}

TEST(Time, UpdateToCurrent_RefreshesAConstTime) {
    test::ManualClock clock;
    const Time time(1, 2);
    time.UpdateToCurrent();
    EXPECT_EQ(time, Time::Now(7));
    clock.Advance(std::chrono::microseconds(1));
    EXPECT_LT(time, Time::Now(7));
    time.UpdateToCurrent();
    EXPECT_EQ(time, Time::Now(7));
}

TEST(Time, HostClock_IsTheCurrentTime) {
    const auto before = std::time(nullptr);
    const Time now(7);
    EXPECT_GE(now.GetSeconds(), before);
    EXPECT_LE(now.GetSeconds(), before + 60);
}

TEST(Time, CopyIsAValue) {
    Time one(1, 1);
    const Time copy = one;
    one = Time(2, 2);
    ExpectTime(copy, 1, 1);
    ExpectTime(one, 2, 2);
}

TEST(Time, PrintsLocalTimeWithCutMilliseconds) {
    const TimeZone zone("UTC");
    std::ostringstream out;
    out << Time(1795269787, 512999);
    EXPECT_EQ(out.str(), "2026/11/21 14:03:07.512");
    EXPECT_EQ(Time(0, 0).ToString(), "1970/01/01 00:00:00.000");
    EXPECT_EQ((Time(0, 0) - Time(0, 1)).ToString(), "1969/12/31 23:59:59.999");
}

TEST(Time, PrintsInTheZoneOfTheProcess) {
    const TimeZone zone("IST-5:30");
    EXPECT_EQ(Time(1795269787, 512000).ToString(), "2026/11/21 19:33:07.512");
}

TEST(Time, PrintsSecondsWhereNoCalendarReaches) {
    EXPECT_EQ(Time(std::numeric_limits<std::uint64_t>::max(), 0).ToString(), "9223372036854775807 s");
}

}  // namespace
