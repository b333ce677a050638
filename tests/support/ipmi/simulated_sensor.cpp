#include "tests/support/ipmi/simulated_sensor.h"

#include <cmath>

namespace test {

namespace {

constexpr int c_middle = 0x80;

double ToNumber(RawFormat_e format, std::uint8_t raw) {
    switch (format) {
        case RawFormat_e::ones_complement:
            return raw < c_middle ? raw : -static_cast<double>(0xff - raw);
        case RawFormat_e::twos_complement:
            return raw < c_middle ? raw : static_cast<double>(raw) - 0x100;
        default:
            return raw;
    }
}

double Linearize(Linearization_e linearization, double y) {
    switch (linearization) {
        case Linearization_e::ln:
            return std::log(y);
        case Linearization_e::log10:
            return std::log10(y);
        case Linearization_e::log2:
            return std::log2(y);
        case Linearization_e::e:
            return std::exp(y);
        case Linearization_e::exp10:
            return std::pow(10, y);
        case Linearization_e::exp2:
            return std::exp2(y);
        case Linearization_e::inverse:
            return 1 / y;
        case Linearization_e::square:
            return y * y;
        case Linearization_e::cube:
            return y * y * y;
        case Linearization_e::square_root:
            return std::sqrt(y);
        case Linearization_e::cube_root:
            return std::cbrt(y);
        default:
            return y;
    }
}

}  // namespace

Factors FactorsAt(const SimulatedSensor& sensor, std::uint8_t raw) {
    Factors factors = sensor.factors;
    if (sensor.linearization == Linearization_e::non_linear && raw >= c_middle) {
        factors.b -= c_middle * factors.m;
        factors.m *= 2;
    }
    return factors;
}

double ToReading(const SimulatedSensor& sensor, std::uint8_t raw) {
    const Factors factors = FactorsAt(sensor, raw);
    const double linear = factors.m * ToNumber(sensor.format, raw) + factors.b * std::pow(10, factors.bExponent);
    return Linearize(sensor.linearization, linear * std::pow(10, factors.rExponent));
}

std::uint8_t ToRaw(const SimulatedSensor& sensor, double reading) {
    int best = 0;
    double bestError = INFINITY;
    for (int raw = 0; raw <= 0xff; ++raw) {
        const double error = std::abs(ToReading(sensor, static_cast<std::uint8_t>(raw)) - reading);
        if (error < bestError) {
            best = raw;
            bestError = error;
        }
    }
    return static_cast<std::uint8_t>(best);
}

}  // namespace test
