#include "bmc/ipmi/ipmi_sensor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "fake_link.h"
#include "record_builder.h"
#include "tests/support/expect_text.h"
#include "tests/support/special_numbers.h"

namespace {

using bmc::SensorReading;
using bmc::ipmi::DecodeRecord;
using bmc::ipmi::IpmiSensor;
using test::TextOf;

class IpmiSensorTest : public testing::Test {
protected:
    IpmiSensor Make(const FullRecord& record) { return {"io/1", DecodeRecord(record.Bytes()).at(0), m_controller}; }

    void Thresholds(std::uint8_t mask) { m_controller.m_thresholds[16] = {0, {mask, 10, 5, 1, 60, 70, 80}}; }

    static std::vector<double> Values(const IpmiSensor& sensor) {
        std::vector<double> values;
        for (const SensorReading& reading :
             {sensor.GetLowerNonCritical(), sensor.GetLowerCritical(), sensor.GetLowerNonRecoverable(),
              sensor.GetUpperNonCritical(), sensor.GetUpperCritical(), sensor.GetUpperNonRecoverable()}) {
            EXPECT_EQ(reading.IsValid(), std::isfinite(reading.Converted()));
            values.push_back(reading.Converted());
        }
        return values;
    }

    FakeLink m_controller;
};

TEST_F(IpmiSensorTest, Accessors_OfTheRecord_AskNobody) {
    FullRecord record;
    record.isNominalSpecified = true;
    record.nominal = 40;
    const IpmiSensor sensor = Make(record);
    EXPECT_EQ(sensor.GetId(), bmc::SensorId(16));
    EXPECT_EQ(sensor.GetType(), bmc::SensorType_e::temperature);
    EXPECT_EQ(sensor.GetName(), "Inlet");
    EXPECT_EQ(sensor.GetUnits(), "degrees C");
    EXPECT_TRUE(sensor.GetNominal().IsValid());
    EXPECT_EQ(sensor.GetNominal().Converted(), 40.0);
    EXPECT_THAT(Values(sensor),
                testing::ElementsAre(-c_infinity, -c_infinity, -c_infinity, c_infinity, c_infinity, c_infinity))
        << "not read yet; what stands in the record is nobody's limit";
    EXPECT_TRUE(m_controller.m_requests.empty());
}

TEST_F(IpmiSensorTest, NominalNotSpecified_NotValid) {
    const IpmiSensor sensor = Make({});
    EXPECT_FALSE(sensor.GetNominal().IsValid());
    EXPECT_TRUE(std::isnan(sensor.GetNominal().Converted()));
}

TEST_F(IpmiSensorTest, Reading_ConvertedByTheRecord) {
    FullRecord record;
    record.units1 = 0x80;
    record.m = 5;
    record.b = 3;
    record.rExponent = -1;
    record.lun = 1;
    m_controller.m_readings[16 + 256] = {0, {0xf0, 0xc0}};
    const SensorReading reading = Make(record).Read();
    EXPECT_TRUE(reading.IsValid());
    EXPECT_DOUBLE_EQ(reading.Converted(), -7.7);
}

TEST_F(IpmiSensorTest, UnavailableOrNotScanned_NotValid) {
    const IpmiSensor sensor = Make({});
    for (const int flags : {0x00, 0x80, 0x20, 0x60, 0xe0}) {
        m_controller.m_readings[16] = {0, {25, static_cast<std::uint8_t>(flags), 0xc0}};
        EXPECT_FALSE(sensor.Read().IsValid()) << flags;
        EXPECT_TRUE(std::isnan(sensor.Read().Converted()));
    }
    m_controller.m_readings[16] = {0, {25, 0x40}};
    EXPECT_TRUE(sensor.Read().IsValid());
}

TEST_F(IpmiSensorTest, CodesThatSpeakOfTheSensor_NotValid_Others_Exceptions) {
    const IpmiSensor sensor = Make({});
    for (int code = 1; code < 256; ++code) {
        m_controller.m_readings[16] = {static_cast<std::uint8_t>(code), {}};
        if (code == 0xcb || code == 0xcd || code == 0xd5) {
            EXPECT_FALSE(sensor.Read().IsValid()) << code;
        } else {
            EXPECT_THROW(sensor.Read(), qstd::Exception) << code;
        }
    }
    m_controller.m_readings[16] = {0xc0, {}};
    EXPECT_EQ(TextOf([&] { sensor.Read(); }), "io/1 sensor 16 (Inlet): Get Sensor Reading: 0xC0 (busy)");
    m_controller.m_readings[16] = {0, {25}};
    EXPECT_EQ(TextOf([&] { sensor.Read(); }),
              "io/1 sensor 16 (Inlet): Get Sensor Reading: the reply has 1 bytes instead of 2");
    m_controller.m_isSilent = true;
    EXPECT_THROW(sensor.Read(), bmc::ipmi::NoAnswer);
}

TEST_F(IpmiSensorTest, CountWithoutAValue_NotValid) {
    FullRecord record;
    record.linearization = 1;
    m_controller.m_readings[16] = {0, {0, 0x40}};
    EXPECT_FALSE(Make(record).Read().IsValid());
}

TEST_F(IpmiSensorTest, Thresholds_WhereRecordAndReplySaySo) {
    FullRecord record;
    record.readableMask = 0x3b;
    IpmiSensor sensor = Make(record);
    Thresholds(0x36);
    EXPECT_TRUE(sensor.HasThresholds());
    sensor.TakeThresholds(m_controller.Execute(sensor.ThresholdsRequest(), bmc::ipmi::Purpose_e::sweeping));
    EXPECT_THAT(Values(sensor), testing::ElementsAre(-c_infinity, 5.0, -c_infinity, c_infinity, 70.0, 80.0));
    EXPECT_EQ(sensor.ReadingLimit(SensorReading(80.5)), bmc::Sensor::c_aboveUpperNonRecoverable);
    EXPECT_EQ(sensor.ReadingLimit(SensorReading(80.0)), bmc::Sensor::c_aboveUpperCritical);
    EXPECT_EQ(sensor.ReadingLimit(SensorReading(4.0)), bmc::Sensor::c_belowLowerCritical);
    EXPECT_EQ(sensor.ReadingLimit(SensorReading(65.0)), bmc::Sensor::c_withinLimits);
}

TEST_F(IpmiSensorTest, ThresholdsThatAreNotGiven_FormerOnesStay) {
    IpmiSensor sensor = Make({});
    sensor.TakeThresholds({0xcd, {}});
    EXPECT_FALSE(sensor.GetUpperCritical().IsValid());
    Thresholds(0x3f);
    sensor.TakeThresholds(m_controller.m_thresholds[16]);
    sensor.TakeThresholds({0xd5, {}});
    EXPECT_EQ(TextOf([&] {
                  sensor.TakeThresholds({0xc0, {}});
              }),
              "io/1 sensor 16 (Inlet): Get Sensor Thresholds: 0xC0 (busy)");
    EXPECT_EQ(TextOf([&] {
                  sensor.TakeThresholds({0, {0x3f, 1, 2, 3, 4, 5}});
              }),
              "io/1 sensor 16 (Inlet): Get Sensor Thresholds: the reply has 6 bytes instead of 7");
    EXPECT_EQ(sensor.GetUpperCritical().Converted(), 70.0);
}

TEST_F(IpmiSensorTest, FactorsThatDifferByCount_AskedForOnce) {
    FullRecord record;
    record.linearization = 0x70;
    record.isNominalSpecified = true;
    record.nominal = 100;
    IpmiSensor sensor = Make(record);
    // Next count, M, M and tolerance, B, B and accuracy, accuracy, exponents.
    m_controller.m_factors[100] = {0, {101, 0x02, 0x00, 0x0a, 0x00, 0x00, 0xf0}};  // (2 * 100 + 10) / 10
    m_controller.m_factors[60] = {0, {61, 0x00, 0xc5, 0xff, 0xc5, 0x00, 0xe1}};    // (-256 * 60 - 10) / 100
    m_controller.m_readings[16] = {0, {100, 0x40}};
    EXPECT_FALSE(sensor.GetNominal().IsValid()) << "not read yet";
    EXPECT_DOUBLE_EQ(sensor.Read().Converted(), 21.0);
    EXPECT_DOUBLE_EQ(sensor.Read().Converted(), 21.0);
    sensor.ReadNominal();
    EXPECT_DOUBLE_EQ(sensor.GetNominal().Converted(), 21.0);
    EXPECT_EQ(m_controller.Count(0x04, 0x23), 1U);
    sensor.TakeThresholds({0, {0x08, 0, 0, 0, 60, 0, 0}});
    EXPECT_DOUBLE_EQ(sensor.GetUpperNonCritical().Converted(), -153.7);
    m_controller.m_readings[16] = {0, {99, 0x40}};
    EXPECT_EQ(TextOf([&] { sensor.Read(); }),
              "io/1 sensor 16 (Inlet): Get Sensor Reading Factors: 0xCB (no such "
              "sensor, data or record)");
}

TEST_F(IpmiSensorTest, TwoHalvesOfARead_AsRead) {
    const IpmiSensor sensor = Make({});
    EXPECT_EQ(sensor.ReadingRequest().netFn, 0x04);
    EXPECT_EQ(sensor.ReadingRequest().command, 0x2d);
    EXPECT_EQ(sensor.TakeReading({0, {25, 0x40}}).Converted(), 25.0);
}

TEST_F(IpmiSensorTest, NotPresent_ReadingRaisesAndAsksNobody) {
    IpmiSensor sensor = Make({});
    sensor.SetPresent(false);
    EXPECT_EQ(TextOf([&] { sensor.Read(); }),
              "io/1 sensor 16 (Inlet): the board's sensor records do not have this sensor any more");
    EXPECT_TRUE(m_controller.m_requests.empty());
}

TEST_F(IpmiSensorTest, AccessorsBesideRefreshes_OldOrNewValues) {
    IpmiSensor sensor = Make({});
    std::atomic<bool> isStopped{false};
    std::thread reader([&] {
        while (!isStopped) {
            const double value = sensor.GetUpperCritical().Converted();
            EXPECT_TRUE(value == 70.0 || value == 71.0 || value == c_infinity) << value;
        }
    });
    for (int i = 0; i < 1000; ++i) {
        sensor.TakeThresholds({0, {0x3f, 10, 5, 1, 60, static_cast<std::uint8_t>(70 + i % 2), 80}});
    }
    isStopped = true;
    reader.join();
}

}  // namespace
