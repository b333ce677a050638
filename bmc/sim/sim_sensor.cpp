#include "bmc/sim/sim_sensor.h"

#include <cmath>
#include <limits>
#include <utility>
#include <variant>

namespace bmc::sim {

SimSensor::SimSensor(SensorDescription description, std::unique_ptr<ReadingModel> model, AccessGate& gate,
                     const ModelClock& clock)
    : m_id(description.id),
      m_type(description.type),
      m_name(std::move(description.name)),
      m_units(std::move(description.units)),
      m_model(std::move(model)),
      m_gate(gate),
      m_clock(clock) {
    if (const auto* const value = std::get_if<double>(&description.source)) {
        m_fixed = SensorReading(*value);
    }
    for (std::size_t i = 0; i < c_limitCount; ++i) {
        SetLimit(static_cast<Limit_e>(i), description.limits.at(i));
    }
}

void SimSensor::CheckFailures() const {
    m_gate.Failure().Check();
    m_failure.Check();
}

double SimSensor::GetLimit(Limit_e limit) const {
    CheckFailures();
    return m_limits[static_cast<std::size_t>(limit)].load(std::memory_order_relaxed);
}

SensorReading SimSensor::GetNominal() const {
    const double value = GetLimit(Limit_e::nominal);
    return std::isnan(value) ? SensorReading() : SensorReading(value);
}

SensorReading SimSensor::GetLower(Limit_e limit) const {
    const double value = GetLimit(limit);
    return std::isnan(value) ? SensorReading::NoLowerLimit() : SensorReading(value);
}

SensorReading SimSensor::GetUpper(Limit_e limit) const {
    const double value = GetLimit(limit);
    return std::isnan(value) ? SensorReading::NoUpperLimit() : SensorReading(value);
}

SensorReading SimSensor::Read() const {
    const auto access = m_gate.Enter();
    m_failure.Check();
    return Peek();
}

SensorReading SimSensor::Peek() const {
    switch (m_mode.load()) {
        case Mode_e::held:
            return SensorReading(m_held.load());
        case Mode_e::invalid:
            return {};
        case Mode_e::automatic:
            break;
    }
    return m_model == nullptr ? m_fixed : m_model->At(m_clock.ModelSeconds());
}

std::optional<double> SimSensor::PeekLimit(Limit_e limit) const {
    const double value = m_limits[static_cast<std::size_t>(limit)].load(std::memory_order_relaxed);
    return std::isnan(value) ? std::nullopt : std::optional<double>(value);
}

void SimSensor::SetReading(double value) {
    m_held.store(value);
    m_mode.store(Mode_e::held);
}

void SimSensor::SetLimit(Limit_e limit, std::optional<double> value) {
    m_limits[static_cast<std::size_t>(limit)].store(value.value_or(std::numeric_limits<double>::quiet_NaN()),
                                                    std::memory_order_relaxed);
}

void SimSensor::Heal() {
    SetAutomatic();
    SetMissing(false);
    m_failure.Clear();
}

}  // namespace bmc::sim
