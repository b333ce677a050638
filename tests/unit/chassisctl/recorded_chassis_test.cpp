#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "bmc/uri.h"
#include "qcfg/document.h"

// The example chassis that is made of recorded machines: what a person sees who starts the daemon on it.

namespace {

const std::string c_example = std::string(ZELKOR_TEST_DATA) + "/../../examples/chassis/recorded.xml";

std::string Text(const qcfg::Element& element, const std::string& attribute) {
    std::string text;
    element.GetAttrValue(attribute, text);
    return text;
}

double NumberOf(const qcfg::Element& element, const std::string& attribute) {
    double number = std::numeric_limits<double>::quiet_NaN();
    element.GetAttrValue(attribute, number);
    return number;
}

/// Readings that the sensor has at the start and later with fans at 4000 RPM; none when it is not available.
std::vector<double> Readings(const qcfg::Element& sensor) {
    constexpr double c_ambient = 25.0;
    if (const auto thermal = sensor.FindChild("thermal")) {
        return {c_ambient, c_ambient + NumberOf(*thermal, "power") * NumberOf(*thermal, "resistance")};
    }
    if (const auto wave = sensor.FindChild("wave")) {
        const double swing = NumberOf(*wave, "amplitude") + NumberOf(*wave, "noise");
        return {NumberOf(*wave, "mean") - swing, NumberOf(*wave, "mean") + swing};
    }
    return Text(sensor, "value") == "na" ? std::vector<double>{} : std::vector<double>{NumberOf(sensor, "value")};
}

bool IsOutside(const qcfg::Element& sensor) {
    for (const double reading : Readings(sensor)) {
        for (const char* lower : {"lnr", "lc", "lnc"}) {
            if (reading < NumberOf(sensor, lower)) {
                return true;
            }
        }
        for (const char* upper : {"unc", "uc", "unr"}) {
            if (reading > NumberOf(sensor, upper)) {
                return true;
            }
        }
    }
    return false;
}

class RecordedChassis : public testing::Test {
protected:
    std::vector<std::shared_ptr<qcfg::Element>> Sensors() const {
        std::vector<std::shared_ptr<qcfg::Element>> sensors;
        for (const auto& board : m_chassis->GetChildren()) {
            for (const auto& child : board->GetChildren()) {
                if (child->GetName() == "sensor") {
                    sensors.push_back(child);
                }
            }
        }
        return sensors;
    }

    const std::shared_ptr<qcfg::Element> m_chassis = qcfg::ReadXmlFile(c_example);
};

TEST_F(RecordedChassis, HasThirteenBoardsWithUrisOfTheirOwn) {
    std::set<std::string> uris;
    for (const auto& board : m_chassis->GetChildren()) {
        uris.insert(bmc::Uri::Parse(Text(*board, "uri")).ToString());
    }
    EXPECT_EQ(m_chassis->GetChildren().size(), 13U);
    EXPECT_EQ(uris.size(), 13U);
}

TEST_F(RecordedChassis, ControllerBoardAloneCarriesTheFans) {
    for (const auto& board : m_chassis->GetChildren()) {
        const bool isController = Text(*board, "uri") == bmc::c_localIcbUri.ToString();
        EXPECT_EQ(board->FindChild("fans") != nullptr, isController) << Text(*board, "uri");
        EXPECT_EQ(Text(*board, "type") == "icb", isController);
    }
    const auto fans = m_chassis->GetChildren().at(0)->FindChild("fans");
    ASSERT_NE(fans, nullptr);
    EXPECT_EQ(Text(*fans, "rpm"), "4000");
}

TEST_F(RecordedChassis, Has405SensorsSomeMovingSomeNotAvailable) {
    std::size_t thermal = 0, waves = 0, missing = 0;
    for (const auto& sensor : Sensors()) {
        thermal += sensor->FindChild("thermal") != nullptr ? 1 : 0;
        waves += sensor->FindChild("wave") != nullptr ? 1 : 0;
        missing += Readings(*sensor).empty() ? 1 : 0;
    }
    EXPECT_EQ(Sensors().size(), 405U);
    EXPECT_GT(thermal, 50U);
    EXPECT_GT(waves, 50U);
    EXPECT_GT(missing, 50U);
}

TEST_F(RecordedChassis, EightSensorsAreOutsideTheirLimits) {
    std::vector<std::string> outside;
    for (const auto& sensor : Sensors()) {
        if (IsOutside(*sensor)) {
            outside.push_back(Text(*sensor, "name"));
        }
    }
    EXPECT_THAT(outside, testing::ElementsAre("BAT", "FRNT_FAN1", "FRNT_FAN2", "FRNT_FAN3", "SEL_FULLNESS", "CPU FAN",
                                              "SYSTEM FAN", "TEMP_CPU"));
}

TEST_F(RecordedChassis, NoReadingIsAboveItsUpperNonRecoverableLimit) {
    for (const auto& sensor : Sensors()) {
        for (const double reading : Readings(*sensor)) {
            EXPECT_FALSE(reading > NumberOf(*sensor, "unr")) << Text(*sensor, "name");
        }
    }
}

TEST_F(RecordedChassis, EachBoardStandsBelowTheOriginOfItsRecording) {
    std::ifstream in(c_example);
    std::string line, before;
    std::size_t boards = 0;
    while (std::getline(in, line)) {
        if (line.starts_with("  <board ")) {
            ++boards;
            EXPECT_TRUE(before.starts_with("  <!-- ") && before.ends_with(" -->")) << line;
        }
        before = line;
    }
    EXPECT_EQ(boards, 13U);
}

}  // namespace
