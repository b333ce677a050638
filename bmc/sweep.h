#pragma once

#include <map>
#include <vector>

#include "bmc/sensor.h"
#include "bmc/sensor_id.h"
#include "bmc/sensor_reading.h"
#include "bmc/uri.h"

namespace bmc {

/// Sensors by the uri of their board.
using SensorIds = std::map<Uri, std::vector<SensorId>>;

/// One reading each of many sensors, taken together: started with Backend::StartSweep, all of them are asked for at
/// once, boards side by side, and Read collects them one after the other. What a pass over boards reads through, so
/// that it lasts as long as its slowest board and not as long as all of them together.
///
/// This class is the sweep of a backend whose boards answer at once: it asks for nothing before Read does. A backend
/// whose boards take their time derives its own.
///
/// A sweep is for the thread that started it; any number of them may be under way at the same time. Its backend
/// outlives it.
class Sweep {
public:
    Sweep() = default;
    Sweep(const Sweep&) = delete;
    Sweep& operator=(const Sweep&) = delete;

    /// Gives up what was not collected, without waiting for it.
    virtual ~Sweep() = default;

    /// The reading of @p sensor, taken after the sweep was started; waits for it, no longer than Sensor::Read does. The
    /// sensors of the sweep may be asked for in any order. One whose reading was collected before, or that is not of
    /// the sweep, is read now.
    /// @throws what Sensor::Read throws, and BrokenOff when it does; it counts as collected then.
    virtual SensorReading Read(const Sensor& sensor) { return sensor.Read(); }
};

}  // namespace bmc
