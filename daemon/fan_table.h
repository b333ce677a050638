#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bmc/sensor_reading.h"

/// The table from temperature to fan speed, and its rules. All pure: no board, no log, no state; any thread.
namespace fan_table {

/// A row: the band of temperatures and the fan speed for it.
struct TempFansElem {
    std::uint32_t lower = 0;  ///< lower limit of the band, degrees Celsius
    std::uint32_t upper = 0;  ///< upper limit of the band, degrees Celsius
    std::uint32_t rpm = 0;    ///< revolutions per minute
};

/// From the coldest band to the hottest. Bands may overlap: within an overlap the fans keep the speed they have.
using FanTable = std::vector<TempFansElem>;

// The speeds that a row may have, RPM. The lower one is also used below the coldest band, the upper one above the
// hottest band and whenever it is not known how hot it is or what to do.
inline constexpr std::uint32_t c_minSpeed = 2500;
inline constexpr std::uint32_t c_maxSpeed = 6500;

/// The lower one of @p lowest and the valid threshold @p next, degrees Celsius; 0 as @p lowest stands for "none yet".
double LowerLimit(double lowest, const bmc::SensorReading& next);

/// Something that must not be in a table.
struct RowError {
    std::size_t row = 0;
    bool isAboveNonCritical = false;  ///< it is the sensors' limits that the row does not fit
    std::string text;
};

/// Looks for rows that must not be: limits the wrong way round or above @p highNonCritical, a speed out of range, a
/// limit or speed that does not rise from the row before. An empty table has no error.
/// @param highNonCritical the lowest upper non-critical threshold of the watched sensors, degrees Celsius
/// @return the errors, those of the first row first.
std::vector<RowError> FindErrors(const FanTable& table, double highNonCritical);

/// @return the text of the first error; nothing when the table can be used.
std::optional<std::string> FindError(const FanTable& table, double highNonCritical);

/// What the fans are to do.
struct Step {
    std::uint32_t band = 0;  ///< the row in force from now on
    std::uint32_t rpm = 0;   ///< the speed that the fans are to have
    std::string warning;     ///< why it is not the speed of a row; empty when it is
};

/// Goes from the row in force to the next one towards @p temperature, one row at most. Beyond the ends of the table the
/// row stays and the speed is the lowest or highest.
/// @param table without errors
/// @param band a row of the table; does not matter when the table is empty
/// @param temperature degrees Celsius; below zero: none could be read; not a number: within any band
Step TakeStep(const FanTable& table, std::uint32_t band, double temperature);

}  // namespace fan_table
