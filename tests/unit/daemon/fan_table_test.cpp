#include "fan_table.h"
#include "tests/support/special_numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace {

using fan_table::FanTable;

const FanTable c_usualTable = {{40, 50, 3000}, {45, 60, 4000}, {55, 70, 6500}};
const FanTable c_withGap = {{20, 30, 2500}, {40, 50, 3000}};
const FanTable c_oneBand = {{40, 50, 3000}};

struct StepCase {
    std::string name;
    FanTable table;
    std::uint32_t band;
    double temperature;
    std::uint32_t expectedBand;
    std::uint32_t expectedRpm;
    std::string expectedWarning;
};

void PrintTo(const StepCase& step, std::ostream* out) {
    *out << "band " << step.band << " at " << step.temperature;
}

class FanTableStep : public testing::TestWithParam<StepCase> {};

TEST_P(FanTableStep, GivesBandSpeedAndWarning) {
    const StepCase& given = GetParam();
    const fan_table::Step step = fan_table::TakeStep(given.table, given.band, given.temperature);
    EXPECT_EQ(step.band, given.expectedBand);
    EXPECT_EQ(step.rpm, given.expectedRpm);
    EXPECT_EQ(step.warning, given.expectedWarning);
}

const char* const c_noReading = "Can not read value from any temperature sensor.";
const char* const c_noTable = "User did not specify valid temperature ranges.";

std::string AboveMax(const std::string& temperature, const std::string& rpm) {
    return "Temperature: " + temperature + " is above max fan speed range: " + rpm + ". Will be set to max speed: 6500";
}

std::string NameOfCase(const testing::TestParamInfo<StepCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Bands, FanTableStep,
                         testing::Values(StepCase{"LowestBand_Inside", c_usualTable, 0, 42, 0, 3000, ""},
                                         StepCase{"LowestBand_AtLower", c_usualTable, 0, 40, 0, 3000, ""},
                                         StepCase{"LowestBand_AtUpper", c_usualTable, 0, 50, 0, 3000, ""},
                                         StepCase{"LowestBand_InOverlapStays", c_usualTable, 0, 48, 0, 3000, ""},
                                         StepCase{"LowestBand_JustAboveGoesUp", c_usualTable, 0, 50.001, 1, 4000, ""},
                                         StepCase{"LowestBand_FarAboveGoesUpOne", c_usualTable, 0, 100, 1, 4000, ""},
                                         StepCase{"MiddleBand_Inside", c_usualTable, 1, 52, 1, 4000, ""},
                                         StepCase{"MiddleBand_AtLower", c_usualTable, 1, 45, 1, 4000, ""},
                                         StepCase{"MiddleBand_AtUpper", c_usualTable, 1, 60, 1, 4000, ""},
                                         StepCase{"MiddleBand_InLowerOverlapStays", c_usualTable, 1, 47, 1, 4000, ""},
                                         StepCase{"MiddleBand_InUpperOverlapStays", c_usualTable, 1, 57, 1, 4000, ""},
                                         StepCase{"MiddleBand_JustBelowGoesDown", c_usualTable, 1, 44.999, 0, 3000, ""},
                                         StepCase{"MiddleBand_FarBelowGoesDownOne", c_usualTable, 1, 0, 0, 3000, ""},
                                         StepCase{"MiddleBand_JustAboveGoesUp", c_usualTable, 1, 60.5, 2, 6500, ""},
                                         StepCase{"HighestBand_Inside", c_usualTable, 2, 65, 2, 6500, ""},
                                         StepCase{"HighestBand_AtLower", c_usualTable, 2, 55, 2, 6500, ""},
                                         StepCase{"HighestBand_AtUpper", c_usualTable, 2, 70, 2, 6500, ""},
                                         StepCase{"HighestBand_FarBelowGoesDownOne", c_usualTable, 2, 10, 1, 4000, ""}),
                         NameOfCase);

INSTANTIATE_TEST_SUITE_P(
    Ends, FanTableStep,
    testing::Values(
        StepCase{"BelowLowestBand", c_usualTable, 0, 30, 0, 2500,
                 "Temperature: 30 is below min fan speed range: 3000."},
        StepCase{"JustBelowLowestBand", c_usualTable, 0, 39.99999, 0, 2500,
                 "Temperature: 40 is below min fan speed range: 3000."},
        StepCase{"AtZero", c_usualTable, 0, 0, 0, 2500, "Temperature: 0 is below min fan speed range: 3000."},
        StepCase{"AboveHighestBand", c_usualTable, 2, 80, 2, 6500, AboveMax("80", "6500")},
        StepCase{"SixSignificantDigits", c_usualTable, 2, 71.1234567, 2, 6500, AboveMax("71.1235", "6500")},
        StepCase{"InfinitelyHot", c_usualTable, 2, c_infinity, 2, 6500, AboveMax("inf", "6500")},
        StepCase{"OneBand_Inside", c_oneBand, 0, 45, 0, 3000, ""},
        StepCase{"OneBand_Below", c_oneBand, 0, 39, 0, 2500, "Temperature: 39 is below min fan speed range: 3000."},
        StepCase{"OneBand_Above", c_oneBand, 0, 51, 0, 6500, AboveMax("51", "3000")}),
    NameOfCase);

INSTANTIATE_TEST_SUITE_P(Gaps, FanTableStep,
                         testing::Values(StepCase{"BetweenBandsFromBelow", c_withGap, 0, 35, 1, 3000, ""},
                                         StepCase{"BetweenBandsFromAbove", c_withGap, 1, 35, 0, 2500, ""}),
                         NameOfCase);

INSTANTIATE_TEST_SUITE_P(Unknowns, FanTableStep,
                         testing::Values(StepCase{"NoReading", c_usualTable, 1, -1, 1, 6500, c_noReading},
                                         StepCase{"JustBelowZero", c_usualTable, 1, -0.001, 1, 6500, c_noReading},
                                         StepCase{"NegativeZeroIsAReading", c_usualTable, 1, -0.0, 0, 3000, ""},
                                         StepCase{"NotANumber_LowestBandStays", c_usualTable, 0, c_nan, 0, 3000, ""},
                                         StepCase{"NotANumber_MiddleBandStays", c_usualTable, 1, c_nan, 1, 4000, ""},
                                         StepCase{"NotANumber_HighestBandStays", c_usualTable, 2, c_nan, 2, 6500, ""},
                                         StepCase{"EmptyTable", {}, 0, 48, 0, 6500, c_noTable},
                                         StepCase{"EmptyTable_NotANumber", {}, 0, c_nan, 0, 6500, c_noTable},
                                         StepCase{"EmptyTable_NoReadingIsToldFirst", {}, 0, -1, 0, 6500, c_noReading}),
                         NameOfCase);

/// The text of the first error in a table, "" when there is none.
std::string ErrorOf(const FanTable& table, double highNonCritical = 75) {
    return fan_table::FindError(table, highNonCritical).value_or("");
}

TEST(FanTable, WithoutErrors_Passes) {
    EXPECT_EQ(ErrorOf(c_usualTable), "");
    EXPECT_EQ(ErrorOf(c_withGap), "");
    EXPECT_EQ(ErrorOf(c_oneBand), "");
}

TEST(FanTable, Empty_PassesWhateverTheThreshold) {
    EXPECT_EQ(ErrorOf({}, 0), "");
    EXPECT_EQ(ErrorOf({}, 75), "");
}

TEST(FanTable, LimitsTheWrongWayRound_AreTheFirstError) {
    EXPECT_EQ(ErrorOf({{50, 40, 3000}}), "Temperature limits are invalid: 50 > 40");
    EXPECT_EQ(ErrorOf({{50, 40, 1000}}), "Temperature limits are invalid: 50 > 40");
    EXPECT_EQ(ErrorOf({{90, 80, 3000}}), "Temperature limits are invalid: 90 > 80");
    EXPECT_EQ(ErrorOf({{40, 40, 3000}}), "");
}

TEST(FanTable, UpperLimitAboveTheThreshold_IsAnError) {
    EXPECT_EQ(ErrorOf(c_usualTable, 65), "Upper temperature limit is invalid: 70 > 65");
    EXPECT_EQ(ErrorOf(c_usualTable, 69.5), "Upper temperature limit is invalid: 70 > 69.5");
    EXPECT_EQ(ErrorOf(c_usualTable, 70), "");
    EXPECT_EQ(ErrorOf({{40, 80, 1000}}), "Upper temperature limit is invalid: 80 > 75");
}

TEST(FanTable, NoThreshold_NoUpperLimitAboveZeroPasses) {
    EXPECT_EQ(ErrorOf(c_usualTable, 0), "Upper temperature limit is invalid: 50 > 0");
    EXPECT_EQ(ErrorOf({{0, 1, 3000}}, 0), "Upper temperature limit is invalid: 1 > 0");
    EXPECT_EQ(ErrorOf({{0, 0, 3000}}, 0), "");
}

TEST(FanTable, SpeedOutOfRange_IsAnError) {
    EXPECT_EQ(ErrorOf({{40, 50, 2000}}), "RPM value is out of range  [2500..6500]: 2000");
    EXPECT_EQ(ErrorOf({{40, 50, 2499}}), "RPM value is out of range  [2500..6500]: 2499");
    EXPECT_EQ(ErrorOf({{40, 50, 6501}}), "RPM value is out of range  [2500..6500]: 6501");
    EXPECT_EQ(ErrorOf({{40, 50, 4294967295}}), "RPM value is out of range  [2500..6500]: 4294967295");
    EXPECT_EQ(ErrorOf({{40, 50, 2500}}), "");
    EXPECT_EQ(ErrorOf({{40, 50, 6500}}), "");
    EXPECT_EQ(ErrorOf({{0, 0, 0}}), "RPM value is out of range  [2500..6500]: 0");
}

TEST(FanTable, RowThatDoesNotRise_IsAnError) {
    EXPECT_EQ(ErrorOf({{40, 50, 3000}, {40, 60, 4000}}), "Lower temperature limits are not in sequence: 40 <= 40");
    EXPECT_EQ(ErrorOf({{40, 50, 3000}, {39, 60, 4000}}), "Lower temperature limits are not in sequence: 39 <= 40");
    EXPECT_EQ(ErrorOf({{40, 60, 3000}, {45, 60, 4000}}), "Upper temperature limits are not in sequence: 60 <= 60");
    EXPECT_EQ(ErrorOf({{40, 60, 3000}, {45, 50, 4000}}), "Upper temperature limits are not in sequence: 50 <= 60");
    EXPECT_EQ(ErrorOf({{40, 50, 4000}, {45, 60, 3000}}), "RPM values are not in sequence: 3000 <= 4000");
    EXPECT_EQ(ErrorOf({{40, 50, 4000}, {45, 60, 4000}}), "RPM values are not in sequence: 4000 <= 4000");
}

TEST(FanTable, SeveralErrors_TheFirstRowsFirstErrorIsTold) {
    EXPECT_EQ(ErrorOf({{40, 50, 2000}, {30, 20, 9000}}), "RPM value is out of range  [2500..6500]: 2000");
    EXPECT_EQ(ErrorOf({{40, 50, 3000}, {30, 20, 9000}}), "Temperature limits are invalid: 30 > 20");
    EXPECT_EQ(ErrorOf({{40, 50, 3000}, {30, 45, 2600}}), "Lower temperature limits are not in sequence: 30 <= 40");
    EXPECT_EQ(ErrorOf({{40, 50, 3000}, {41, 45, 2600}}), "Upper temperature limits are not in sequence: 45 <= 50");
}

}  // namespace
