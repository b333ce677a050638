#pragma once

#include <limits>

// Numbers that tests of readings need again and again.

inline constexpr double c_nan = std::numeric_limits<double>::quiet_NaN();
inline constexpr double c_infinity = std::numeric_limits<double>::infinity();
inline constexpr double c_untouched = -1234.5;  ///< what a variable holds that must not be written
