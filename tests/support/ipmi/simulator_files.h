#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "tests/support/ipmi/simulated_controller.h"

namespace test {

/// The simulator's configuration file: networks, users and the module with its state file.
std::string ComposeConfiguration(const SimulatedChassis& chassis, const std::map<std::uint8_t, std::uint16_t>& ports,
                                 const std::string& module, const std::string& stateFile);

/// The simulator's command file, which makes controllers, records and sensors. Controllers of @p absent are made but
/// do not answer.
std::string ComposeCommands(const SimulatedChassis& chassis, const std::set<std::uint8_t>& absent);

}  // namespace test
