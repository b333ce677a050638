// Every value of every kind of sensor in the registry: compared with what the simulator was given, and, for recorded
// machines, with what another client of it prints.

#include <fmt/format.h>

#include <charconv>
#include <cmath>

#include "ipmi_daemon_fixture.h"
#include "tests/support/ipmi/ipmitool.h"
#include "tools/chassisctl/sensor_table.h"

namespace {

using test::BoardAt;
using test::IpmiSimulator;
using test::Linearization_e;
using test::RawFormat_e;
using test::SimulatedController;
using test::SimulatedSensor;
using testing::ElementsAre;
using testing::IsEmpty;

/// The leaves of the six thresholds in the order of a simulated sensor's.
constexpr std::array<const char*, 6> c_thresholdLeaves{"lnr", "lc", "lnc", "hnc", "hc", "hnr"};

/// One sensor that reads @p raw, linear, in degrees.
SimulatedSensor Named(const std::string& name, std::uint8_t raw) {
    SimulatedSensor sensor;
    sensor.name = name;
    sensor.raw = raw;
    return sensor;
}

/// A sensor of each of the curves, with limits and a nominal reading.
std::vector<SimulatedSensor> EveryCurve() {
    std::vector<SimulatedSensor> sensors;
    for (int curve = 1; curve <= static_cast<int>(Linearization_e::cube_root); ++curve) {
        SimulatedSensor sensor = Named("curve " + std::to_string(curve), 25);
        sensor.linearization = static_cast<Linearization_e>(curve);
        sensor.factors = {.m = 3, .b = 1, .bExponent = 1, .rExponent = -2};
        sensor.nominal = 20;
        sensor.thresholds = {1, 2, 3, 60, 80, 100};
        sensors.push_back(sensor);
    }
    return sensors;
}

std::vector<SimulatedSensor> EveryKind() {
    std::vector<SimulatedSensor> sensors = test::SyntheticSensors(6);
    for (const SimulatedSensor& sensor : EveryCurve()) {
        sensors.push_back(sensor);
    }
    SimulatedSensor onesComplement = Named("ones' complement", 0xf0);
    onesComplement.format = RawFormat_e::ones_complement;
    onesComplement.nominal = 0xfe;
    onesComplement.thresholds = {0x9b, 0xce, 0xe1, 0x10, 0x20, 0x30};
    SimulatedSensor falling = Named("falling", 30);
    falling.factors = {.m = -5, .b = 150, .bExponent = 1, .rExponent = -1};
    falling.thresholds = {250, 200, std::nullopt, std::nullopt, 10, 0};
    SimulatedSensor bent = Named("bent", 0x90);
    bent.linearization = Linearization_e::non_linear;
    bent.factors.m = 2;
    bent.nominal = 0x81;
    bent.thresholds = {std::nullopt, 0x02, 0x10, 0x7f, 0x80, 0xff};
    SimulatedSensor percent = Named("load", 73);
    percent.type = test::sensor_type::c_other;
    percent.unit = test::unit::c_unspecified;
    percent.isPercent = true;
    percent.thresholds[3] = 90;
    SimulatedSensor compact = Named("compact", 40);
    compact.isCompact = true;
    SimulatedSensor secret = Named("limits hidden", 33);
    secret.thresholds = {1, 2, 3, 60, 80, 100};
    secret.areThresholdsReadable = false;
    SimulatedSensor otherUnit = Named("LUN 1", 44);
    otherUnit.lun = 1;
    SimulatedSensor infinite = Named("one by zero", 0);
    infinite.linearization = Linearization_e::inverse;
    SimulatedSensor unavailable = Named("unavailable", 41);
    unavailable.isUnavailable = true;
    SimulatedSensor unscanned = Named("not scanned", 42);
    unscanned.isScanned = false;
    for (const SimulatedSensor& sensor :
         {onesComplement, falling, bent, percent, compact, secret, otherUnit, infinite, unavailable, unscanned}) {
        sensors.push_back(sensor);
    }
    std::uint8_t number = 1;
    for (SimulatedSensor& sensor : sensors) {
        sensor.number = number++;
    }
    return sensors;
}

int IdOf(const SimulatedSensor& sensor) {
    return sensor.number + 256 * sensor.lun;
}

std::string TypeName(std::uint8_t type) {
    const std::map<std::uint8_t, std::string> names{
        {1, "temperature"}, {2, "voltage"}, {3, "current"}, {4, "fan"}, {0x0b, "other"}};
    return names.at(type);
}

std::string UnitsName(const SimulatedSensor& sensor) {
    if (sensor.isPercent) {
        return "percent";
    }
    const std::map<std::uint8_t, std::string> names{{0, ""},      {1, "degrees C"}, {4, "Volts"}, {5, "Amps"},
                                                    {6, "Watts"}, {17, "CFM"},      {18, "RPM"},  {29, "feet"}};
    return names.at(sensor.unit);
}

std::optional<double> ToNumber(const std::optional<std::string>& text) {
    double number = NAN;
    if (text) {
        const char* const end = text->data() + text->size();
        EXPECT_EQ(std::from_chars(text->data(), end, number).ptr, end) << *text;
    }
    return text ? std::optional(number) : std::nullopt;
}

class SensorLeavesTest : public test::IpmiDaemonTest {
protected:
    /// The leaf must have this number, up to the last digits of the arithmetic, or none.
    static void ExpectNumber(const Tree& tree, const std::string& leaf, const std::optional<double>& expected) {
        const auto found = tree.find(leaf);
        ASSERT_NE(found, tree.end()) << leaf;
        const std::optional<double> number = ToNumber(found->second);
        ASSERT_EQ(number.has_value(), expected.has_value()) << leaf << " = " << found->second.value_or("no value");
        if (expected) {
            EXPECT_NEAR(*number, *expected, 1e-12 * std::max(1.0, std::abs(*expected))) << leaf;
        }
    }

    static void ExpectSensor(const Tree& tree, const SimulatedSensor& sensor, bool hasReading) {
        SCOPED_TRACE(sensor.name);
        const std::string leaves = "sensors/ID_" + std::to_string(IdOf(sensor)) + "/";
        const auto expected = [&](const std::optional<std::uint8_t>& raw) {
            const bool isThere = raw && !sensor.isCompact;
            return isThere ? std::optional(test::ToReading(sensor, *raw)) : std::nullopt;
        };
        ExpectNumber(tree, leaves + "value",
                     hasReading ? std::optional(test::ToReading(sensor, sensor.raw)) : std::nullopt);
        ExpectNumber(tree, leaves + "nom", expected(sensor.nominal));
        for (std::size_t i = 0; i < c_thresholdLeaves.size(); ++i) {
            ExpectNumber(tree, leaves + c_thresholdLeaves.at(i),
                         sensor.areThresholdsReadable ? expected(sensor.thresholds.at(i)) : std::nullopt);
        }
        EXPECT_EQ(tree.at(leaves + "name"), sensor.name);
        EXPECT_EQ(tree.at(leaves + "type"), TypeName(sensor.type));
        EXPECT_EQ(tree.at(leaves + "units"), UnitsName(sensor));
    }

    /// The sensors of a board in the order of the registry.
    std::vector<std::string> SensorNodes(const std::string& board) const {
        return test::Lines(Ask({"ls", "boards/" + board + "/sensors"}));
    }

    /// What the other client prints must be what the registry has, to the digits that it prints.
    static void ExpectSame(const Tree& tree, const chassisctl::SensorRow& row, const SimulatedSensor& sensor) {
        SCOPED_TRACE(sensor.name);
        const std::string leaves = "sensors/ID_" + std::to_string(sensor.number) + "/";
        EXPECT_EQ(tree.at(leaves + "name"), row.name);
        EXPECT_EQ(tree.at(leaves + "units"), row.units == "unspecified" ? "" : row.units);
        const auto expectSame = [&](const std::string& leaf, const std::optional<double>& printed) {
            const std::optional<double> number = ToNumber(tree.at(leaves + leaf));
            EXPECT_EQ(number ? fmt::format("{:.3f}", *number) : "na", printed ? fmt::format("{:.3f}", *printed) : "na")
                << leaf;
        };
        expectSame("value", row.value);
        for (std::size_t i = 0; i < c_thresholdLeaves.size(); ++i) {
            expectSame(c_thresholdLeaves.at(i), row.thresholds.at(i));
        }
    }
};

TEST_F(SensorLeavesTest, EveryKindOfSensor_HasTheValuesThatTheControllerWasGiven) {
    SimulatedController controller;
    controller.sensors = EveryKind();
    SimulatedSensor gone = Named("gone", 50);
    gone.number = 100;
    SimulatedSensor discrete = Named("discrete", 0);
    discrete.number = 101;
    discrete.eventType = 0x6f;
    controller.sensors.push_back(gone);
    controller.sensors.push_back(discrete);
    IpmiSimulator simulator({.controllers = {controller}});
    simulator.SetSensorCompletionCode(test::c_bmc, gone.number, 0xcb);
    StartOn({test::Icb(simulator)});

    const Tree tree = TreeOf("boards/ICB");
    std::vector<std::string> nodes;
    for (const SimulatedSensor& sensor : simulator.GetController().sensors) {
        if (sensor.number == discrete.number) {
            continue;
        }
        nodes.push_back("ID_" + std::to_string(IdOf(sensor)));
        const bool hasReading = !sensor.isUnavailable && sensor.isScanned && sensor.number != gone.number &&
                                std::isfinite(test::ToReading(sensor, sensor.raw));
        ExpectSensor(tree, sensor, hasReading);
    }
    EXPECT_EQ(SensorNodes("ICB"), nodes) << "in the order of the records, the discrete one left out";
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(SensorLeavesTest, Readings_AreThoseOfTheMomentAndComeAndGo) {
    SimulatedController controller;
    controller.sensors = EveryKind();
    IpmiSimulator simulator({.controllers = {controller}});
    StartOn({test::Icb(simulator)});
    for (const SimulatedSensor& sensor : EveryKind()) {
        if (sensor.lun == 0 && !sensor.isUnavailable && sensor.isScanned) {
            simulator.SetRaw(test::c_bmc, sensor.number, static_cast<std::uint8_t>(sensor.raw + 3));
        }
    }
    const std::string value = "boards/ICB/sensors/ID_1/value";
    EXPECT_EQ(Get(value), "43");
    const Tree tree = TreeOf("boards/ICB");
    for (const SimulatedSensor& sensor : simulator.GetController().sensors) {
        ExpectSensor(tree, sensor, !sensor.isUnavailable && sensor.isScanned);
    }
    const std::vector<std::function<void(bool)>> ways{
        [&](bool isGone) { simulator.SetUnavailable(test::c_bmc, 1, isGone); },
        [&](bool isGone) { simulator.SetScanning(test::c_bmc, 1, !isGone); },
        [&](bool isGone) { simulator.SetSensorCompletionCode(test::c_bmc, 1, isGone ? 0xcb : 0); }};
    for (const auto& setGone : ways) {
        setGone(true);
        ExpectFailure({"get", value}, 3, "no value");
        setGone(false);
        EXPECT_EQ(Get(value), "43");
    }
    EXPECT_EQ(Stop(), 0);
}

TEST_F(SensorLeavesTest, EveryRecordedMachine_IsWhatIpmitoolPrintsOfIt) {
    const std::vector<std::string> names = test::RecordingNames();
    ASSERT_GT(names.size(), 20U);
    std::vector<std::unique_ptr<IpmiSimulator>> simulators;
    std::vector<BoardAt> boards;
    for (const std::string& name : names) {
        SimulatedController controller;
        controller.sensors = test::RecordedSensors(name);
        simulators.push_back(std::make_unique<IpmiSimulator>(test::SimulatedChassis{.controllers = {controller}}));
        const IpmiSimulator& simulator = *simulators.back();
        boards.push_back(boards.empty() ? test::Icb(simulator) : test::Io(static_cast<int>(boards.size()), simulator));
    }
    StartOn(boards);
    for (std::size_t i = 0; i < boards.size(); ++i) {
        SCOPED_TRACE(names[i]);
        const Tree tree = TreeOf("boards/" + boards[i].name);
        const test::Result printed = test::Ipmitool(*simulators[i], {"sensor"});
        const auto rows = chassisctl::ReadSensorTable(printed.output).sensors;
        const auto& sensors = simulators[i]->GetController().sensors;
        ASSERT_EQ(rows.size(), sensors.size()) << printed.error;
        EXPECT_EQ(SensorNodes(boards[i].name).size(), sensors.size());
        for (std::size_t sensor = 0; sensor < sensors.size(); ++sensor) {
            ExpectSame(tree, rows[sensor], sensors[sensor]);
            ExpectSensor(tree, sensors[sensor], !sensors[sensor].isUnavailable);
        }
    }
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(), IsEmpty());
}

}  // namespace
