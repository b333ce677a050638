#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/ipmi/simulated_controller.h"

namespace test {

/// The sensors of a recorded machine (tests/data/recordings/csv/@p name.csv, such as "04-supermicro-x8"), each with
/// factors that represent its reading and thresholds as well as one byte does. A reading that was not available becomes
/// a sensor that is unavailable. Numbers are those of the recording, which count from 1.
std::vector<SimulatedSensor> RecordedSensors(const std::string& name);

/// Names of all recordings.
std::vector<std::string> RecordingNames();

/// A controller with @p count (at most 255) temperatures, voltages, currents and fans, numbered from 1: signed, with
/// offset, with and without nominal reading and thresholds.
std::vector<SimulatedSensor> SyntheticSensors(std::size_t count = 60);

}  // namespace test
