#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

#include "bmc/sensor_reading.h"
#include "fan_table.h"
#include "qcfg/finding.h"

// What is wrong with a table from temperature to fan speed beyond what keeps it from being used. All pure; any thread.

namespace fan_table {

/// A sensor that the temperature control watches.
struct WatchedSensor {
    std::string name;  ///< for messages
    bmc::SensorReading highNonCritical = bmc::SensorReading::NoUpperLimit();
    bmc::SensorReading highCritical = bmc::SensorReading::NoUpperLimit();
    /// Above this reading damage protection switches the sensor's board off, degrees Celsius; never when infinite.
    double switchOff = std::numeric_limits<double>::infinity();
};

/// Something to say about a row.
struct RowFinding {
    std::size_t row = 0;
    qcfg::Severity_e severity = qcfg::Severity_e::error;
    std::string text;
};

/// Proves the table on the sensors that are to be watched:
/// - the errors with which the temperature control does not use a table (FindErrors), of every row. Errors.
/// - a sensor that is past its upper critical limit at a temperature at which the table leaves the fans below maximum
///   speed: its upper non-critical limit, by which FindErrors goes, is missing or the higher one of the two. An error:
///   the hardware suffers while the fans could do more.
/// - a gap between two bands: the fans change between two speeds there, each of them a speed for that heat. A warning.
/// - a band that no watched sensor stays in, because its board is switched off before. A warning: it does no harm, but
///   whoever wrote it counts on it.
/// @param sensors in the order of their boards' uris and their ids, as the temperature control goes through them
/// @param areAllKnown false when more sensors are watched than are known: then nothing is said that they could disprove
/// @return the findings, those of the first row first
std::vector<RowFinding> Prove(const FanTable& table, const std::vector<WatchedSensor>& sensors, bool areAllKnown);

}  // namespace fan_table
