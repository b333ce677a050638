#pragma once

#include <cstdint>
#include <mutex>

#include "bmc/sim/description.h"
#include "bmc/sim/fan_bank.h"
#include "bmc/sim/reading_model.h"

namespace bmc::sim {

/// A body heated by a constant power and cooled by the fans' air: a first-order step towards
/// ambient + power * resistance * CoolingFactor(mean fan speed), from ambient at time 0 on.
///
/// It is integrated when it is read, over steps on a fixed grid of time with the exact exponential of each step, so
/// that its readings do not depend on how often it is read.
class ThermalModel : public ReadingModel {
public:
    /// @param fans outlives the model; null: a chassis without fans, air stands still
    ThermalModel(const ThermalDescription& description, double ambient, const FanBank* fans);

    SensorReading At(double time) override;

    /// By how much the resistance is multiplied: 1 at FanBank::c_ratedRpm, 2 in still air, less with more speed.
    static double CoolingFactor(double meanRpm);

private:
    double Target(double meanRpm) const;
    void AdvanceTo(std::int64_t step);

    const ThermalDescription m_description;
    const double m_ambient;
    const FanBank* const m_fans;
    const double m_stepLength;

    std::mutex m_mutex;        ///< guards the two below
    std::int64_t m_steps = 0;  ///< whole steps done
    double m_temperature;      ///< after them
};

}  // namespace bmc::sim
