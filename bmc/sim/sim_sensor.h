#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "bmc/sensor.h"
#include "bmc/sim/access_gate.h"
#include "bmc/sim/description.h"
#include "bmc/sim/injected_failure.h"
#include "bmc/sim/model_clock.h"
#include "bmc/sim/reading_model.h"

namespace bmc::sim {

/// A sensor of the simulated chassis. Read is an access to its board: serialised, delayed and failing with it. Limits
/// are not delayed (a driver knows them from the sensor's record), but fail while board or sensor is told to fail.
class SimSensor : public bmc::Sensor {
public:
    /// Where readings come from at present.
    enum class Mode_e {
        automatic,  ///< the fixed value or model of the description
        held,       ///< a value held by SetReading
        invalid,    ///< readings are not valid
    };

    /// @param gate of the board, @param clock both outlive the sensor
    /// @param model null: a fixed reading
    SimSensor(SensorDescription description, std::unique_ptr<ReadingModel> model, AccessGate& gate,
              const ModelClock& clock);

    const SensorId& GetId() const override { return m_id; }
    SensorType_e GetType() const override { return m_type; }
    const std::string& GetName() const override { return m_name; }
    const std::string& GetUnits() const override { return m_units; }

    SensorReading GetNominal() const override;
    SensorReading GetLowerNonCritical() const override { return GetLower(Limit_e::lowerNonCritical); }
    SensorReading GetLowerCritical() const override { return GetLower(Limit_e::lowerCritical); }
    SensorReading GetLowerNonRecoverable() const override { return GetLower(Limit_e::lowerNonRecoverable); }
    SensorReading GetUpperNonCritical() const override { return GetUpper(Limit_e::upperNonCritical); }
    SensorReading GetUpperCritical() const override { return GetUpper(Limit_e::upperCritical); }
    SensorReading GetUpperNonRecoverable() const override { return GetUpper(Limit_e::upperNonRecoverable); }

    SensorReading Read() const override;

    // The operator's side: never delayed, never failing.

    /// The present reading.
    SensorReading Peek() const;
    std::optional<double> PeekLimit(Limit_e limit) const;

    void SetReading(double value);
    void SetInvalid() { m_mode.store(Mode_e::invalid); }
    void SetAutomatic() { m_mode.store(Mode_e::automatic); }
    Mode_e GetMode() const { return m_mode.load(); }

    /// @param value finite, or nothing: the sensor does not have the limit
    void SetLimit(Limit_e limit, std::optional<double> value);

    void SetMissing(bool isMissing) { m_isMissing.store(isMissing); }
    bool IsMissing() const { return m_isMissing.load(); }

    InjectedFailure& Failure() noexcept { return m_failure; }
    const InjectedFailure& Failure() const noexcept { return m_failure; }

    /// Undoes SetReading, SetInvalid, SetMissing and an injected failure.
    void Heal();

private:
    void CheckFailures() const;
    double GetLimit(Limit_e limit) const;
    SensorReading GetLower(Limit_e limit) const;
    SensorReading GetUpper(Limit_e limit) const;

    const SensorId m_id;
    const SensorType_e m_type;
    const std::string m_name;
    const std::string m_units;
    SensorReading m_fixed;
    const std::unique_ptr<ReadingModel> m_model;
    AccessGate& m_gate;
    const ModelClock& m_clock;
    InjectedFailure m_failure;
    std::atomic<Mode_e> m_mode{Mode_e::automatic};
    std::atomic<double> m_held{0};
    std::atomic<bool> m_isMissing{false};
    std::array<std::atomic<double>, c_limitCount> m_limits;  ///< by Limit_e; not a number: not there
};

}  // namespace bmc::sim
