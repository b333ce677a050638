#pragma once

#include <gmock/gmock.h>

#include <algorithm>
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
#include "qstd/time.h"

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
    MockSensor(const SensorFacts& facts, double reading)
        : m_id(facts.id), m_name(facts.name), m_units(facts.units), m_reading(reading) {
        using testing::Return;
        using testing::ReturnRef;
        ON_CALL(*this, GetId).WillByDefault(ReturnRef(m_id));
        ON_CALL(*this, GetType).WillByDefault(Return(facts.type));
        ON_CALL(*this, GetName).WillByDefault(ReturnRef(m_name));
        ON_CALL(*this, GetUnits).WillByDefault(ReturnRef(m_units));
        ON_CALL(*this, GetNominal).WillByDefault(Return(facts.nominal));
        ON_CALL(*this, GetLowerNonCritical).WillByDefault(Return(facts.lowerNonCritical));
        ON_CALL(*this, GetLowerCritical).WillByDefault(Return(facts.lowerCritical));
        ON_CALL(*this, GetLowerNonRecoverable).WillByDefault(Return(facts.lowerNonRecoverable));
        ON_CALL(*this, GetUpperNonCritical).WillByDefault(Return(facts.upperNonCritical));
        ON_CALL(*this, GetUpperCritical).WillByDefault(Return(facts.upperCritical));
        ON_CALL(*this, GetUpperNonRecoverable).WillByDefault(Return(facts.upperNonRecoverable));
        ON_CALL(*this, Read).WillByDefault([this] { return bmc::SensorReading(m_reading.load()); });
        ON_CALL(*this, ReadingLimit).WillByDefault([this](const bmc::SensorReading& taken) {
            return bmc::Sensor::ReadingLimit(taken);
        });
    }

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
    MockBoard(bmc::Uri uri, std::string shortName, bmc::BoardType_e type)
        : m_uri(std::move(uri)), m_shortName(std::move(shortName)) {
        using testing::Return;
        using testing::ReturnRef;
        ON_CALL(*this, GetUri).WillByDefault(ReturnRef(m_uri));
        ON_CALL(*this, GetType).WillByDefault(Return(type));
        ON_CALL(*this, GetShortName).WillByDefault(Return(m_shortName));
        ON_CALL(*this, GetTime).WillByDefault(Return(qstd::Time(qstd::Time::c_zero)));
        ON_CALL(*this, FpgaSpiWriteAll).WillByDefault([this](const std::vector<bmc::FpgaRegisterValue>& values) {
            return bmc::Board::FpgaSpiWriteAll(values);
        });
        ON_CALL(*this, GetSensorsIds).WillByDefault([this] {
            std::vector<bmc::SensorId> ids;
            for (const auto& [id, sensor] : m_sensors) {
                ids.push_back(id);
            }
            return ids;
        });
        ON_CALL(*this, GetSensor).WillByDefault([this](const bmc::SensorId& id) -> bmc::Sensor* {
            const auto found = std::find_if(m_sensors.begin(), m_sensors.end(),
                                            [&id](const auto& entry) { return entry.first == id; });
            return found == m_sensors.end() ? nullptr : found->second.get();
        });
    }

    MockSensor& Add(const SensorFacts& facts, double reading) {
        m_sensors.emplace_back(bmc::SensorId(facts.id),
                               std::make_unique<testing::NiceMock<MockSensor>>(facts, reading));
        return *m_sensors.back().second;
    }

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
    MockBackend() {
        ON_CALL(*this, GetAllLocalBoardUris).WillByDefault([this] {
            std::vector<bmc::Uri> uris;
            for (const auto& board : m_boards) {
                uris.push_back(board.first);
            }
            return uris;
        });
        ON_CALL(*this, GetBoard).WillByDefault([this](const bmc::Uri& uri) -> bmc::Board* {
            const auto found = std::find_if(m_boards.begin(), m_boards.end(),
                                            [&uri](const auto& entry) { return entry.first == uri; });
            return found == m_boards.end() ? nullptr : found->second.get();
        });
    }

    MockBoard& Add(const bmc::Uri& uri, const std::string& shortName, bmc::BoardType_e type) {
        m_boards.emplace_back(uri, std::make_unique<testing::NiceMock<MockBoard>>(uri, shortName, type));
        return *m_boards.back().second;
    }

    MOCK_METHOD(std::vector<bmc::Uri>, GetAllLocalBoardUris, (), (const, override));
    MOCK_METHOD(bmc::Board*, GetBoard, (const bmc::Uri&), (override));
    MOCK_METHOD(void, LimitAccesses, (std::chrono::steady_clock::time_point), (override));

private:
    std::vector<std::pair<bmc::Uri, std::unique_ptr<MockBoard>>> m_boards;
};

/// Three boards behind the pool for the life of the object: the host HOST_0 (u:c), SLOT_2 (u:b, type 10) and the
/// chassis controller ICB_1 (u:a), in this order.
class ThreeBoards {
public:
    ThreeBoards()
        : m_owned(std::make_unique<testing::NiceMock<MockBackend>>()),
          backend(*m_owned),
          host(backend.Add(bmc::Uri("u:c", "HOST", "0"), "host", bmc::BoardType_e::os)),
          slot2(backend.Add(bmc::Uri("u:b", "SLOT", "2"), "slot2", bmc::BoardType_e::power_supply)),
          icb(backend.Add(bmc::Uri("u:a", "ICB", "1"), "icb", bmc::BoardType_e::icb)),
          cpu(host.Add(Temperature(7, "CPU", 45, 85, 95, 105), 45)),
          core(slot2.Add(Temperature(5, "Core", 40, 80, 90, 100), 40)),
          v12(icb.Add(Voltage(), 12)),
          intake(icb.Add(Temperature(12, "Intake", 30, 75, 85, 95), 48)),
          m_before(bmc::BoardPool::Instance().Open(std::move(m_owned))) {}
    ThreeBoards(const ThreeBoards&) = delete;
    ThreeBoards& operator=(const ThreeBoards&) = delete;
    ~ThreeBoards() { bmc::BoardPool::Instance().Open(std::move(m_before)); }

    static SensorFacts Temperature(int id, const std::string& name, double nominal, double hnc, double hc, double hnr) {
        using bmc::SensorReading;
        return {id,
                bmc::SensorType_e::temperature,
                name,
                "C",
                SensorReading(-10),
                SensorReading(-5),
                SensorReading(0),
                SensorReading(nominal),
                SensorReading(hnc),
                SensorReading(hc),
                SensorReading(hnr)};
    }

    static SensorFacts Voltage() {
        using bmc::SensorReading;
        return {3,
                bmc::SensorType_e::voltage,
                "V12",
                "V",
                SensorReading(9),
                SensorReading(10),
                SensorReading(11),
                SensorReading(12),
                SensorReading(13),
                SensorReading(14),
                SensorReading(15)};
    }

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
