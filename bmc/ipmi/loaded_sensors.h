#pragma once

#include <vector>

#include "bmc/sensor.h"
#include "bmc/sensor_id.h"

namespace bmc::ipmi {

/// The sensors of a board, which are found out beside the rest of the program. Any thread.
class LoadedSensors {
public:
    LoadedSensors() = default;
    LoadedSensors(const LoadedSensors&) = delete;
    LoadedSensors& operator=(const LoadedSensors&) = delete;
    virtual ~LoadedSensors() = default;

    /// The ids in the repository's order. Waits until the sensors were asked for once.
    /// @throws qstd::Exception saying why they are not known, BrokenOff when the service stops before they are
    virtual std::vector<SensorId> AwaitIds() = 0;

    /// The sensor, null when the board does not have it, or not any more. Does not wait.
    virtual Sensor* Find(const SensorId& id) = 0;
};

}  // namespace bmc::ipmi
