#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace test {

/// How a sensor's raw byte is read as a number. Numbers as in a sensor record.
enum class RawFormat_e : std::uint8_t { unsigned_number = 0, ones_complement = 1, twos_complement = 2, none = 3 };

/// The curve between the linear part of the conversion and the reading. Numbers as in a sensor record.
enum class Linearization_e : std::uint8_t {
    linear = 0,
    ln = 1,
    log10 = 2,
    log2 = 3,
    e = 4,
    exp10 = 5,
    exp2 = 6,
    inverse = 7,
    square = 8,
    cube = 9,
    square_root = 10,
    cube_root = 11,
    /// The factors differ by raw value and are asked for with Get Sensor Reading Factors: the sensor's own below 0x80;
    /// from there on m is twice as large, and b such that the curve goes on (b exponent 0; keep m at 1 to 3).
    non_linear = 0x70,
};

/// IPMI's numbers of the units that the simulated sensors use.
namespace unit {
inline constexpr std::uint8_t c_unspecified = 0;
inline constexpr std::uint8_t c_degreesC = 1;
inline constexpr std::uint8_t c_volts = 4;
inline constexpr std::uint8_t c_amps = 5;
inline constexpr std::uint8_t c_watts = 6;
inline constexpr std::uint8_t c_cfm = 17;
inline constexpr std::uint8_t c_rpm = 18;
inline constexpr std::uint8_t c_feet = 29;
}  // namespace unit

/// IPMI's numbers of what a simulated sensor measures.
namespace sensor_type {
inline constexpr std::uint8_t c_temperature = 1;
inline constexpr std::uint8_t c_voltage = 2;
inline constexpr std::uint8_t c_current = 3;
inline constexpr std::uint8_t c_fan = 4;
inline constexpr std::uint8_t c_other = 0x0b;
}  // namespace sensor_type

/// Raw byte to reading: y = L((m * raw + b * 10^bExponent) * 10^rExponent).
struct Factors {
    int m = 1;          ///< -512 to 511
    int b = 0;          ///< -512 to 511
    int bExponent = 0;  ///< -8 to 7
    int rExponent = 0;  ///< -8 to 7
};

/// One sensor of a simulated controller. Thresholds and readings are raw bytes; ToReading and ToRaw convert.
struct SimulatedSensor {
    std::uint8_t number = 1;  ///< each once in a controller, on whatever LUN
    std::uint8_t lun = 0;
    std::string name;  ///< at most 16 bytes
    std::uint8_t type = sensor_type::c_temperature;
    std::uint8_t eventType = 1;  ///< 1 = threshold-based; any other is a discrete sensor
    std::uint8_t unit = unit::c_degreesC;
    bool isPercent = false;
    std::uint8_t entity = 7;
    RawFormat_e format = RawFormat_e::unsigned_number;
    Linearization_e linearization = Linearization_e::linear;
    Factors factors;
    bool isCompact = false;  ///< a compact record: no factors, nominal reading or thresholds in it

    std::uint8_t raw = 0;  ///< what it reads at the start
    bool isUnavailable = false;
    bool isScanned = true;

    std::optional<std::uint8_t> nominal;  ///< nothing: the record says that it is not specified
    /// lnr, lc, lnc, unc, uc, unr. Nothing: neither in the record nor readable.
    std::array<std::optional<std::uint8_t>, 6> thresholds;
    /// false: the values stand in the record, but the controller does not hand them out.
    bool areThresholdsReadable = true;
};

/// The factors that hold for raw byte @p raw: the sensor's, but for a non-linear one.
Factors FactorsAt(const SimulatedSensor& sensor, std::uint8_t raw);

/// The reading that raw byte @p raw of @p sensor stands for, by the arithmetic of the IPMI v2.0 specification (section
/// 36.3), independently of the product's.
double ToReading(const SimulatedSensor& sensor, std::uint8_t raw);

/// The raw byte whose reading lies closest to @p reading.
std::uint8_t ToRaw(const SimulatedSensor& sensor, double reading);

}  // namespace test
