#pragma once

#include "bmc/sensor_reading.h"

namespace bmc::sim {

/// What moves a sensor. May be called from any thread.
class ReadingModel {
public:
    ReadingModel() = default;
    ReadingModel(const ReadingModel&) = delete;
    ReadingModel& operator=(const ReadingModel&) = delete;
    virtual ~ReadingModel() = default;

    /// The reading at @p time, in model seconds since the start. How often it is asked does not change the answers;
    /// times do not go back by more than two threads may differ.
    virtual SensorReading At(double time) = 0;
};

}  // namespace bmc::sim
