#include "tests/support/ipmi/recorded_machine.h"

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "tests/support/file.h"
#include "tests/support/ipmi/factor_fit.h"
#include "tools/chassisctl/sensor_table.h"

namespace test {

namespace {

constexpr std::size_t c_maxRecordedName = 16;

std::string Folder() {
    return std::string(ZELKOR_TEST_DATA) + "/recordings/csv";
}

std::uint8_t TypeOf(bmc::SensorType_e type) {
    switch (type) {
        case bmc::SensorType_e::temperature:
            return sensor_type::c_temperature;
        case bmc::SensorType_e::voltage:
            return sensor_type::c_voltage;
        case bmc::SensorType_e::current:
            return sensor_type::c_current;
        case bmc::SensorType_e::fan:
            return sensor_type::c_fan;
        default:
            return sensor_type::c_other;
    }
}

std::uint8_t UnitOf(const std::string& units) {
    if (units == "degrees C") {
        return unit::c_degreesC;
    }
    if (units == "Volts") {
        return unit::c_volts;
    }
    if (units == "Amps") {
        return unit::c_amps;
    }
    if (units == "Watts") {
        return unit::c_watts;
    }
    if (units == "RPM") {
        return unit::c_rpm;
    }
    if (units == "CFM") {
        return unit::c_cfm;
    }
    return units == "feet" ? unit::c_feet : unit::c_unspecified;
}

SimulatedSensor Simulate(const chassisctl::SensorRow& row) {
    SimulatedSensor sensor;
    sensor.number = static_cast<std::uint8_t>(row.id);
    sensor.name = row.name.substr(0, c_maxRecordedName);
    sensor.type = TypeOf(row.type);
    sensor.unit = UnitOf(row.units);
    sensor.isPercent = row.units == "percent";
    std::vector<double> values;
    for (const auto& value : row.thresholds) {
        if (value) {
            values.push_back(*value);
        }
    }
    for (const auto& value : {row.value, row.nominal}) {
        if (value) {
            values.push_back(*value);
        }
    }
    FitFactors(sensor, values);
    for (std::size_t i = 0; i < row.thresholds.size(); ++i) {
        if (row.thresholds[i]) {
            sensor.thresholds[i] = ToRaw(sensor, *row.thresholds[i]);
        }
    }
    if (row.nominal) {
        sensor.nominal = ToRaw(sensor, *row.nominal);
    }
    sensor.isUnavailable = !row.value;
    sensor.raw = row.value ? ToRaw(sensor, *row.value) : 0;
    return sensor;
}

// One of each kind, taken in turn: positive, signed, with offset, with few and without thresholds.
SimulatedSensor Synthesize(std::size_t kind) {
    SimulatedSensor sensor;
    switch (kind) {
        case 0:
            sensor.name = "Temp";
            sensor.nominal = 45;
            sensor.thresholds = {5, 10, 15, 80, 90, 100};
            sensor.raw = 40;
            break;
        case 1:
            sensor.name = "Inlet";
            sensor.format = RawFormat_e::twos_complement;
            sensor.thresholds = {ToRaw(sensor, -20), ToRaw(sensor, -10), std::nullopt, 50, 60, std::nullopt};
            sensor.raw = ToRaw(sensor, -3);
            break;
        case 2:
            sensor.name = "+12V";
            sensor.type = sensor_type::c_voltage;
            sensor.unit = unit::c_volts;
            sensor.factors = {.m = 6, .b = 0, .bExponent = 0, .rExponent = -2};
            sensor.nominal = ToRaw(sensor, 12);
            sensor.thresholds = {std::nullopt,        ToRaw(sensor, 10.8), ToRaw(sensor, 11.4),
                                 ToRaw(sensor, 12.6), ToRaw(sensor, 13.2), std::nullopt};
            sensor.raw = ToRaw(sensor, 12.06);
            break;
        case 3:
            sensor.name = "-12V";
            sensor.type = sensor_type::c_voltage;
            sensor.unit = unit::c_volts;
            sensor.format = RawFormat_e::twos_complement;
            sensor.factors = {.m = 1, .b = 0, .bExponent = 0, .rExponent = -1};
            sensor.raw = ToRaw(sensor, -11.9);
            break;
        case 4:
            sensor.name = "Current";
            sensor.type = sensor_type::c_current;
            sensor.unit = unit::c_amps;
            sensor.factors = {.m = 25, .b = 5, .bExponent = 1, .rExponent = -2};
            sensor.thresholds[4] = ToRaw(sensor, 50);
            sensor.raw = ToRaw(sensor, 17.5);
            break;
        default:
            sensor.name = "Fan";
            sensor.type = sensor_type::c_fan;
            sensor.unit = unit::c_rpm;
            sensor.factors.m = 50;
            sensor.thresholds[1] = ToRaw(sensor, 1000);
            sensor.raw = ToRaw(sensor, 6500);
    }
    return sensor;
}

}  // namespace

std::vector<SimulatedSensor> RecordedSensors(const std::string& name) {
    const std::string file = Folder() + "/" + name + ".csv";
    const chassisctl::SensorTable table = chassisctl::ReadSensorTable(ReadFile(file));
    if (table.sensors.empty()) {
        throw std::invalid_argument("no sensors in " + file);
    }
    std::vector<SimulatedSensor> sensors;
    std::transform(table.sensors.begin(), table.sensors.end(), std::back_inserter(sensors), Simulate);
    return sensors;
}

std::vector<std::string> RecordingNames() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
        names.push_back(entry.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<SimulatedSensor> SyntheticSensors(std::size_t count) {
    constexpr std::size_t c_kinds = 6;
    std::vector<SimulatedSensor> sensors;
    for (std::size_t i = 0; i < count; ++i) {
        sensors.push_back(Synthesize(i % c_kinds));
        sensors.back().number = static_cast<std::uint8_t>(i + 1);
        sensors.back().name += " " + std::to_string(i / c_kinds + 1);
    }
    return sensors;
}

}  // namespace test
