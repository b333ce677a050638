#include "tests/support/ipmi/recorded_machine.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tests/support/file.h"
#include "tests/support/ipmi/factor_fit.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/ipmitool.h"
#include "tools/chassisctl/sensor_table.h"

// Recorded machines as simulated controllers.

namespace test {

namespace {

using chassisctl::SensorRow;
using testing::Optional;

std::vector<SensorRow> ReadRecording(const std::string& name) {
    const std::string file = std::string(ZELKOR_TEST_DATA) + "/recordings/csv/" + name + ".csv";
    return chassisctl::ReadSensorTable(ReadFile(file)).sensors;
}

// What one byte can do at worst: half a step of 255 over the range from the least to the greatest, and 0 within it.
double Tolerance(const SensorRow& row) {
    double least = 0;
    double greatest = 0;
    for (const auto& value : row.thresholds) {
        least = std::min(least, value.value_or(0));
        greatest = std::max(greatest, value.value_or(0));
    }
    for (const auto& value : {row.value, row.nominal}) {
        least = std::min(least, value.value_or(0));
        greatest = std::max(greatest, value.value_or(0));
    }
    return (greatest - least) / 255;
}

std::string ToText(double value) {
    return fmt::format("{:.3f}", value);
}

std::string NameOf(const testing::TestParamInfo<std::string>& recording) {
    std::string name = recording.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

class Recordings : public testing::TestWithParam<std::string> {};

}  // namespace

TEST_P(Recordings, EveryValue_IsRepresentedAsWellAsOneByteDoes) {
    const std::vector<SensorRow> rows = ReadRecording(GetParam());
    const std::vector<SimulatedSensor> sensors = RecordedSensors(GetParam());
    ASSERT_EQ(sensors.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const SensorRow& row = rows[i];
        const SimulatedSensor& sensor = sensors[i];
        EXPECT_EQ(sensor.number, row.id);
        EXPECT_EQ(sensor.isUnavailable, !row.value);
        EXPECT_EQ(sensor.nominal.has_value(), row.nominal.has_value());
        if (row.value) {
            EXPECT_NEAR(ToReading(sensor, sensor.raw), *row.value, Tolerance(row)) << row.name;
        }
        for (std::size_t t = 0; t < row.thresholds.size(); ++t) {
            ASSERT_EQ(sensor.thresholds[t].has_value(), row.thresholds[t].has_value()) << row.name;
            if (row.thresholds[t]) {
                EXPECT_NEAR(ToReading(sensor, *sensor.thresholds[t]), *row.thresholds[t], Tolerance(row)) << row.name;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Every, Recordings, testing::ValuesIn(RecordingNames()), NameOf);

TEST(RecordedMachine, IpmitoolsTable_IsTheSimulatedSensors) {
    SimulatedController controller;
    controller.sensors = RecordedSensors("21-gpu-server-epyc");
    const IpmiSimulator simulator({.controllers = {controller, Satellite(0x82, RecordedSensors("41-v-intel-bb"))}});
    std::vector<SimulatedSensor> all = controller.sensors;
    const auto& more = simulator.GetController(0x82).sensors;
    all.insert(all.end(), more.begin(), more.end());

    const std::vector<SensorRow> rows = chassisctl::ReadSensorTable(Ipmitool(simulator, {"sensor"}).output).sensors;
    ASSERT_EQ(rows.size(), all.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(all[i].name);
        ASSERT_EQ(rows[i].value.has_value(), !all[i].isUnavailable);
        if (rows[i].value) {
            EXPECT_EQ(ToText(*rows[i].value), ToText(ToReading(all[i], all[i].raw)));
        }
        for (std::size_t t = 0; t < rows[i].thresholds.size(); ++t) {
            ASSERT_EQ(rows[i].thresholds[t].has_value(), all[i].thresholds[t].has_value());
            if (rows[i].thresholds[t]) {
                EXPECT_EQ(ToText(*rows[i].thresholds[t]), ToText(ToReading(all[i], *all[i].thresholds[t])));
            }
        }
    }
}

TEST(FactorFit, ExactValues_AreRepresentedExactly) {
    for (const std::vector<double>& values : {std::vector<double>{40, 90, 100},
                                              {-58, 85, 90},
                                              {10.635, 10.947, 11.831, 13.027, 13.391},
                                              {8400, 4275},
                                              {-12.8, -11.9},
                                              {0.95, 1.2, 1.24},
                                              {0},
                                              {}}) {
        SimulatedSensor sensor;
        FitFactors(sensor, values);
        for (const double value : values) {
            EXPECT_NEAR(ToReading(sensor, ToRaw(sensor, value)), value, 1e-9);
        }
    }
}

TEST(SyntheticSensors, AreAsManyAsAskedForAndNumberedFrom1) {
    const std::vector<SimulatedSensor> sensors = SyntheticSensors(60);
    ASSERT_EQ(sensors.size(), 60U);
    EXPECT_EQ(sensors.front().number, 1);
    EXPECT_EQ(sensors.back().number, 60);
    EXPECT_EQ(sensors.back().name, "Fan 10");
}

}  // namespace test
