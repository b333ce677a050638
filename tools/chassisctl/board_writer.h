#pragma once

#include <optional>
#include <string>

#include "tools/chassisctl/sensor_table.h"

namespace chassisctl {

/// How the board of a chassis description that is made from a sensor table looks.
struct BoardOptions {
    std::string uri = "io/1";
    std::string type = "io";  ///< name of bmc::BoardType_e, or its number
    std::string name;
    /// Percent of each reading by which it moves; nothing holds every sensor at its recorded reading.
    std::optional<double> live;
};

/// The `<board>` element with one `<sensor>` for each row, ending with a newline. The same table gives the same text.
///
/// With `live` a temperature above the chassis' usual ambient of 25 degrees becomes a `<thermal>` whose steady state at
/// 4000 RPM is the recorded value (ambient + power * resistance); every other available reading becomes a `<wave>`
/// around the recorded value, with an amplitude of `live` percent of it and a noise of a tenth of that. Time constants
/// and periods are spread by the sensor's id, so that sensors do not move in step.
/// @param options text in UTF-8 without control characters
std::string WriteBoard(const SensorTable& table, const BoardOptions& options);

}  // namespace chassisctl
