#pragma once

#include <cmath>

// Functions whose results are the same on 32 and on 64 bits, to the last bit. The C library's for a double are nearly
// exact, on each in its own way; those for a long double are computed alike on both, and then rounded once.

namespace qstd {

inline double Exp(double number) {
    return static_cast<double>(std::exp(static_cast<long double>(number)));
}
inline double Exp2(double number) {
    return static_cast<double>(std::pow(2.0L, static_cast<long double>(number)));
}
inline double Exp10(double number) {
    return static_cast<double>(std::pow(10.0L, static_cast<long double>(number)));
}
inline double NaturalLog(double number) {
    return static_cast<double>(std::log(static_cast<long double>(number)));
}
inline double Log2(double number) {
    return static_cast<double>(std::log2(static_cast<long double>(number)));
}
inline double Log10(double number) {
    return static_cast<double>(std::log10(static_cast<long double>(number)));
}
inline double Sin(double number) {
    return static_cast<double>(std::sin(static_cast<long double>(number)));
}
inline double CubeRoot(double number) {
    constexpr long double c_third = 1.0L / 3;
    return std::copysign(static_cast<double>(std::pow(std::fabs(static_cast<long double>(number)), c_third)), number);
}

}  // namespace qstd
