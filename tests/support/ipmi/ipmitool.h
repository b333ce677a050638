#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/process.h"

namespace test {

/// How `ipmitool`, a client that is not ours, asks a simulator.
struct IpmitoolOptions {
    std::uint8_t controller = 0x20;           ///< whose port and first user it takes
    std::optional<std::uint8_t> target{};     ///< a satellite behind that controller
    int cipherSuite = 3;                      ///< 17 works as well
    std::optional<std::uint16_t> port{};      ///< another port, such as a relay's
    std::optional<std::string> password{};    ///< another than the user's
    std::string privilege = "ADMINISTRATOR";  ///< USER, OPERATOR or ADMINISTRATOR
};

/// Runs `ipmitool @p words` to its end.
Result Ipmitool(const IpmiSimulator& simulator, const std::vector<std::string>& words,
                const IpmitoolOptions& options = {});

/// Starts it and lets it run; what it prints is lost.
Process StartIpmitool(const IpmiSimulator& simulator, const std::vector<std::string>& words,
                      const IpmitoolOptions& options = {});

}  // namespace test
