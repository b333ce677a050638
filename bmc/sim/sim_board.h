#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bmc/board.h"
#include "bmc/sim/access_gate.h"
#include "bmc/sim/description.h"
#include "bmc/sim/fan_bank.h"
#include "bmc/sim/journal.h"
#include "bmc/sim/model_clock.h"
#include "bmc/sim/sim_sensor.h"

namespace bmc::sim {

/// What the boards of one simulated chassis share; it outlives them.
struct ChassisContext {
    const ModelClock& clock;
    Journal& journal;
    FanBank* fans;  ///< null when no board carries the fan controller
    double ambient;
    std::uint64_t seed;
};

/// A board of the simulated chassis. Everything but what the board is and GetSensor is an access to its controller:
/// serialised, delayed and failing as AccessGate says.
class SimBoard : public bmc::Board {
public:
    SimBoard(BoardDescription description, const ChassisContext& chassis);

    const Uri& GetUri() const override { return m_description.uri; }
    BoardType_e GetType() const override { return m_description.type; }
    std::string GetShortName() const override { return m_description.name; }

    std::vector<SensorId> GetSensorsIds() override;
    Sensor* GetSensor(const SensorId& id) override;

    qstd::Time GetTime() const override;
    void SetTime(const qstd::Time& time) override;

    void PowerDown() override;
    void ShutDown() override;

    FpgaReadResult FpgaSpiRead(std::uint16_t address) const override;
    FpgaWriteResult FpgaSpiWrite(std::uint16_t address, std::uint16_t value) const override;
    /// One access, with one delay, whatever the number of values.
    std::vector<FpgaWriteResult> FpgaSpiWriteAll(const std::vector<FpgaRegisterValue>& values) const override;

    BoardStatus_e GetStatus() const override;
    BoardPowerStatus_e GetPowerStatus() const override;
    RedLedStatus_e GetRedLighStatus() const override;
    FirmwareType_e GetFirmwareType() const override;
    int GetFwRevision() const override;
    int GetFpgaRevision() const override;
    int GetIpmiVersion() const override;
    std::string GetDevicePrefix() const override;

    // The operator's side: never delayed, never failing.

    const std::vector<std::unique_ptr<SimSensor>>& Sensors() const noexcept { return m_sensors; }

    /// The sensor, missing or not; null when the description has none.
    SimSensor* FindSensor(int id) const;

    BoardPowerStatus_e PeekPower() const { return m_power.load(); }
    std::uint64_t GetShutDownCount() const { return m_shutDownCount.load(); }

    /// @param seconds offset of the controller's clock to the host's, within +-1e9
    void SetClockOffset(double seconds);

    /// Writes a reference register as the controller itself would. @return false when it is none or transfers fail
    bool WriteFanRegister(std::uint16_t address, std::uint16_t value) const;

    /// The fan controller, null when another board or none carries it.
    FanBank* Fans() const noexcept { return m_fans; }

    void SetMissing(bool isMissing) { m_isMissing.store(isMissing); }
    bool IsMissing() const { return m_isMissing.load(); }

    AccessGate& Gate() noexcept { return m_gate; }
    const AccessGate& Gate() const noexcept { return m_gate; }

    /// Undoes what is injected into the board and into each of its sensors.
    void Heal();

private:
    const BoardDescription m_description;  ///< without its sensors
    const ModelClock& m_clock;
    Journal& m_journal;
    FanBank* const m_fans;
    mutable AccessGate m_gate;
    std::vector<std::unique_ptr<SimSensor>> m_sensors;      ///< in the description's order
    std::vector<std::pair<int, SimSensor*>> m_sensorsById;  ///< sorted
    std::atomic<bool> m_isMissing{false};
    std::atomic<BoardPowerStatus_e> m_power;
    std::atomic<std::uint64_t> m_shutDownCount{0};
    std::atomic<std::int64_t> m_clockOffset{0};  ///< microseconds
};

}  // namespace bmc::sim
