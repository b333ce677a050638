#pragma once

#include <cstdint>
#include <string>

namespace bmc::ipmi {

/// The units of a sensor as its record gives them (IPMI v2.0 specification, 43.17).
struct UnitCodes {
    bool isPercentage = false;
    std::uint8_t rate = 0;      ///< 0 none, 1 per microsecond .. 6 per day
    std::uint8_t relation = 0;  ///< of base and modifier: 0 no modifier, 1 base/modifier, 2 base * modifier
    std::uint8_t base = 0;      ///< 0 unspecified
    std::uint8_t modifier = 0;  ///< 0 unspecified
};

/// "degrees C", "Volts", "RPM", "percent", "Watts per hour", "Joules/second", ...; empty when nothing is specified.
/// Codes that do not exist count as unspecified.
std::string UnitsText(const UnitCodes& codes);

}  // namespace bmc::ipmi
