#include "bmc/enums.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "qstd/exception.h"

namespace {

using bmc::BoardType_e;
using bmc::SensorType_e;

TEST(BoardType, FixedNumbers_HaveTheirNames) {
    const auto& items = qstd::EnumMap<BoardType_e>::items;
    EXPECT_EQ(items.FindNumber(44), BoardType_e::icb);
    EXPECT_EQ(items.FindNumber(243), BoardType_e::os);
    EXPECT_EQ(items.FindNumber(255), BoardType_e::none);
    EXPECT_EQ(items.GetName(BoardType_e::icb), "icb");
    EXPECT_EQ(items.FindValue("os"), BoardType_e::os);
    EXPECT_EQ(items.FindValue("ICB"), std::nullopt);
    EXPECT_EQ(items.FindNumber(54), std::nullopt);
}

/// Whether each value of the table is found by its name and by its number, and how many there are.
template <class E>
std::size_t CountRoundTrips() {
    const auto& items = qstd::EnumMap<E>::items;
    for (const auto& [value, name] : items.GetNames()) {
        EXPECT_EQ(items.FindValue(name), value) << name;
        EXPECT_EQ(items.FindNumber(static_cast<long long>(value)), value) << name;
        EXPECT_EQ(qstd::EnumFromString<E>(name), value) << name;
        EXPECT_EQ(qstd::EnumFromString<E>(std::to_string(static_cast<long long>(value))), value) << name;
    }
    return items.GetNames().size();
}

TEST(EnumTables, EveryValue_IsFoundByNameAndNumber) {
    EXPECT_EQ(CountRoundTrips<BoardType_e>(), 60U);
    EXPECT_EQ(CountRoundTrips<SensorType_e>(), 45U);
    EXPECT_EQ(CountRoundTrips<bmc::BoardStatus_e>(), 6U);
    EXPECT_EQ(CountRoundTrips<bmc::BoardPowerStatus_e>(), 4U);
    EXPECT_EQ(CountRoundTrips<bmc::RedLedStatus_e>(), 4U);
    EXPECT_EQ(CountRoundTrips<bmc::FirmwareType_e>(), 4U);
}

TEST(EnumTables, BadText_IsRefused) {
    const auto textOf = [](const std::string& text) -> std::string {
        try {
            qstd::EnumFromString<BoardType_e>(text);
        } catch (const qstd::Exception& error) {
            return error.what();
        }
        return "taken";
    };
    EXPECT_EQ(textOf("Icb"), "Invalid integer value");
    EXPECT_EQ(textOf(""), "Invalid integer value");
    EXPECT_EQ(textOf("9999"), "Invalid enum value");
    EXPECT_EQ(textOf("44"), "taken");
}

TEST(SensorType, OfEveryIpmiCode_AndBack) {
    std::set<SensorType_e> seen;
    for (unsigned int code = 0; code <= 0x2c; ++code) {
        const auto type = bmc::SensorTypeFromIpmi(code);
        ASSERT_TRUE(type) << code;
        EXPECT_TRUE(seen.insert(*type).second) << code;
        EXPECT_EQ(bmc::SensorTypeToIpmi(*type), code);
        if (code != 1 && code != 2) {
            EXPECT_EQ(static_cast<unsigned int>(*type), code);
        }
    }
    EXPECT_EQ(seen.size(), qstd::EnumMap<SensorType_e>::items.GetNames().size());
}

TEST(SensorType, TemperatureAndVoltage_AreExchanged) {
    EXPECT_EQ(static_cast<int>(SensorType_e::temperature), 2);
    EXPECT_EQ(bmc::SensorTypeFromIpmi(0x01), SensorType_e::temperature);
    EXPECT_EQ(bmc::SensorTypeFromIpmi(0x02), SensorType_e::voltage);
}

TEST(SensorType, ReservedAndOemCodes_AreNone) {
    for (const unsigned int code : {0x2dU, 0x7fU, 0xbfU, 0xc0U, 0xffU, 0xffffffffU}) {
        EXPECT_EQ(bmc::SensorTypeFromIpmi(code), std::nullopt) << code;
    }
}

}  // namespace
