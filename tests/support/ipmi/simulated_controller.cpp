#include "tests/support/ipmi/simulated_controller.h"

#include <utility>

namespace test {

SimulatedController Satellite(std::uint8_t address, std::vector<SimulatedSensor> sensors) {
    SimulatedController controller;
    controller.address = address;
    controller.hasLan = false;
    controller.users.clear();
    controller.records = Records_e::shared_repository;
    controller.sensors = std::move(sensors);
    return controller;
}

}  // namespace test
