#include "fan_table_proof.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace {

using bmc::SensorReading;
using fan_table::FanTable;
using fan_table::WatchedSensor;

const FanTable c_threeBands = {{40, 50, 3000}, {45, 60, 4000}, {55, 70, 6500}};

WatchedSensor Sensor(const std::string& name, SensorReading highNonCritical, SensorReading highCritical) {
    return {name, highNonCritical, highCritical};
}

/// One that damage protection watches.
WatchedSensor Guarded(const std::string& name, double highNonCritical, double highCritical, double switchOff) {
    return {name, SensorReading(highNonCritical), SensorReading(highCritical), switchOff};
}

const SensorReading c_none = SensorReading::NoUpperLimit();
const WatchedSensor c_inlet = Sensor("the inlet", SensorReading(75), SensorReading(85));

/// "row: E text" or "row: W text" each.
std::vector<std::string> TextsOf(const FanTable& table, const std::vector<WatchedSensor>& sensors,
                                 bool areAllKnown = true) {
    std::vector<std::string> texts;
    for (const auto& finding : fan_table::Prove(table, sensors, areAllKnown)) {
        texts.push_back(std::to_string(finding.row) + (finding.severity == qcfg::Severity_e::error ? ": E " : ": W ") +
                        finding.text);
    }
    return texts;
}

struct ProofCase {
    std::string name;
    FanTable table;
    std::vector<WatchedSensor> sensors;
    std::vector<std::string> expected;
};

void PrintTo(const ProofCase& given, std::ostream* out) {
    *out << given.name;
}

class FanTableProof : public testing::TestWithParam<ProofCase> {};

TEST_P(FanTableProof, Finds) {
    EXPECT_EQ(TextsOf(GetParam().table, GetParam().sensors), GetParam().expected);
}

std::vector<ProofCase> Errors() {
    return {
        {"Good", c_threeBands, {c_inlet}, {}},
        {"Empty", {}, {c_inlet}, {}},
        {"EveryRowIsTold_WithTheSensorThatLimits",
         c_threeBands,
         {c_inlet, Sensor("the outlet", SensorReading(55), SensorReading(90))},
         {"1: E Upper temperature limit is invalid: 60 > 55, the upper non-critical limit of the outlet",
          "2: E Upper temperature limit is invalid: 70 > 55, the upper non-critical limit of the outlet"}},
        {"OtherSensorsThatTheRowIsTooHotFor_AreNamed",
         {{30, 60, 3000}, {50, 70, 6500}},
         {c_inlet, Sensor("a", SensorReading(55), c_none), Sensor("b", SensorReading(45.5), c_none),
          Sensor("c", SensorReading(65), c_none), Sensor("d", c_none, c_none)},
         {"0: E Upper temperature limit is invalid: 60 > 45.5, the upper non-critical limit of b; also below: a: 55",
          "1: E Upper temperature limit is invalid: 70 > 45.5, the upper non-critical limit of b; also below: a: 55, "
          "c: "
          "65"}},
        {"NoSensorHasALimit",
         {{40, 50, 3000}},
         {Sensor("the inlet", c_none, c_none)},
         {"0: E Upper temperature limit is invalid: 50 > 0; no watched sensor has an upper non-critical limit"}},
        {"AllThatIsWrongWithARow",
         {{40, 60, 3000}, {40, 30, 2000}},
         {c_inlet},
         {"1: E Temperature limits are invalid: 40 > 30", "1: E RPM value is out of range  [2500..6500]: 2000",
          "1: E Lower temperature limits are not in sequence: 40 <= 40",
          "1: E Upper temperature limits are not in sequence: 30 <= 60",
          "1: E RPM values are not in sequence: 2000 <= 3000"}},
    };
}

std::vector<ProofCase> CriticalLimits() {
    return {
        {"WithoutNonCriticalLimit",
         c_threeBands,
         {c_inlet, Sensor("the amplifier", c_none, SensorReading(49.5))},
         {"0: E up to 50 degrees the fans may run at 3000 RPM, but the amplifier is past its upper critical limit "
          "above "
          "49.5",
          "1: E up to 60 degrees the fans may run at 4000 RPM, but the amplifier is past its upper critical limit "
          "above "
          "49.5"}},
        {"NonCriticalAboveCritical",
         c_threeBands,
         {Sensor("the amplifier", SensorReading(75), SensorReading(55))},
         {"1: E up to 60 degrees the fans may run at 4000 RPM, but the amplifier is past its upper critical limit "
          "above "
          "55"}},
        {"AtTheUpperLimit_NotPastIt", c_threeBands, {c_inlet, Sensor("the amplifier", c_none, SensorReading(60))}, {}},
        {"InTheBandOfMaximumSpeed_Fine", c_threeBands, {c_inlet, Sensor("a", c_none, SensorReading(65))}, {}},
        {"SeveralSensors_TheFirstToSufferIsNamed",
         {{40, 50, 3000}},
         {c_inlet, Sensor("a", c_none, SensorReading(48)), Sensor("b", c_none, SensorReading(45))},
         {"0: E up to 50 degrees the fans may run at 3000 RPM, but b is past its upper critical limit above 45 (and 1 "
          "more past theirs)"}},
        {"BelowTheTable",
         {{60, 70, 6500}},
         {c_inlet, Sensor("a", c_none, SensorReading(50))},
         {"0: E below 60 degrees the fans may run at 2500 RPM, but a is past its upper critical limit above 50"}},
        {"InTheGapBeforeMaximumSpeed",
         {{40, 50, 3000}, {60, 70, 6500}},
         {c_inlet, Sensor("a", c_none, SensorReading(52))},
         {"0: E up to 60 degrees the fans may run at 3000 RPM, but a is past its upper critical limit above 52",
          "1: W gap between 50 and 60 degrees: there the fans change between 3000 and 6500 RPM in every pass"}},
    };
}

std::vector<ProofCase> Bands() {
    const std::string end = ", the last one, off above ";
    return {
        {"Gap",
         {{20, 30, 2500}, {31, 50, 3000}},
         {c_inlet},
         {"1: W gap between 30 and 31 degrees: there the fans change between 2500 and 3000 RPM in every pass"}},
        {"BandsThatTouch_NoGap", {{20, 30, 2500}, {30, 50, 3000}}, {c_inlet}, {}},
        {"RowsInDisorder_NoGapBetweenThem",
         {{50, 40, 3000}, {60, 70, 4000}},
         {c_inlet},
         {"0: E Temperature limits are invalid: 50 > 40"}},
        {"OnlyZeroDegrees",
         {{0, 0, 2500}, {0, 50, 3000}},
         {c_inlet},
         {"1: E Lower temperature limits are not in sequence: 0 <= 0"}},
        {"SwitchedOffBefore",
         {{30, 45, 3000}, {40, 60, 4000}, {55, 70, 6500}},
         {Guarded("a", 75, 85, 50), Guarded("b", 75, 85, 54.5)},
         {"2: W no watched sensor stays in this band: damage protection switches the board of b" + end +
          "54.5 degrees"}},
        {"SwitchedOffAtTheLowerLimit_Fine", c_threeBands, {Guarded("a", 75, 85, 55)}, {}},
        {"OneSensorThatIsNeverSwitchedOff_ReachesAll", c_threeBands, {Guarded("a", 75, 85, 45), c_inlet}, {}},
    };
}

std::string NameOfProof(const testing::TestParamInfo<ProofCase>& info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Errors, FanTableProof, testing::ValuesIn(Errors()), NameOfProof);
INSTANTIATE_TEST_SUITE_P(CriticalLimits, FanTableProof, testing::ValuesIn(CriticalLimits()), NameOfProof);
INSTANTIATE_TEST_SUITE_P(Bands, FanTableProof, testing::ValuesIn(Bands()), NameOfProof);

TEST(FanTableProof, SensorsThatAreNotKnown_MayHaveTheLimitAndTheHeat) {
    EXPECT_THAT(TextsOf(c_threeBands, {}, false), testing::IsEmpty());
    EXPECT_THAT(TextsOf(c_threeBands, {Guarded("a", 75, 85, 54)}, false), testing::IsEmpty());
    EXPECT_THAT(
        TextsOf(c_threeBands, {Sensor("a", SensorReading(65), c_none)}, false),
        testing::ElementsAre("2: E Upper temperature limit is invalid: 70 > 65, the upper non-critical limit of a"));
}

/// Whether the step rule, from any band, leaves the fans below maximum speed for good at a temperature above @p limit.
bool IsEverSlowAbove(const FanTable& table, double limit) {
    const auto bands = static_cast<std::uint32_t>(table.size());
    for (double temperature = 0; temperature < table.back().upper + 3; temperature += 0.25) {
        for (std::uint32_t begin = 0; temperature > limit && begin < bands; ++begin) {
            std::uint32_t band = begin;
            for (std::uint32_t pass = 0; pass < 2 * bands; ++pass) {
                band = fan_table::TakeStep(table, band, temperature).band;
            }
            const fan_table::Step one = fan_table::TakeStep(table, band, temperature);
            const fan_table::Step next = fan_table::TakeStep(table, one.band, temperature);
            if (one.rpm < fan_table::c_maxSpeed || next.rpm < fan_table::c_maxSpeed) {
                return true;
            }
        }
    }
    return false;
}

bool IsAnyGapSeen(const FanTable& table) {
    const auto bands = static_cast<std::uint32_t>(table.size());
    for (double temperature = table.front().lower; temperature <= table.back().upper; temperature += 0.25) {
        std::uint32_t band = bands - 1;
        for (std::uint32_t pass = 0; pass < 2 * bands; ++pass) {
            band = fan_table::TakeStep(table, band, temperature).band;
        }
        if (fan_table::TakeStep(table, band, temperature).band != band) {
            return true;
        }
    }
    return false;
}

TEST(FanTableProof, AnyTable_SaysWhatTheStepsDo) {
    std::minstd_rand random(1);
    const auto draw = [&random](std::uint32_t least, std::uint32_t most) {
        return std::uniform_int_distribution<std::uint32_t>(least, most)(random);
    };
    int slow = 0;
    int gaps = 0;
    constexpr int c_tables = 2000;
    for (int i = 0; i < c_tables; ++i) {
        FanTable table{{draw(0, 6), 0, draw(2500, 3000)}};
        table[0].upper = table[0].lower + draw(0, 5);
        for (std::uint32_t more = draw(0, 3); more > 0; --more) {
            const auto& before = table.back();
            const std::uint32_t lower = before.lower + draw(1, 6);
            const std::uint32_t upper = std::max(before.upper + 1, lower) + draw(0, 4);
            table.push_back({lower, upper, more == 1 ? 6500 : before.rpm + draw(1, 500)});
        }
        const double limit = draw(0, 60) / 2.0;
        const WatchedSensor sensor = Sensor("a", SensorReading(1000), SensorReading(limit));
        bool isSlowFound = false;
        bool isGapFound = false;
        for (const std::string& text : TextsOf(table, {sensor})) {
            isSlowFound = isSlowFound || text.find("past its upper critical limit") != std::string::npos;
            isGapFound = isGapFound || text.find("gap between") != std::string::npos;
        }
        const bool isSlow = IsEverSlowAbove(table, limit);
        EXPECT_EQ(isSlowFound, isSlow) << i;
        EXPECT_EQ(isGapFound, IsAnyGapSeen(table)) << i;
        slow += isSlow ? 1 : 0;
        gaps += isGapFound ? 1 : 0;
    }
    EXPECT_GT(slow, c_tables / 10);  // the tables show both
    EXPECT_LT(slow, c_tables * 9 / 10);
    EXPECT_GT(gaps, c_tables / 10);
    EXPECT_LT(gaps, c_tables * 9 / 10);
}

}  // namespace
