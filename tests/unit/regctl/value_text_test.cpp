#include "tools/regctl/value_text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/time_zone.h"
#include "tools/regctl/json_text.h"

namespace {

using qreg::ErrorCode_e;
using regctl::ParseValue;
using regctl::ValueText;

TEST(ValueText, DoublesReadBackToTheSameValue) {
    EXPECT_EQ(ValueText(0.1), "0.1");
    EXPECT_EQ(ValueText(48.0), "48");
    EXPECT_EQ(ValueText(1.0 / 3), "0.3333333333333333");
    for (const double value : {1.0 / 3, 1e300, 5e-324, -0.0, 4006.9, std::numeric_limits<double>::max()}) {
        EXPECT_EQ(ParseValue(ValueText(value)), qnode::Value(value));
    }
}

TEST(ValueText, IsOneLine) {
    EXPECT_EQ(ValueText("a\nb\x1b[31m"), "a?b?[31m");
    EXPECT_EQ(ValueText(-7), "-7");
    EXPECT_EQ(ValueText({}), "");
}

TEST(OutcomeText, SaysWhyThereIsNoValue) {
    EXPECT_EQ(regctl::OutcomeText({ErrorCode_e::ok, 4.5, ""}), "4.5");
    EXPECT_EQ(regctl::OutcomeText({ErrorCode_e::no_value, {}, "anything"}), "(no value)");
    EXPECT_EQ(regctl::OutcomeText({ErrorCode_e::failed, {}, "bus\nerror"}), "(bus?error)");
}

TEST(ParseValue, WhatReadsAsANumberIsADouble) {
    EXPECT_EQ(ParseValue("4000"), qnode::Value(4000.0));
    EXPECT_EQ(ParseValue("-100"), qnode::Value(-100.0));
    EXPECT_EQ(ParseValue("+7"), qnode::Value(7.0));
    EXPECT_EQ(ParseValue("1e3"), qnode::Value(1000.0));
    EXPECT_EQ(ParseValue(".5"), qnode::Value(0.5));
    EXPECT_EQ(ParseValue("-inf"), qnode::Value(-std::numeric_limits<double>::infinity()));
    EXPECT_TRUE(std::isnan(std::get<double>(ParseValue("nan"))));
}

TEST(ParseValue, AnythingElseIsAText) {
    for (const char* const word : {"", "fast", "4000x", " 4000", "4 000", "0x10", "+", "-", "+-5", "1,5", "1e999"}) {
        EXPECT_EQ(ParseValue(word), qnode::Value(word));
    }
}

TEST(TypeText, NamesOrNumbers) {
    EXPECT_EQ(regctl::TypeText(qnode::enums::ValueType_e::real), "double");
    EXPECT_EQ(regctl::TypeText(static_cast<qnode::enums::ValueType_e>(99)), "type-99");
    EXPECT_EQ(regctl::EventTypeText(0), "value");
    EXPECT_EQ(regctl::EventTypeText(1), "threshold");
    EXPECT_EQ(regctl::EventTypeText(65535), "present");
    EXPECT_EQ(regctl::EventTypeText(7), "type-7");
}

TEST(FlagsText, NumberAndMeaning) {
    EXPECT_EQ(regctl::FlagsText(0), "0");
    EXPECT_EQ(regctl::FlagsText(2), "2 (readable)");
    EXPECT_EQ(regctl::FlagsText(4), "4 (writable)");
    EXPECT_EQ(regctl::FlagsText(6), "6 (readable, writable)");
    EXPECT_EQ(regctl::FlagsText(9), "9");
}

TEST(TimeText, IsLocal) {
    const test::TimeZone zone("TST-2");
    const auto time = std::chrono::system_clock::time_point(std::chrono::milliseconds(1234));
    EXPECT_EQ(regctl::TimeText(time), "1970/01/01 02:00:01.234");
}

TEST(JsonText, NumbersThatJsonDoesNotKnow_AreTexts) {
    EXPECT_EQ(regctl::AssignmentJson("a", std::nan("")), R"({"path":"a","type":"double","value":"nan"})");
    EXPECT_EQ(regctl::AssignmentJson("a", -INFINITY), R"({"path":"a","type":"double","value":"-inf"})");
    EXPECT_EQ(regctl::AssignmentJson("a", 0.1), R"({"path":"a","type":"double","value":0.1})");
}

TEST(JsonText, TextsAsTheyAre_ExceptWhatIsNoUtf8) {
    EXPECT_EQ(regctl::AssignmentJson("a", "x\n\"\xC3\xBC"),
              "{\"path\":\"a\",\"type\":\"string\",\"value\":\"x\\n\\\"\xC3\xBC\"}");
    EXPECT_EQ(regctl::AssignmentJson("a", "\xFF"), "{\"path\":\"a\",\"type\":\"string\",\"value\":\"\xEF\xBF\xBD\"}");
}

}  // namespace
