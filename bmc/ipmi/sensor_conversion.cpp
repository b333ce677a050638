#include "bmc/ipmi/sensor_conversion.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>

#include <freeipmi/record-format/ipmi-sdr-record-format.h>

#include "qstd/portable_math.h"

namespace bmc::ipmi {

namespace {

constexpr int c_leastExponent = -8;  // four bits, signed
constexpr int c_mostExponent = 7;

/// The number that a count stands for. Nothing for an analog format that does not exist.
std::optional<int> NumberOf(std::uint8_t format, std::uint8_t count) {
    constexpr int c_sign = 0x80;
    switch (format) {
        case IPMI_SDR_ANALOG_DATA_FORMAT_UNSIGNED:
            return count;
        case IPMI_SDR_ANALOG_DATA_FORMAT_1S_COMPLEMENT:
            return count < c_sign ? count : count - 255;
        case IPMI_SDR_ANALOG_DATA_FORMAT_2S_COMPLEMENT:
            return count < c_sign ? count : count - 256;
        default:
            return std::nullopt;
    }
}

/// (M * number + B * 10^K1) * 10^K2, rounded once: in whole numbers, which a double holds exactly as it does the power
/// of ten that they are divided or multiplied by at last. So 13.2 is 13.2 and not 13.200000000000001.
double Linear(const ConversionFactors& factors, int number) {
    static constexpr std::array<std::int64_t, c_mostExponent + 2> c_powers{1,      10,      100,      1000,     10000,
                                                                           100000, 1000000, 10000000, 100000000};
    const auto power = [](int exponent) { return c_powers.at(static_cast<std::size_t>(exponent)); };
    const int decimals = -std::min<int>(factors.bExponent, 0);
    const std::int64_t whole =
        std::int64_t{factors.m} * number * power(decimals) + factors.b * power(std::max<int>(factors.bExponent, 0));
    const int exponent = factors.rExponent - decimals;
    double scale = 1;
    for (int i = 0; i < std::abs(exponent); ++i) {
        scale *= 10;
    }
    return exponent < 0 ? static_cast<double>(whole) / scale : static_cast<double>(whole) * scale;
}

double Linearized(std::uint8_t function, double value) {
    switch (function) {
        case IPMI_SDR_LINEARIZATION_LINEAR:
            return value;
        case IPMI_SDR_LINEARIZATION_LN:
            return qstd::NaturalLog(value);
        case IPMI_SDR_LINEARIZATION_LOG10:
            return qstd::Log10(value);
        case IPMI_SDR_LINEARIZATION_LOG2:
            return qstd::Log2(value);
        case IPMI_SDR_LINEARIZATION_E:
            return qstd::Exp(value);
        case IPMI_SDR_LINEARIZATION_EXP10:
            return qstd::Exp10(value);
        case IPMI_SDR_LINEARIZATION_EXP2:
            return qstd::Exp2(value);
        case IPMI_SDR_LINEARIZATION_INVERSE:
            return 1.0 / value;
        case IPMI_SDR_LINEARIZATION_SQR:
            return value * value;
        case IPMI_SDR_LINEARIZATION_CUBE:
            return value * value * value;
        case IPMI_SDR_LINEARIZATION_SQRT:
            return std::sqrt(value);
        case IPMI_SDR_LINEARIZATION_CUBERT:
            return qstd::CubeRoot(value);
        default:
            return std::numeric_limits<double>::quiet_NaN();
    }
}

bool IsExponent(int exponent) {
    return exponent >= c_leastExponent && exponent <= c_mostExponent;
}

}  // namespace

// Not the library's: compiled for 32 bits it computes some values to other digits, it takes the inverse of 0 for 0, and
// for the cube root (version 1.6.10) the power of -3.
std::optional<double> Convert(const ConversionFactors& factors, std::uint8_t count) {
    const std::optional<int> number = NumberOf(factors.format, count);
    if (!number || !IsExponent(factors.bExponent) || !IsExponent(factors.rExponent)) {
        return std::nullopt;
    }
    const double value = Linearized(factors.linearization, Linear(factors, *number));
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace bmc::ipmi
