#include "bmc/sim/thermal_model.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <span>

#include "qstd/portable_math.h"

namespace bmc::sim {

namespace {

constexpr int c_stepsPerTau = 64;
/// After so many time constants nothing is left of what was before (e^-40 is below the precision of a double).
constexpr std::int64_t c_memory = std::int64_t{40} * c_stepsPerTau;

}  // namespace

ThermalModel::ThermalModel(const ThermalDescription& description, double ambient, const FanBank* fans)
    : m_description(description),
      m_ambient(ambient),
      m_fans(fans),
      m_stepLength(description.tau / c_stepsPerTau),
      m_temperature(ambient) {}

double ThermalModel::CoolingFactor(double meanRpm) {
    constexpr double c_stillAir = 0.5;  // the share of the rated conductance that is there without fans
    return 1 / (c_stillAir + (1 - c_stillAir) * meanRpm / FanBank::c_ratedRpm);
}

double ThermalModel::Target(double meanRpm) const {
    return m_ambient + m_description.power * m_description.resistance * CoolingFactor(meanRpm);
}

void ThermalModel::AdvanceTo(std::int64_t step) {
    static const double decay = qstd::Exp(-1.0 / c_stepsPerTau);
    m_steps = std::max(m_steps, step - c_memory);
    std::array<double, c_stepsPerTau> speeds{};
    while (m_steps < step) {
        const auto count = static_cast<std::size_t>(std::min<std::int64_t>(step - m_steps, c_stepsPerTau));
        const std::span<double> chunk(speeds.data(), count);
        if (m_fans != nullptr) {
            constexpr double c_middle = 0.5;
            m_fans->MeanRpm((static_cast<double>(m_steps) + c_middle) * m_stepLength, m_stepLength, chunk);
        }
        for (const double speed : chunk) {
            const double target = Target(speed);
            m_temperature = target + (m_temperature - target) * decay;
        }
        m_steps += static_cast<std::int64_t>(count);
    }
}

SensorReading ThermalModel::At(double time) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    AdvanceTo(static_cast<std::int64_t>(std::floor(time / m_stepLength)));
    const double begin = static_cast<double>(m_steps) * m_stepLength;
    const double rest = std::max(time - begin, 0.0);
    double speed = 0;
    if (m_fans != nullptr) {
        m_fans->MeanRpm(begin + rest / 2, 0, std::span<double>(&speed, 1));
    }
    const double target = Target(speed);
    return SensorReading(target + (m_temperature - target) * qstd::Exp(-rest / m_description.tau));
}

}  // namespace bmc::sim
