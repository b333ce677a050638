#include "tests/support/mock_boards.h"

#include <algorithm>

namespace test {

MockSensor::MockSensor(const SensorFacts& facts, double reading)
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

MockSensor::~MockSensor() = default;

MockBoard::MockBoard(bmc::Uri uri, std::string shortName, bmc::BoardType_e type)
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
        const auto found =
            std::find_if(m_sensors.begin(), m_sensors.end(), [&id](const auto& entry) { return entry.first == id; });
        return found == m_sensors.end() ? nullptr : found->second.get();
    });
}

MockBoard::~MockBoard() = default;

MockSensor& MockBoard::Add(const SensorFacts& facts, double reading) {
    m_sensors.emplace_back(bmc::SensorId(facts.id), std::make_unique<testing::NiceMock<MockSensor>>(facts, reading));
    return *m_sensors.back().second;
}

MockBackend::MockBackend() {
    ON_CALL(*this, GetAllLocalBoardUris).WillByDefault([this] {
        std::vector<bmc::Uri> uris;
        for (const auto& board : m_boards) {
            uris.push_back(board.first);
        }
        return uris;
    });
    ON_CALL(*this, GetBoard).WillByDefault([this](const bmc::Uri& uri) -> bmc::Board* {
        const auto found =
            std::find_if(m_boards.begin(), m_boards.end(), [&uri](const auto& entry) { return entry.first == uri; });
        return found == m_boards.end() ? nullptr : found->second.get();
    });
    ON_CALL(*this, StartSweep).WillByDefault([this](const bmc::SensorIds& sensors) {
        return bmc::Backend::StartSweep(sensors);
    });
}

MockBackend::~MockBackend() = default;

MockBoard& MockBackend::Add(const bmc::Uri& uri, const std::string& shortName, bmc::BoardType_e type) {
    m_boards.emplace_back(uri, std::make_unique<testing::NiceMock<MockBoard>>(uri, shortName, type));
    return *m_boards.back().second;
}

ThreeBoards::ThreeBoards()
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

ThreeBoards::~ThreeBoards() {
    bmc::BoardPool::Instance().Open(std::move(m_before));
}

SensorFacts ThreeBoards::Temperature(int id, const std::string& name, double nominal, double hnc, double hc,
                                     double hnr) {
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

SensorFacts ThreeBoards::Voltage() {
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

}  // namespace test
