#include "bmc/sim/wave_model.h"

#include <cmath>
#include <numbers>

#include "qstd/portable_math.h"

namespace bmc::sim {

namespace {

/// The finaliser of the splitmix64 generator: every bit of the input moves every bit of the output.
std::uint64_t Mix(std::uint64_t value) {
    value += 0x9e3779b97f4a7c15U;
    value = (value ^ (value >> 30U)) * 0xbf58476d1ce4e5b9U;
    value = (value ^ (value >> 27U)) * 0x94d049bb133111ebU;
    return value ^ (value >> 31U);
}

/// Evenly spread over -1 .. 1.
double Noise(std::uint64_t seed, std::uint64_t index) {
    constexpr unsigned int c_spareBits = 11;  // a double holds 53 of the 64
    const std::uint64_t bits = Mix(Mix(seed) ^ index) >> c_spareBits;
    return std::ldexp(static_cast<double>(bits), static_cast<int>(c_spareBits) - 63) - 1;
}

}  // namespace

SensorReading WaveModel::At(double time) {
    const double phase = 2 * std::numbers::pi * std::fmod(time / m_description.period, 1.0);
    double value = m_description.mean + m_description.amplitude * qstd::Sin(phase);
    if (m_description.noise > 0) {
        const auto index = static_cast<std::uint64_t>(static_cast<std::int64_t>(std::floor(time / c_noisePeriod)));
        value += m_description.noise * Noise(m_seed, index);
    }
    return SensorReading(value);
}

}  // namespace bmc::sim
