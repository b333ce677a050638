// Counts of sensors to readings.

#include <fmt/format.h>

#include <cstdint>

#include "bmc/ipmi/sensor_conversion.h"
#include "number_table.h"
#include "qnode/value.h"
#include "tests/support/ipmi/recorded_machine.h"

namespace test {

namespace {

using bmc::ipmi::ConversionFactors;

void AddCurve(NumberSection& section, const std::string& name, const ConversionFactors& factors) {
    std::string line = fmt::format("{}{} {} {} {} {} {}:", name, factors.m, factors.b, factors.bExponent,
                                   factors.rExponent, factors.linearization, factors.format);
    for (unsigned int count = 0; count < 256; ++count) {
        const auto value = Convert(factors, static_cast<std::uint8_t>(count));
        line += value ? " " + qnode::ToText(*value) : " -";
    }
    section.Add(line);
}

ConversionFactors FactorsOf(const SimulatedSensor& sensor) {
    return {static_cast<std::int16_t>(sensor.factors.m),        static_cast<std::int16_t>(sensor.factors.b),
            static_cast<std::int8_t>(sensor.factors.bExponent), static_cast<std::int8_t>(sensor.factors.rExponent),
            static_cast<std::uint8_t>(sensor.linearization),    static_cast<std::uint8_t>(sensor.format)};
}

}  // namespace

std::string IpmiNumbers() {
    NumberSection recorded("all counts of the sensors of the recorded machines", 500);
    for (const std::string& machine : RecordingNames()) {
        for (const SimulatedSensor& sensor : RecordedSensors(machine)) {
            AddCurve(recorded, machine + " " + sensor.name + " ", FactorsOf(sensor));
        }
    }

    NumberSection functions("all counts by all functions, formats and exponents", 500);
    constexpr std::uint8_t c_functions = 13;  // one more than there are
    for (std::uint8_t function = 0; function < c_functions; ++function) {
        for (std::uint8_t format = 0; format < 4; ++format) {
            for (int exponents = 0; exponents < 256; exponents += function == 0 ? 1 : 17) {
                const auto bExponent = static_cast<std::int8_t>(exponents % 16 - 8);
                const auto rExponent = static_cast<std::int8_t>(exponents / 16 - 8);
                AddCurve(functions, "", {-37, 411, bExponent, rExponent, function, format});
            }
            AddCurve(functions, "", {3, 7, 0, -2, function, format});
            AddCurve(functions, "", {511, -512, -2, -1, function, format});
        }
    }
    return recorded.Text() + functions.Text();
}

}  // namespace test
