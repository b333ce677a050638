#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bmc/backend.h"
#include "bmc/board.h"
#include "bmc/board_pool.h"
#include "bmc/sweep.h"
#include "qstd/time.h"

// What is large stands in the source: a mock's constructor and destructor make the compiler write out all of it, which
// takes seconds in every test that holds one.

namespace test {

/// What a mock sensor answers unless a test says otherwise.
struct SensorFacts {
    int id = 0;
    bmc::SensorType_e type = bmc::SensorType_e::other;
    std::string name;
    std::string units;
    bmc::SensorReading lowerNonRecoverable = bmc::SensorReading::NoLowerLimit();
    bmc::SensorReading lowerCritical = bmc::SensorReading::NoLowerLimit();
    bmc::SensorReading lowerNonCritical = bmc::SensorReading::NoLowerLimit();
    bmc::SensorReading nominal = bmc::SensorReading();
    bmc::SensorReading upperNonCritical = bmc::SensorReading::NoUpperLimit();
    bmc::SensorReading upperCritical = bmc::SensorReading::NoUpperLimit();
    bmc::SensorReading upperNonRecoverable = bmc::SensorReading::NoUpperLimit();
};

/// A sensor that answers from its facts and holds the reading it was given; every answer can be replaced.
class MockSensor : public bmc::Sensor {
public:
    MockSensor(const SensorFacts& facts, double reading);
    ~MockSensor() override;

    /// The reading from now on. Any thread.
    void Hold(double reading) { m_reading = reading; }

    MOCK_METHOD(const bmc::SensorId&, GetId, (), (const, override));
    MOCK_METHOD(bmc::SensorType_e, GetType, (), (const, override));
    MOCK_METHOD(const std::string&, GetName, (), (const, override));
    MOCK_METHOD(const std::string&, GetUnits, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetNominal, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetLowerNonCritical, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetLowerCritical, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetLowerNonRecoverable, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetUpperNonCritical, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetUpperCritical, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, GetUpperNonRecoverable, (), (const, override));
    MOCK_METHOD(bmc::SensorReading, Read, (), (const, override));
    MOCK_METHOD(int, ReadingLimit, (const bmc::SensorReading&), (const, override));

private:
    bmc::SensorId m_id;
    std::string m_name;
    std::string m_units;
    std::atomic<double> m_reading;
};

/// A board with mock sensors; every answer can be replaced.
class MockBoard : public bmc::Board {
public:
    MockBoard(bmc::Uri uri, std::string shortName, bmc::BoardType_e type);
    ~MockBoard() override;

    MockSensor& Add(const SensorFacts& facts, double reading);

    MOCK_METHOD(const bmc::Uri&, GetUri, (), (const, override));
    MOCK_METHOD(bmc::BoardType_e, GetType, (), (const, override));
    MOCK_METHOD(std::string, GetShortName, (), (const, override));
    MOCK_METHOD(std::vector<bmc::SensorId>, GetSensorsIds, (), (override));
    MOCK_METHOD(bmc::Sensor*, GetSensor, (const bmc::SensorId&), (override));
    MOCK_METHOD(qstd::Time, GetTime, (), (const, override));
    MOCK_METHOD(void, SetTime, (const qstd::Time&), (override));
    MOCK_METHOD(void, PowerDown, (), (override));
    MOCK_METHOD(void, ShutDown, (), (override));
    MOCK_METHOD(bmc::FpgaReadResult, FpgaSpiRead, (std::uint16_t), (const, override));
    MOCK_METHOD(bmc::FpgaWriteResult, FpgaSpiWrite, (std::uint16_t, std::uint16_t), (const, override));
    MOCK_METHOD(std::vector<bmc::FpgaWriteResult>, FpgaSpiWriteAll, (const std::vector<bmc::FpgaRegisterValue>&),
                (const, override));
    MOCK_METHOD(bmc::BoardStatus_e, GetStatus, (), (const, override));
    MOCK_METHOD(bmc::BoardPowerStatus_e, GetPowerStatus, (), (const, override));
    MOCK_METHOD(bmc::RedLedStatus_e, GetRedLighStatus, (), (const, override));
    MOCK_METHOD(bmc::FirmwareType_e, GetFirmwareType, (), (const, override));
    MOCK_METHOD(int, GetFwRevision, (), (const, override));
    MOCK_METHOD(int, GetFpgaRevision, (), (const, override));
    MOCK_METHOD(int, GetIpmiVersion, (), (const, override));
    MOCK_METHOD(std::string, GetDevicePrefix, (), (const, override));

private:
    bmc::Uri m_uri;
    std::string m_shortName;
    std::vector<std::pair<bmc::SensorId, std::unique_ptr<MockSensor>>> m_sensors;
};

/// The boards behind the pool, in the order in which they were added; every answer can be replaced.
class MockBackend : public bmc::Backend {
public:
    MockBackend();
    ~MockBackend() override;

    MockBoard& Add(const bmc::Uri& uri, const std::string& shortName, bmc::BoardType_e type);

    MOCK_METHOD(std::vector<bmc::Uri>, GetAllLocalBoardUris, (), (const, override));
    MOCK_METHOD(bmc::Board*, GetBoard, (const bmc::Uri&), (override));
    MOCK_METHOD(std::unique_ptr<bmc::Sweep>, StartSweep, (const bmc::SensorIds&), (override));
    MOCK_METHOD(void, LimitAccesses, (std::chrono::steady_clock::time_point), (override));

private:
    std::vector<std::pair<bmc::Uri, std::unique_ptr<MockBoard>>> m_boards;
};

/// Three boards behind the pool for the life of the object: the host HOST_0 (u:c), SLOT_2 (u:b, type 10) and the
/// chassis controller ICB_1 (u:a), in this order.
class ThreeBoards {
public:
    ThreeBoards();
    ThreeBoards(const ThreeBoards&) = delete;
    ThreeBoards& operator=(const ThreeBoards&) = delete;
    ~ThreeBoards();

    static SensorFacts Temperature(int id, const std::string& name, double nominal, double hnc, double hc, double hnr);
    static SensorFacts Voltage();

private:
    std::unique_ptr<MockBackend> m_owned;

public:
    MockBackend& backend;
    MockBoard& host;
    MockBoard& slot2;
    MockBoard& icb;
    MockSensor& cpu;     ///< 7 of the host
    MockSensor& core;    ///< 5 of SLOT_2
    MockSensor& v12;     ///< 3 of the controller
    MockSensor& intake;  ///< 12 of the controller

private:
    std::unique_ptr<bmc::Backend> m_before;
};

}  // namespace test
