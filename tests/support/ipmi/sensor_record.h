#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "tests/support/ipmi/simulated_sensor.h"

namespace test {

/// The sensor data record of @p sensor (IPMI v2.0 specification, sections 43.1 and 43.2), with @p owner as the address
/// of the controller that has it.
std::vector<std::uint8_t> ComposeRecord(const SimulatedSensor& sensor, std::uint8_t owner, std::uint16_t id);

/// Bits of the thresholds that the controller hands out: 0 to 5 = LNC LC LNR UNC UC UNR.
std::uint8_t ReadableThresholds(const SimulatedSensor& sensor);

/// Factors as records and Get Sensor Reading Factors lay them out, in six bytes.
std::array<std::uint8_t, 6> PackFactors(const Factors& factors);

}  // namespace test
