#include "bmc/sim/sim_board.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string_view>
#include <variant>

#include "bmc/sim/control_protocol.h"
#include "bmc/sim/tachometer_model.h"
#include "bmc/sim/thermal_model.h"
#include "bmc/sim/wave_model.h"
#include "qstd/clock.h"

namespace bmc::sim {

namespace {

/// A seed of its own for each sensor: FNV-1a over chassis seed, board and sensor.
std::uint64_t SensorSeed(std::uint64_t seed, const Uri& uri, int id) {
    constexpr std::uint64_t c_offset = 0xcbf29ce484222325U;
    constexpr std::uint64_t c_prime = 0x100000001b3U;
    std::uint64_t hash = c_offset;
    for (const char letter : std::to_string(seed) + "/" + uri.ToString() + "/" + std::to_string(id)) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * c_prime;
    }
    return hash;
}

std::unique_ptr<ReadingModel> MakeModel(const SensorDescription& sensor, const Uri& uri,
                                        const ChassisContext& chassis) {
    if (const auto* const thermal = std::get_if<ThermalDescription>(&sensor.source)) {
        return std::make_unique<ThermalModel>(*thermal, chassis.ambient, chassis.fans);
    }
    if (const auto* const wave = std::get_if<WaveDescription>(&sensor.source)) {
        return std::make_unique<WaveModel>(*wave, SensorSeed(chassis.seed, uri, sensor.id));
    }
    const auto* const tachometer = std::get_if<TachometerDescription>(&sensor.source);
    if (tachometer != nullptr && chassis.fans != nullptr) {
        return std::make_unique<TachometerModel>(tachometer->fan, *chassis.fans);
    }
    return nullptr;
}

BoardDescription WithoutSensors(BoardDescription description) {
    description.sensors.clear();
    description.sensors.shrink_to_fit();
    return description;
}

std::int64_t HostMicroseconds() {
    using std::chrono::microseconds;
    return std::chrono::duration_cast<microseconds>(qstd::Clock::Get().SystemNow().time_since_epoch()).count();
}

}  // namespace

SimBoard::SimBoard(BoardDescription description, const ChassisContext& chassis)
    : m_description(WithoutSensors(description)),
      m_clock(chassis.clock),
      m_journal(chassis.journal),
      m_fans(description.fans ? chassis.fans : nullptr),
      m_gate(m_description.uri.ToString()),
      m_power(description.power) {
    SetClockOffset(description.clock);
    for (SensorDescription& sensor : description.sensors) {
        auto model = MakeModel(sensor, m_description.uri, chassis);
        m_sensors.push_back(std::make_unique<SimSensor>(std::move(sensor), std::move(model), m_gate, m_clock));
        m_sensorsById.emplace_back(m_sensors.back()->GetId().GetValue(), m_sensors.back().get());
    }
    std::sort(m_sensorsById.begin(), m_sensorsById.end());
}

std::vector<SensorId> SimBoard::GetSensorsIds() {
    const auto access = m_gate.Enter();
    std::vector<SensorId> ids;
    ids.reserve(m_sensors.size());
    for (const auto& sensor : m_sensors) {
        ids.push_back(sensor->GetId());
    }
    return ids;
}

Sensor* SimBoard::GetSensor(const SensorId& id) {
    SimSensor* const sensor = FindSensor(id.GetValue());
    return sensor == nullptr || sensor->IsMissing() ? nullptr : sensor;
}

SimSensor* SimBoard::FindSensor(int id) const {
    const auto found = std::lower_bound(m_sensorsById.begin(), m_sensorsById.end(), id,
                                        [](const auto& entry, int wanted) { return entry.first < wanted; });
    return found == m_sensorsById.end() || found->first != id ? nullptr : found->second;
}

qstd::Time SimBoard::GetTime() const {
    const auto access = m_gate.Enter();
    return qstd::Time::FromMicroseconds(HostMicroseconds() + m_clockOffset.load());
}

void SimBoard::SetTime(const qstd::Time& time) {
    const auto access = m_gate.Enter(Access_e::writing);
    m_clockOffset.store(time.ToMicroseconds() - HostMicroseconds());
    m_journal.Add(m_description.uri.ToString(), {"SetTime", std::to_string(time.GetSeconds())});
}

void SimBoard::SetClockOffset(double seconds) {
    constexpr double c_microseconds = 1e6;
    m_clockOffset.store(std::llround(seconds * c_microseconds));
}

void SimBoard::PowerDown() {
    const auto access = m_gate.Enter(Access_e::switching);
    m_power.store(BoardPowerStatus_e::off);
    m_journal.Add(m_description.uri.ToString(), {"PowerDown"});
}

void SimBoard::ShutDown() {
    const auto access = m_gate.Enter(Access_e::switching);
    ++m_shutDownCount;
    m_journal.Add(m_description.uri.ToString(), {"ShutDown"});
}

FpgaReadResult SimBoard::FpgaSpiRead(std::uint16_t address) const {
    const auto access = m_gate.Enter();
    const auto value = m_fans == nullptr ? std::nullopt : m_fans->Read(address, m_clock.ModelSeconds());
    return value ? FpgaReadResult{0, *value} : FpgaReadResult{1, 0};
}

FpgaWriteResult SimBoard::FpgaSpiWrite(std::uint16_t address, std::uint16_t value) const {
    return FpgaSpiWriteAll({{address, value}}).front();
}

std::vector<FpgaWriteResult> SimBoard::FpgaSpiWriteAll(const std::vector<FpgaRegisterValue>& values) const {
    const auto access = m_gate.Enter(Access_e::writing);
    std::vector<FpgaWriteResult> results;
    results.reserve(values.size());
    for (const FpgaRegisterValue& each : values) {
        const bool isDone = WriteFanRegister(each.address, each.value);
        results.push_back(FpgaWriteResult{static_cast<std::uint8_t>(isDone ? 0 : 1)});
    }
    return results;
}

bool SimBoard::WriteFanRegister(std::uint16_t address, std::uint16_t value) const {
    if (m_fans == nullptr || !m_fans->Write(address, value, m_clock.ModelSeconds())) {
        return false;
    }
    m_journal.Add(m_description.uri.ToString(), {"FpgaSpiWrite", AddressText(address), std::to_string(value)});
    return true;
}

BoardStatus_e SimBoard::GetStatus() const {
    const auto access = m_gate.Enter();
    return m_description.status;
}

BoardPowerStatus_e SimBoard::GetPowerStatus() const {
    const auto access = m_gate.Enter();
    return m_power.load();
}

RedLedStatus_e SimBoard::GetRedLighStatus() const {
    const auto access = m_gate.Enter();
    return m_description.redLight;
}

FirmwareType_e SimBoard::GetFirmwareType() const {
    const auto access = m_gate.Enter();
    return m_description.firmwareType;
}

int SimBoard::GetFwRevision() const {
    const auto access = m_gate.Enter();
    return m_description.fwRevision;
}

int SimBoard::GetFpgaRevision() const {
    const auto access = m_gate.Enter();
    return m_description.fpgaRevision;
}

int SimBoard::GetIpmiVersion() const {
    const auto access = m_gate.Enter();
    return m_description.ipmiVersion;
}

std::string SimBoard::GetDevicePrefix() const {
    const auto access = m_gate.Enter();
    return m_description.prefix;
}

void SimBoard::Heal() {
    SetMissing(false);
    for (const auto& sensor : m_sensors) {
        sensor->Heal();
    }
    m_gate.Failure().Clear();
    m_gate.SetDelay(std::chrono::milliseconds(0));  // the last: an access whose delay this ends finds all else healed
}

}  // namespace bmc::sim
