#pragma once

#include <vector>

#include "tests/support/ipmi/simulated_sensor.h"

namespace test {

/// Sets format and factors of @p sensor such that one byte represents all of @p values, each exactly where that is
/// possible, and else as closely as can be.
void FitFactors(SimulatedSensor& sensor, const std::vector<double>& values);

}  // namespace test
