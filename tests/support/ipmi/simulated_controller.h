#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ipmi/simulated_sensor.h"

namespace test {

/// Address on the IPMB of the controller that a session is opened with.
inline constexpr std::uint8_t c_bmc = 0x20;

/// Where the records of a controller's sensors are kept.
enum class Records_e {
    own_repository,     ///< the controller's own main repository
    shared_repository,  ///< the main repository of the controller at 0x20, with this controller as owner
    device_records,     ///< device records, which the controller hands out itself
};

/// An account of a controller that is reached over LAN.
struct SimulatedUser {
    std::string name = "operator";
    std::string password = "simulated-password";  ///< at most 20 bytes
    std::string privilege = "admin";              ///< the most it may: user, operator or admin
};

/// One management controller of a simulator.
struct SimulatedController {
    std::uint8_t address = c_bmc;  ///< on the IPMB: 0x20, 0x82, 0x84 ..
    bool hasLan = true;            ///< its own UDP port and users; false: a satellite, reached through 0x20 only
    std::vector<SimulatedUser> users{SimulatedUser{}};
    Records_e records = Records_e::own_repository;
    std::vector<SimulatedSensor> sensors;

    std::uint8_t deviceId = 0x20;
    std::uint8_t deviceRevision = 1;
    std::uint8_t firmwareMajor = 2;
    std::uint8_t firmwareMinor = 0x45;  ///< binary coded decimal
    std::uint32_t manufacturer = 0x1291;
    std::uint16_t product = 0x0f02;
};

/// A satellite at @p address with @p sensors whose records stand in the repository of 0x20.
SimulatedController Satellite(std::uint8_t address, std::vector<SimulatedSensor> sensors);

/// How the controllers of a simulator read and write 16-bit registers of their FPGA by OEM commands:
/// read  request PREFIX address, reply PREFIX value; write request PREFIX address value, reply PREFIX.
struct FpgaLayout {
    std::uint8_t netFunction = 0x30;
    std::uint8_t readCommand = 0x10;
    std::uint8_t writeCommand = 0x11;
    bool isLowByteFirst = false;
    std::vector<std::uint8_t> prefix;  ///< at most 4 bytes that open every request and reply
};

/// What one simulator process holds. The first controller must be the one at 0x20.
struct SimulatedChassis {
    std::vector<SimulatedController> controllers{SimulatedController{}};
    FpgaLayout fpga{};
};

}  // namespace test
