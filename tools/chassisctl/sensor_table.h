#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bmc/enums.h"

namespace chassisctl {

/// The thresholds of a sensor as a chassis description calls them, in the order in which tables list them.
inline constexpr std::array<const char*, 6> c_thresholdNames{"lnr", "lc", "lnc", "unc", "uc", "unr"};

/// One analog sensor of a recorded machine.
struct SensorRow {
    int id = 0;
    std::string name;  ///< UTF-8, one line, not empty; two sensors may have the same
    bmc::SensorType_e type = bmc::SensorType_e::other;
    std::string units;            ///< as recorded; empty when the machine did not say
    std::optional<double> value;  ///< finite; nothing when the reading was not available
    std::array<std::optional<double>, c_thresholdNames.size()> thresholds;  ///< finite, in whatever order they stand
    std::optional<double> nominal;
};

/// What was found at a line of the table and could not be taken over.
struct TableRemark {
    std::size_t line = 0;    ///< from 1
    bool isLeftOut = false;  ///< the whole row was left out; else one value of a row that was kept
    std::string reason;
    std::string name;  ///< the row's sensor or, when it has none, the row; fit for a terminal
};

/// What a sensor table says.
struct SensorTable {
    std::string board;  ///< the machine's name, empty when the table does not give one
    std::vector<SensorRow> sensors;
    std::vector<TableRemark> remarks;  ///< in the order of the lines

    /// Number of rows that were left out.
    std::size_t CountLeftOut() const;
};

/// Reads the ten-column table that `ipmitool sensor` prints, or comma-separated values whose first row names the
/// columns (sensor_id, name and value at least; board, type, units, nominal and the six thresholds when there). Which
/// of the two it is, is told from the first row. Sensors of the ten-column table are numbered from 1, discrete rows
/// not counted. Empty lines, and lines that begin with "#" and are no row, are passed over.
///
/// Reads any text whatever: what cannot be taken over gives a remark. Callable from any thread.
SensorTable ReadSensorTable(std::string_view text);

}  // namespace chassisctl
