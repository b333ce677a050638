#include "qnode/value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

using qnode::ToText;
using qnode::TypeOf;
using qnode::Value;
using qnode::enums::ValueType_e;

TEST(Value, TypeIsThatOfWhatItHolds) {
    EXPECT_EQ(TypeOf(Value()), ValueType_e::empty);
    EXPECT_EQ(TypeOf(Value(1)), ValueType_e::integer);
    EXPECT_EQ(TypeOf(Value(1.0)), ValueType_e::real);
    EXPECT_EQ(TypeOf(Value("1")), ValueType_e::text);
}

TEST(ValueType, NumbersAndNamesAreThoseOfTheProtocol) {
    const auto& names = qstd::EnumMap<ValueType_e>::items;
    EXPECT_EQ(names.GetName(static_cast<ValueType_e>(0)), "empty");
    EXPECT_EQ(names.GetName(static_cast<ValueType_e>(2)), "integer");
    EXPECT_EQ(names.GetName(static_cast<ValueType_e>(6)), "double");
    EXPECT_EQ(names.GetName(static_cast<ValueType_e>(8)), "string");
    EXPECT_EQ(names.GetNames().size(), 4U);
}

TEST(Value, ToText_DoublesReadBackToTheSameValue_InFewDigits) {
    using Limits = std::numeric_limits<double>;
    for (const double value : {0.0, -0.0, 0.1, 1.0 / 3, 2500.5, 1e21, -1e-7, Limits::max(), Limits::min(),
                               Limits::denorm_min(), Limits::lowest(), Limits::epsilon(), 1935483.0 / 967}) {
        const std::string text = ToText(value);
        const double back = std::strtod(text.c_str(), nullptr);
        EXPECT_EQ(back, value) << text;
        EXPECT_EQ(std::signbit(back), std::signbit(value)) << text;
    }
    EXPECT_EQ(ToText(0.1), "0.1");
    EXPECT_EQ(ToText(4000.0), "4000");
    EXPECT_EQ(ToText(2500.5), "2500.5");
    EXPECT_EQ(ToText(-0.0), "-0");
}

TEST(Value, ToText_NotANumber_HasNoSign) {
    EXPECT_EQ(ToText(std::nan("")), "nan");
    EXPECT_EQ(ToText(-std::nan("")), "nan");
}

TEST(Value, ToText_Infinities) {
    EXPECT_EQ(ToText(HUGE_VAL), "inf");
    EXPECT_EQ(ToText(-HUGE_VAL), "-inf");
}

TEST(Value, ToText_Integers) {
    EXPECT_EQ(ToText(0), "0");
    EXPECT_EQ(ToText(std::numeric_limits<int>::max()), "2147483647");
    EXPECT_EQ(ToText(std::numeric_limits<int>::min()), "-2147483648");
}

TEST(Value, ToText_TextsAndNothing) {
    EXPECT_EQ(ToText(Value(" 4 \xC2\xB0 C")), " 4 \xC2\xB0 C");
    EXPECT_EQ(ToText(Value("")), "");
    EXPECT_EQ(ToText(Value()), "");
}

}  // namespace
