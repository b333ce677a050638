#include "qstd/enum_map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qstd/bi_map.h"
#include "tests/support/expect_text.h"

namespace {

enum class Colour_e { red = 44, green = 2, blue = -1 };

}  // namespace

template <>
const qstd::BiMap<Colour_e> qstd::EnumMap<Colour_e>::items{
    {Colour_e::red, "red"}, {Colour_e::green, "green"}, {Colour_e::blue, "12"}};

namespace {

using Map = qstd::BiMap<Colour_e>;

const Map& Items() {
    return qstd::EnumMap<Colour_e>::items;
}

TEST(BiMap, GivesNamesOfValuesAndValuesOfNames) {
    EXPECT_EQ(Items().GetName(Colour_e::green), "green");
    EXPECT_STREQ(Items().FindName(Colour_e::red), "red");
    EXPECT_EQ(Items().FindValue("red"), Colour_e::red);
    EXPECT_EQ(Items().FindNumber(44), Colour_e::red);
    EXPECT_EQ(Items().FindNumber(-1), Colour_e::blue);
}

TEST(BiMap, UnknownValueHasNoName) {
    EXPECT_EQ(Items().FindName(static_cast<Colour_e>(7)), nullptr);
    EXPECT_EQ(test::TextOf([] { Items().GetName(static_cast<Colour_e>(7)); }), "invalid value");
}

TEST(BiMap, UnknownNameOrNumberHasNoValue) {
    EXPECT_EQ(Items().FindValue("Red"), std::nullopt);
    EXPECT_EQ(Items().FindValue(""), std::nullopt);
    EXPECT_EQ(Items().FindValue("red "), std::nullopt);
    EXPECT_EQ(Items().FindNumber(7), std::nullopt);
    EXPECT_EQ(Items().FindNumber(44LL + (1LL << 32)), std::nullopt);
}

TEST(BiMap, NamesComeInTheOrderOfTheValues) {
    std::vector<std::string> names;
    for (const auto& [value, name] : Items().GetNames()) {
        names.emplace_back(name);
    }
    EXPECT_THAT(names, testing::ElementsAre("12", "green", "red"));
}

TEST(BiMap, RepeatedValueIsRefused) {
    EXPECT_EQ(test::TextOf([] {
                  Map({{Colour_e::red, "red"}, {Colour_e::red, "rouge"}});
              }),
              "invalid enum description table");
}

TEST(BiMap, RepeatedNameIsRefused) {
    // Two texts at two addresses: names are compared letter by letter.
    static const char first[] = "red";
    static const char second[] = "red";
    EXPECT_EQ(test::TextOf([] {
                  Map({{Colour_e::red, first}, {Colour_e::green, second}});
              }),
              "invalid enum description table");
}

TEST(BiMap, EmptyTableIsATable) {
    EXPECT_EQ(test::TextOf([] { Map({}); }), "(no exception)");
}

TEST(BimapStrCmp, OrdersAsCTexts) {
    const qstd::BimapStrCmp less;
    EXPECT_TRUE(less("a", "b"));
    EXPECT_TRUE(less("a", "aa"));
    EXPECT_TRUE(less("B", "a"));
    EXPECT_FALSE(less("a", "a"));
}

TEST(EnumFromString, ExactNameIsTheValue) {
    EXPECT_EQ(qstd::EnumFromString<Colour_e>("red"), Colour_e::red);
}

TEST(EnumFromString, NameBeatsNumber) {
    EXPECT_EQ(qstd::EnumFromString<Colour_e>("12"), Colour_e::blue);
}

TEST(EnumFromString, NumberOfAValueIsThatValue) {
    EXPECT_EQ(qstd::EnumFromString<Colour_e>("44"), Colour_e::red);
    EXPECT_EQ(qstd::EnumFromString<Colour_e>("-1"), Colour_e::blue);
}

TEST(EnumFromString, NeitherNameNorNumber_InvalidIntegerValue) {
    for (const char* text : {"Red", "", " red", "44 ", "4.4", "0x2c", "9223372036854775808"}) {
        EXPECT_EQ(test::TextOf([&] { qstd::EnumFromString<Colour_e>(text); }), "Invalid integer value") << text;
    }
}

TEST(EnumFromString, NumberOfNoValue_InvalidEnumValue) {
    for (const char* text : {"9999", "0", "-44", "4294967340", "9223372036854775807"}) {
        EXPECT_EQ(test::TextOf([&] { qstd::EnumFromString<Colour_e>(text); }), "Invalid enum value") << text;
    }
}

}  // namespace
