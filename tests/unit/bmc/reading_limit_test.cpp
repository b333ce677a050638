#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <utility>

#include "bmc/sensor.h"

namespace {

using bmc::SensorReading;

/// LNR -30, LC -20, LNC -10, UNC 10, UC 20, UNR 30, any of which may be taken away.
class ThresholdSensor : public bmc::Sensor {
public:
    std::array<bool, 6> m_isThere = {true, true, true, true, true, true};

    const bmc::SensorId& GetId() const override { return m_id; }
    bmc::SensorType_e GetType() const override { return bmc::SensorType_e::temperature; }
    const std::string& GetName() const override { return m_text; }
    const std::string& GetUnits() const override { return m_text; }
    SensorReading GetNominal() const override { return {}; }
    SensorReading GetLowerNonRecoverable() const override { return Lower(0, -30); }
    SensorReading GetLowerCritical() const override { return Lower(1, -20); }
    SensorReading GetLowerNonCritical() const override { return Lower(2, -10); }
    SensorReading GetUpperNonCritical() const override { return Upper(3, 10); }
    SensorReading GetUpperCritical() const override { return Upper(4, 20); }
    SensorReading GetUpperNonRecoverable() const override { return Upper(5, 30); }
    SensorReading Read() const override { return {}; }

private:
    SensorReading Lower(std::size_t index, double value) const {
        return m_isThere.at(index) ? SensorReading(value) : SensorReading::NoLowerLimit();
    }
    SensorReading Upper(std::size_t index, double value) const {
        return m_isThere.at(index) ? SensorReading(value) : SensorReading::NoUpperLimit();
    }

    bmc::SensorId m_id;
    std::string m_text;
};

int ClassOf(const ThresholdSensor& sensor, double value) {
    return sensor.ReadingLimit(SensorReading(value));
}

TEST(ReadingLimit, AllThresholds_ClassByBand) {
    const ThresholdSensor sensor;
    const std::array<std::pair<double, int>, 15> cases = {{{-31, 3},
                                                           {-30, 2},
                                                           {-21, 2},
                                                           {-20, 1},
                                                           {-11, 1},
                                                           {-10, 0},
                                                           {0, 0},
                                                           {10, 0},
                                                           {10.001, 4},
                                                           {20, 4},
                                                           {20.001, 5},
                                                           {30, 5},
                                                           {30.001, 6},
                                                           {std::numeric_limits<double>::infinity(), 6},
                                                           {-std::numeric_limits<double>::infinity(), 3}}};
    for (const auto& [value, limitClass] : cases) {
        EXPECT_EQ(ClassOf(sensor, value), limitClass) << value;
    }
}

TEST(ReadingLimit, NotAvailable_IsMinusOne) {
    EXPECT_EQ(ThresholdSensor().ReadingLimit(SensorReading()), -1);
    EXPECT_EQ(ThresholdSensor().ReadingLimit(SensorReading::NotAvailable(100)), -1);
}

TEST(ReadingLimit, NotANumber_PassesNothing) {
    EXPECT_EQ(ClassOf(ThresholdSensor(), std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST(ReadingLimit, OneThresholdMissing_NextMildOneCounts) {
    // For each threshold: a value beyond it and the class without it.
    const std::array<std::pair<double, int>, 6> cases = {{{-31, 2}, {-21, 1}, {-11, 0}, {11, 0}, {21, 4}, {31, 5}}};
    for (std::size_t missing = 0; missing < cases.size(); ++missing) {
        ThresholdSensor sensor;
        sensor.m_isThere.at(missing) = false;
        for (std::size_t i = 0; i < cases.size(); ++i) {
            const int withAll = ClassOf(ThresholdSensor(), cases.at(i).first);
            EXPECT_EQ(ClassOf(sensor, cases.at(i).first), i == missing ? cases.at(i).second : withAll)
                << "missing " << missing << " value " << cases.at(i).first;
        }
    }
}

TEST(ReadingLimit, NoThreshold_AlwaysWithin) {
    ThresholdSensor sensor;
    sensor.m_isThere.fill(false);
    EXPECT_EQ(ClassOf(sensor, 1e300), 0);
    EXPECT_EQ(ClassOf(sensor, -1e300), 0);
}

/// Thresholds out of order: every value is above the upper and below the lower ones.
class CrossedSensor : public ThresholdSensor {
public:
    SensorReading GetUpperNonCritical() const override { return SensorReading(-100); }
    SensorReading GetLowerNonRecoverable() const override { return SensorReading(100); }
};

TEST(ReadingLimit, ThresholdsOutOfOrder_UpperBeforeLower) {
    EXPECT_EQ(ClassOf(CrossedSensor(), 0), 4);
}

}  // namespace
