#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bmc/enums.h"
#include "bmc/ipmi/message.h"

namespace bmc::ipmi {

/// A record of a sensor data repository as its controller gives it, header included. Not trusted.
using RawRecord = std::vector<std::uint8_t>;

/// How counts become values: value = L((M * count + B * 10^K1) * 10^K2) (IPMI v2.0 specification, 36.3).
struct ConversionFactors {
    std::int16_t m = 1;
    std::int16_t b = 0;
    std::int8_t bExponent = 0;       ///< K1
    std::int8_t rExponent = 0;       ///< K2
    std::uint8_t linearization = 0;  ///< 0..11: L; 0x70..0x7f: factors differ from count to count, ask for them
    std::uint8_t format = 0;         ///< 0 unsigned, 1 ones' complement, 2 two's complement

    bool DifferByCount() const noexcept { return linearization >= 0x70; }
    friend bool operator==(const ConversionFactors&, const ConversionFactors&) = default;
};

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

/// The value of @p count, nothing when it has none: the logarithm of a negative number, the inverse of 0, an analog
/// format or a function that does not exist, factors that differ by count.
std::optional<double> Convert(const ConversionFactors& factors, std::uint8_t count);

}  // namespace bmc::ipmi
