#include "tools/chassisctl/board_writer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qcfg/document.h"

namespace {

using bmc::SensorType_e;
using chassisctl::BoardOptions;
using chassisctl::SensorRow;
using chassisctl::SensorTable;
using chassisctl::WriteBoard;
using testing::HasSubstr;

SensorRow Sensor(int id, const std::string& name, SensorType_e type, std::optional<double> value) {
    return {id, name, type, "", value, {}, std::nullopt};
}

TEST(BoardWriter, FixedReadings_OneSensorALine) {
    SensorTable table;
    table.sensors.push_back(
        {16, "Inlet", SensorType_e::temperature, "degrees C", 31.5, {-20.0, -10.0, 0.0, 60.0, 70.0, 80.0}, 30.0});
    table.sensors.push_back(
        {17, "Fan4", SensorType_e::fan, "RPM", std::nullopt, {{std::nullopt, 540.0}}, std::nullopt});
    EXPECT_EQ(
        WriteBoard(table, {"io/2", "io", "IO2", std::nullopt}),
        "  <board uri=\"io/2\" type=\"io\" name=\"IO2\">\n"
        "    <sensor id=\"16\" name=\"Inlet\" type=\"temperature\" units=\"degrees C\" value=\"31.5\" nominal=\"30\" "
        "lnr=\"-20\" lc=\"-10\" lnc=\"0\" unc=\"60\" uc=\"70\" unr=\"80\"/>\n"
        "    <sensor id=\"17\" name=\"Fan4\" type=\"fan\" units=\"RPM\" value=\"na\" lc=\"540\"/>\n"
        "  </board>\n");
}

TEST(BoardWriter, NamesOfAnyKind_ReadBackFromTheXml) {
    const std::string name = "<a> & \"b\" 'c' \u00fc\u2103 ]]>";
    SensorTable table;
    table.sensors.push_back(Sensor(1, name, SensorType_e::other, 1.0));
    const auto board = qcfg::ReadXmlText(WriteBoard(table, {"io/1", "io", name, std::nullopt}), "board");
    std::string read;
    ASSERT_TRUE(board->GetAttrValue("name", read));
    EXPECT_EQ(read, name);
    ASSERT_TRUE(board->GetChildren().at(0)->GetAttrValue("name", read));
    EXPECT_EQ(read, name);
}

/// The element that moves the only sensor of a board.
std::shared_ptr<qcfg::Element> Movement(const SensorRow& sensor, double live) {
    SensorTable table;
    table.sensors.push_back(sensor);
    const auto board = qcfg::ReadXmlText(WriteBoard(table, {"io/1", "io", "IO1", live}), "board");
    const auto& children = board->GetChildren().at(0)->GetChildren();
    return children.empty() ? nullptr : children.at(0);
}

double Number(const qcfg::Element& element, const std::string& attribute) {
    double number = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(element.GetAttrValue(attribute, number)) << attribute;
    return number;
}

TEST(BoardWriter, LiveTemperature_IsThermalWithTheRecordedSteadyState) {
    for (const double recorded : {25.5, 31.0, 47.0, 80.25, 104.9}) {
        const auto thermal = Movement(Sensor(1, "t", SensorType_e::temperature, recorded), 2.0);
        ASSERT_EQ(thermal->GetName(), "thermal");
        EXPECT_DOUBLE_EQ(25.0 + Number(*thermal, "power") * Number(*thermal, "resistance"), recorded);
        EXPECT_GT(Number(*thermal, "tau"), 0.0);
    }
}

TEST(BoardWriter, LiveTemperatureNotAboveAmbient_IsAWave) {
    for (const double recorded : {25.0, 24.0, 0.0, -58.0}) {
        const auto wave = Movement(Sensor(1, "t", SensorType_e::temperature, recorded), 2.0);
        EXPECT_EQ(wave->GetName(), "wave");
        EXPECT_EQ(Number(*wave, "mean"), recorded);
    }
}

TEST(BoardWriter, LiveReadingOfAnotherKind_IsAWaveOfThatManyPercent) {
    const auto wave = Movement(Sensor(3, "v", SensorType_e::voltage, -12.0), 5.0);
    ASSERT_EQ(wave->GetName(), "wave");
    EXPECT_EQ(Number(*wave, "mean"), -12.0);
    EXPECT_EQ(Number(*wave, "amplitude"), 0.6);
    EXPECT_EQ(Number(*wave, "noise"), 0.06);
    EXPECT_GT(Number(*wave, "period"), 0.0);
}

TEST(BoardWriter, LiveReadingNotAvailable_StaysSo) {
    EXPECT_EQ(Movement(Sensor(1, "f", SensorType_e::fan, std::nullopt), 2.0), nullptr);
    SensorTable table;
    table.sensors.push_back(Sensor(1, "f", SensorType_e::fan, std::nullopt));
    EXPECT_THAT(WriteBoard(table, {"io/1", "io", "IO1", 2.0}), HasSubstr("value=\"na\"/>"));
}

TEST(BoardWriter, LiveExtremes_StayFiniteNumbers) {
    constexpr double c_largest = std::numeric_limits<double>::max();
    constexpr double c_least = std::numeric_limits<double>::denorm_min();
    for (const double value : {c_largest, -c_largest, c_least, -c_least}) {
        const auto wave =
            Movement(Sensor(std::numeric_limits<int>::min(), "x", SensorType_e::temperature, value), 100.0);
        ASSERT_EQ(wave->GetName(), "wave") << value;
        EXPECT_EQ(Number(*wave, "mean"), value);
        EXPECT_TRUE(std::isfinite(Number(*wave, "amplitude"))) << value;
        EXPECT_TRUE(std::isfinite(Number(*wave, "noise"))) << value;
    }
}

}  // namespace
