#pragma once

#include "bmc/sim/fan_bank.h"
#include "bmc/sim/reading_model.h"

namespace bmc::sim {

/// The measured speed of one fan in RPM.
class TachometerModel : public ReadingModel {
public:
    /// @param fans outlives the model
    TachometerModel(int fan, const FanBank& fans) : m_fan(fan), m_fans(fans) {}

    SensorReading At(double time) override { return SensorReading(m_fans.MeasuredRpm(m_fan, time)); }

private:
    const int m_fan;
    const FanBank& m_fans;
};

}  // namespace bmc::sim
