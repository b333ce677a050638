#include "tests/support/ipmi/simulator_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "tests/support/ipmi/sensor_record.h"

namespace test {

namespace {

void ShareFactors(const SimulatedSensor& sensor, SensorState& state) {
    if (sensor.linearization == Linearization_e::non_linear) {
        for (const std::size_t half : {0U, 1U}) {
            const auto packed = PackFactors(FactorsAt(sensor, half == 0 ? 0 : 0x80));
            std::copy(packed.begin(), packed.end(), state.factors[half]);
        }
    }
}

void Share(const SimulatedController& controller, ControllerState& state) {
    state.address = controller.address;
    state.isPowerOn = 1;
    state.isIdentifySupported = 1;
    state.selfTest[0] = 0x55;
    for (const SimulatedSensor& sensor : controller.sensors) {
        SensorState& place = state.sensors[sensor.number];
        place.isUnavailable = ToByte(sensor.isUnavailable);
        place.isNotScanned = ToByte(!sensor.isScanned);
        ShareFactors(sensor, place);
    }
}

void Share(const FpgaLayout& layout, FpgaState& state) {
    if (layout.prefix.size() > sizeof state.prefix) {
        throw std::invalid_argument("an FPGA layout's prefix has at most 4 bytes");
    }
    state.netFunction = layout.netFunction;
    state.readCommand = layout.readCommand;
    state.writeCommand = layout.writeCommand;
    state.isLowByteFirst = ToByte(layout.isLowByteFirst);
    state.prefixLength = static_cast<std::uint8_t>(layout.prefix.size());
    std::copy(layout.prefix.begin(), layout.prefix.end(), state.prefix);
}

SimulatorState* MakeState(const std::string& path, const SimulatedChassis& chassis) {
    if (chassis.controllers.size() > SimulatorState::c_maxControllers) {
        throw std::invalid_argument("a simulator has at most 16 controllers");
    }
    const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool isSized = file >= 0 && ::ftruncate(file, sizeof(SimulatorState)) == 0;
    void* memory = ::mmap(nullptr, sizeof(SimulatorState), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (!isSized || memory == MAP_FAILED) {
        throw std::runtime_error("cannot make the simulator's state file " + path);
    }
    auto* state = static_cast<SimulatorState*>(memory);
    for (std::size_t i = 0; i < chassis.controllers.size(); ++i) {
        Share(chassis.controllers[i], state->controllers[i]);
    }
    Share(chassis.fpga, state->fpga);
    return state;
}

}  // namespace

SimulatorMemory::SimulatorMemory(const std::string& path, const SimulatedChassis& chassis)
    : m_state(MakeState(path, chassis)) {}

SimulatorMemory::~SimulatorMemory() {
    ::munmap(m_state, sizeof *m_state);
}

ControllerState& SimulatorMemory::GetController(std::uint8_t address) const {
    for (ControllerState& controller : m_state->controllers) {
        if (address != 0 && controller.address == address) {
            return controller;
        }
    }
    throw std::invalid_argument("the simulator has no controller " + std::to_string(address));
}

}  // namespace test
