#pragma once

#include <cstdint>

#include "bmc/sim/description.h"
#include "bmc/sim/reading_model.h"

namespace bmc::sim {

/// mean + amplitude * sin(2 pi time / period) + noise. The noise is evenly spread within +-noise, has a new value every
/// c_noisePeriod and is a function of seed and time alone.
class WaveModel : public ReadingModel {
public:
    /// In model seconds.
    static constexpr double c_noisePeriod = 0.1;

    WaveModel(const WaveDescription& description, std::uint64_t seed) : m_description(description), m_seed(seed) {}

    SensorReading At(double time) override;

private:
    const WaveDescription m_description;
    const std::uint64_t m_seed;
};

}  // namespace bmc::sim
