#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bmc/enums.h"
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/sensor_conversion.h"

namespace bmc::ipmi {

/// A record of a sensor data repository as its controller gives it, header included. Not trusted.
using RawRecord = std::vector<std::uint8_t>;

/// The thresholds of a sensor, in the order of the bits of Get Sensor Thresholds.
enum Threshold_e : std::size_t {
    lowerNonCritical,
    lowerCritical,
    lowerNonRecoverable,
    upperNonCritical,
    upperCritical,
    upperNonRecoverable,
    thresholdCount
};

/// One threshold-based sensor, decoded from its record.
struct SensorRecord {
    int id = 0;  ///< sensor number, plus 256 times the logical unit
    std::uint8_t number = 0;
    std::uint8_t lun = 0;
    std::uint8_t owner = c_controllerAddress;  ///< slave address of the controller that has the sensor; odd: software
    std::uint8_t channel = 0;                  ///< the owner's IPMB channel
    SensorType_e type = SensorType_e::unspecified;
    std::string name;   ///< printable ASCII
    std::string units;  ///< "degrees C", "Volts", "Amps", "RPM", "Watts", "percent", ...
    ConversionFactors factors;
    std::optional<std::uint8_t> nominalCount;       ///< when the record says that it is specified
    std::array<bool, thresholdCount> isReadable{};  ///< thresholds that the controller lets be read

    friend bool operator==(const SensorRecord&, const SensorRecord&) = default;
};

/// Decodes @p record. Full records of threshold-based analog sensors, and compact ones of threshold-based sensors,
/// whose counts are their values and which have neither nominal nor thresholds; a compact record that stands for
/// several sensors gives one for each. Everything else, malformed records too, gives none. Any bytes are safe.
std::vector<SensorRecord> DecodeRecord(const RawRecord& record);

}  // namespace bmc::ipmi
