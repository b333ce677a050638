#pragma once

#include <cstdint>
#include <string>

#include "tests/support/ipmi/simulated_controller.h"
#include "tests/support/ipmi/simulator_state.h"

namespace test {

/// The state that a test shares with the simulator's module: a file that both map.
class SimulatorMemory {
public:
    /// Makes the file for the controllers of @p chassis as they are at the start.
    SimulatorMemory(const std::string& path, const SimulatedChassis& chassis);
    SimulatorMemory(const SimulatorMemory&) = delete;
    SimulatorMemory& operator=(const SimulatorMemory&) = delete;
    ~SimulatorMemory();

    SimulatorState* operator->() const noexcept { return m_state; }
    /// @throws std::invalid_argument when the simulator has none at this address
    ControllerState& GetController(std::uint8_t address) const;

private:
    SimulatorState* m_state;
};

}  // namespace test
