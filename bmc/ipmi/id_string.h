#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace bmc::ipmi {

/// The text of an id string of a sensor data record as printable ASCII: characters that are none become "?", blanks at
/// the end and what follows a zero are left out. Any bytes are safe.
/// @param typeLength the type/length byte (IPMI v2.0 specification, 43.15): coding and number of characters
/// @param bytes what follows it in the record; it may be more than the string (residue) or less
std::string DecodeIdString(std::uint8_t typeLength, std::span<const std::uint8_t> bytes);

}  // namespace bmc::ipmi
