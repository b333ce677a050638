#include "bmc/ipmi/sensor_units.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using bmc::ipmi::UnitCodes;
using bmc::ipmi::UnitsText;

std::string OfBase(std::uint8_t base) {
    UnitCodes codes;
    codes.base = base;
    return UnitsText(codes);
}

TEST(SensorUnits, BaseUnit_ItsUsualName) {
    const std::vector<std::pair<std::uint8_t, std::string>> cases{
        {1, "degrees C"},
        {2, "degrees F"},
        {3, "degrees K"},
        {4, "Volts"},
        {5, "Amps"},
        {6, "Watts"},
        {7, "Joules"},
        {11, "lumen"},
        {12, "lux"},
        {14, "kPa"},
        {17, "CFM"},
        {18, "RPM"},
        {19, "Hz"},
        {29, "feet"},
        {38, "fluid ounce"},
        {58, "PPM"},
        {82, "overflow"},
        {89, "correctable error"},
        {90, "uncorrectable error"},
        {92, "grams"},
    };
    for (const auto& [code, name] : cases) {
        EXPECT_EQ(OfBase(code), name) << int{code};
    }
}

TEST(SensorUnits, NothingSpecified_Empty) {
    EXPECT_EQ(OfBase(0), "");
    EXPECT_EQ(OfBase(93), "") << "beyond the table";
    EXPECT_EQ(OfBase(255), "");
}

TEST(SensorUnits, Percentage_PercentOrOfAUnit) {
    UnitCodes codes;
    codes.isPercentage = true;
    EXPECT_EQ(UnitsText(codes), "percent");
    codes.base = 6;
    EXPECT_EQ(UnitsText(codes), "% Watts");
}

TEST(SensorUnits, ModifierUnit_DividesOrMultiplies) {
    UnitCodes codes;
    codes.base = 7;
    codes.modifier = 22;
    EXPECT_EQ(UnitsText(codes), "Joules") << "a modifier that is said not to be used";
    codes.relation = 1;
    EXPECT_EQ(UnitsText(codes), "Joules/second");
    codes.relation = 2;
    EXPECT_EQ(UnitsText(codes), "Joules * second");
    codes.modifier = 0;
    EXPECT_EQ(UnitsText(codes), "Joules");
    codes.modifier = 200;
    EXPECT_EQ(UnitsText(codes), "Joules");
}

TEST(SensorUnits, Rate_PerTime) {
    UnitCodes codes;
    codes.base = 6;
    codes.rate = 5;
    EXPECT_EQ(UnitsText(codes), "Watts per hour");
    codes.rate = 7;
    EXPECT_EQ(UnitsText(codes), "Watts") << "no such rate";
    codes.base = 18;
    codes.rate = 4;
    EXPECT_EQ(UnitsText(codes), "RPM") << "per minute already";
    codes.rate = 3;
    EXPECT_EQ(UnitsText(codes), "RPM per second");
}

}  // namespace
