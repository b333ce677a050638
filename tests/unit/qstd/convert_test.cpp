#include "qstd/convert.h"

#include <gtest/gtest.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <limits>
#include <locale>
#include <random>
#include <sstream>

#include "tests/support/expect_text.h"

namespace {

using qstd::FromString;
using qstd::HexTo;

TEST(CppName, IsTheReadableName) {
    EXPECT_EQ(qstd::CppName(typeid(int)), "int");
    EXPECT_EQ(qstd::CppName(typeid(unsigned int)), "unsigned int");
    EXPECT_EQ(qstd::CppName(typeid(long long)), "long long");
    EXPECT_EQ(qstd::CppName(typeid(qstd::Exception)), "qstd::Exception");
}

TEST(HexTo, ReadsDigitsWithAndWithoutPrefix) {
    EXPECT_EQ(HexTo<unsigned int>("0x1F"), 31U);
    EXPECT_EQ(HexTo<unsigned int>("1f"), 31U);
    EXPECT_EQ(HexTo<unsigned int>("0xffffffff"), 4294967295U);
    EXPECT_EQ(HexTo<unsigned int>("0x0000000000000000000001"), 1U);
    EXPECT_EQ(HexTo<unsigned int>("0"), 0U);
    EXPECT_EQ(HexTo<std::uint16_t>("0xFFFF"), 65535U);
}

TEST(HexTo, AnythingElseIsRefusedWithTheText) {
    for (const std::string text : {"0x1G", "0x", "", "0x100000000", "0X1F", " 1f", "1f ", "0x 1", "+7", "-1", "0x-1",
                                   "0x+1", "0x0x1", "0x1.0", "x1"}) {
        EXPECT_EQ(test::TextOf([&] { HexTo<unsigned int>(text); }), "Bad hex cast from " + text + " to unsigned int");
    }
    EXPECT_EQ(test::TextOf([] { HexTo<int>("-1"); }), "Bad hex cast from -1 to int");
    EXPECT_EQ(test::TextOf([] { HexTo<int>("0x80000000"); }), "Bad hex cast from 0x80000000 to int");
}

TEST(FromString, ReadsDecimalNumbers) {
    EXPECT_EQ(FromString<int>("+7"), 7);
    EXPECT_EQ(FromString<int>("-1"), -1);
    EXPECT_EQ(FromString<int>("007"), 7);
    EXPECT_EQ(FromString<int>("-2147483648"), std::numeric_limits<int>::min());
    EXPECT_EQ(FromString<long long>("9223372036854775807"), std::numeric_limits<long long>::max());
    EXPECT_EQ(FromString<double>("2.5"), 2.5);
    EXPECT_EQ(FromString<double>("-1e3"), -1000.0);
    EXPECT_EQ(FromString<double>(".5"), 0.5);
}

TEST(FromString, NegativeTextForAnUnsignedNumber_WrapsAsTheLibraryDoes) {
    EXPECT_EQ(FromString<unsigned int>("-1"), 4294967295U);
}

TEST(FromString, AnythingElseIsRefusedWithTheText) {
    for (const std::string text : {"12abc", "", " 12", "12 ", "0x1F", "1.5", "2147483648", "1,000", "--1", "one"}) {
        EXPECT_EQ(test::TextOf([&] { FromString<int>(text); }), "Bad cast from " + text + " to int");
    }
    EXPECT_EQ(test::TextOf([] { FromString<unsigned int>("x1"); }), "Bad cast from x1 to unsigned int");
    EXPECT_EQ(test::TextOf([] { FromString<double>("abc"); }), "Bad cast from abc to double");
    EXPECT_EQ(test::TextOf([] { FromString<double>("2,5"); }), "Bad cast from 2,5 to double");
    EXPECT_EQ(test::TextOf([] { FromString<double>(" 2.5"); }), "Bad cast from  2.5 to double");
    EXPECT_EQ(test::TextOf([] { FromString<double>("1e999"); }), "Bad cast from 1e999 to double");
}

TEST(ToBool, TakesFourPairsOfWordsInAnyCase) {
    for (const char* text : {"true", "1", "yes", "on", "TRUE", "Yes", "oN"}) {
        EXPECT_TRUE(qstd::ToBool(text)) << text;
    }
    for (const char* text : {"false", "0", "no", "off", "FALSE", "No", "oFf"}) {
        EXPECT_FALSE(qstd::ToBool(text)) << text;
    }
}

TEST(ToBool, AnythingElseIsRefusedWithTheText) {
    for (const std::string text : {"maybe", "", " true", "true ", "2", "-1", "t", "y", "truee"}) {
        EXPECT_EQ(test::TextOf([&] { qstd::ToBool(text); }), "Bad bool cast from " + text);
    }
    const std::string withNull("true\0", 5);
    EXPECT_EQ(test::TextOf([&] { qstd::ToBool(withNull); }), "Bad bool cast from true");
}

struct EqualCase {
    double left;
    double right;
    bool isEqual;
};

TEST(Equal, TableOfCases) {
    constexpr double c_nan = std::numeric_limits<double>::quiet_NaN();
    constexpr double c_infinity = std::numeric_limits<double>::infinity();
    constexpr double c_largest = std::numeric_limits<double>::max();
    for (const auto& [left, right, isEqual] : {EqualCase{1, 1, true},
                                               {0.0, -0.0, true},
                                               {0.0, 0.9e-9, true},
                                               {0.0, 1.1e-9, false},
                                               {1.0, 1.0 + 0.9e-9, true},
                                               {1.0, 1.0 + 1.1e-9, false},
                                               {1000.0, 1000.0 + 0.9e-6, true},
                                               {1000.0, 1000.0 + 1.1e-6, false},
                                               {-1000.0, -1000.0 - 0.9e-6, true},
                                               {0.1 + 0.2, 0.3, true},
                                               {1.0, -1.0, false},
                                               {5e-324, 0.0, true},
                                               {c_largest, c_largest, true},
                                               {c_largest, -c_largest, false},
                                               {c_nan, c_nan, true},
                                               {c_nan, -c_nan, true},
                                               {c_nan, 0.0, false},
                                               {c_nan, c_infinity, false},
                                               {c_infinity, c_infinity, true},
                                               {-c_infinity, -c_infinity, true},
                                               {c_infinity, -c_infinity, false},
                                               {c_infinity, c_largest, false}}) {
        EXPECT_EQ(qstd::Equal(left, right), isEqual) << left << " and " << right;
        EXPECT_EQ(qstd::Equal(right, left), isEqual) << right << " and " << left;
    }
}

std::string StreamText(double value) {
    std::ostringstream out;
    out.imbue(std::locale::classic());
    out << value;
    return out.str();
}

TEST(AppendNumber, WritesANumberAsAStreamDoes) {
    for (const double value : {0.0,
                               -0.0,
                               1.0,
                               12.0,
                               12.3456789,
                               48.25,
                               -273.15,
                               999999.0,
                               1000000.0,
                               999999.5,
                               0.0001,
                               0.00001,
                               1e100,
                               1e-5,
                               123456.5,
                               0.1 + 0.2,
                               5e-324,
                               std::numeric_limits<double>::max(),
                               std::numeric_limits<double>::lowest(),
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(qstd::NumberText(value), StreamText(value));
    }
    EXPECT_EQ(qstd::NumberText(12.3456789), "12.3457");
}

TEST(AppendNumber, WritesEveryBitPatternAsAStreamDoes) {
    std::mt19937_64 random(20261121);
    for (int i = 0; i < 200000; ++i) {
        const auto value = std::bit_cast<double>(random());
        if (!std::isnan(value)) {
            ASSERT_EQ(qstd::NumberText(value), StreamText(value));
        }
        // And of the sizes that sensors give.
        const double reading = static_cast<double>(static_cast<std::int64_t>(random() % 20000000) - 10000000) / 1000.0;
        ASSERT_EQ(qstd::NumberText(reading), StreamText(reading));
    }
}

TEST(AppendNumber, NanHasNoSign) {
    EXPECT_EQ(qstd::NumberText(std::numeric_limits<double>::quiet_NaN()), "nan");
    EXPECT_EQ(qstd::NumberText(-std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(AppendNumber, AppendsWholeNumbersOfEveryType) {
    std::string text = "x";
    qstd::AppendNumber(text, -12);
    qstd::AppendNumber(text, 7U);
    qstd::AppendNumber(text, std::numeric_limits<long long>::min());
    qstd::AppendNumber(text, static_cast<std::uint8_t>(65));
    EXPECT_EQ(text, "x-127-922337203685477580865");
}

/// A locale that writes 1.5 as "1,5" and groups digits, whatever is installed.
struct CommaNumbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(AppendNumber, GlobalLocaleOfTheProgram_ChangesNothing) {
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
    EXPECT_EQ(qstd::NumberText(1234.5), "1234.5");
    EXPECT_EQ(test::TextOf([] { EXPECT_EQ(HexTo<int>("0x1234"), 0x1234); }), "(no exception)");
    std::locale::global(before);
}

TEST(Numbers, LocaleOfTheCLibrary_ChangesNothing) {
    const std::string before = std::setlocale(LC_ALL, nullptr);
    if (std::setlocale(LC_ALL, "de_DE.UTF-8") == nullptr && std::setlocale(LC_ALL, "fr_FR.UTF-8") == nullptr) {
        GTEST_SKIP() << "no locale with a decimal comma is installed";
    }
    EXPECT_EQ(qstd::NumberText(1234.5), "1234.5");
    EXPECT_EQ(FromString<double>("1234.5"), 1234.5);
    EXPECT_EQ(test::TextOf([] { FromString<double>("1234,5"); }), "Bad cast from 1234,5 to double");
    std::setlocale(LC_ALL, before.c_str());
}

}  // namespace
