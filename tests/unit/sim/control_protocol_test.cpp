#include "bmc/sim/control_protocol.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qstd/exception.h"

namespace {

using namespace bmc::sim;  // NOLINT(google-build-using-namespace)

TEST(ControlProtocol, Fields_AreSplitAtTabsAndEmptyOnesKept) {
    EXPECT_EQ(SplitFields("fail\tio/1\t\tno answer"), (std::vector<std::string>{"fail", "io/1", "", "no answer"}));
    EXPECT_EQ(SplitFields(""), std::vector<std::string>{""});
    EXPECT_EQ(SplitFields("\t"), (std::vector<std::string>{"", ""}));
}

TEST(ControlProtocol, Join_IsTheReverseOfSplit) {
    const std::vector<std::string> fields = {"a", "", "b c", ""};
    EXPECT_EQ(SplitFields(JoinFields(fields)), fields);
}

TEST(ControlProtocol, FieldWithTabNewlineOrNull_IsRefused) {
    EXPECT_THROW(JoinFields({"a\tb"}), qstd::Exception);
    EXPECT_THROW(JoinFields({"a\nb"}), qstd::Exception);
    EXPECT_THROW(JoinFields({std::string("a\0b", 3)}), qstd::Exception);
}

TEST(ControlProtocol, Numbers_ReadBackToTheSameValue) {
    for (const double value : {0.0, 0.1, -12.34, 1e300, 5e-324, 1.0 / 3, std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(ParseReal(RealText(value)), value);
    }
    EXPECT_EQ(RealText(0.1), "0.1");
    EXPECT_EQ(RealText(-std::nan("")), "nan");
    EXPECT_TRUE(std::isnan(ParseReal("nan").value()));
    EXPECT_EQ(RealText(-std::numeric_limits<double>::infinity()), "-inf");
}

TEST(ControlProtocol, TextThatIsNoNumber_IsNothing) {
    for (const char* const text : {"", " 1", "1 ", "1x", "x", "0x10", "--1", "1e999"}) {
        EXPECT_EQ(ParseReal(text), std::nullopt) << text;
    }
    EXPECT_EQ(ParseInteger("11", 0, 10), std::nullopt);
    EXPECT_EQ(ParseInteger("10", 0, 10), 10);
    EXPECT_EQ(ParseInteger("1.5", 0, 10), std::nullopt);
}

TEST(ControlProtocol, Registers_AreDecimalOrHexadecimal) {
    EXPECT_EQ(ParseRegister("0x40"), 0x40U);
    EXPECT_EQ(ParseRegister("64"), 64U);
    EXPECT_EQ(ParseRegister("0XffFF"), 0xFFFFU);
    for (const char* const text : {"", "0x", "65536", "0x10000", "-1", "4g", "0x-1"}) {
        EXPECT_EQ(ParseRegister(text), std::nullopt) << text;
    }
    EXPECT_EQ(AddressText(0x6a), "0x6a");
}

}  // namespace
