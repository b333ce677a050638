#pragma once

#include <string>

#include "bmc/enums.h"
#include "bmc/sensor_id.h"
#include "bmc/sensor_reading.h"

namespace bmc {

/// One sensor of a board, owned by its board for the whole life of the process. All operations may be called from any
/// thread; those that ask the board's controller are serialised with every other access to the same board and raise
/// qstd::Exception when it does not answer.
class Sensor {
public:
    /// Classes of a reading by the thresholds it has passed, as ReadingLimit gives them.
    static constexpr int c_notAvailable = -1;
    static constexpr int c_withinLimits = 0;
    static constexpr int c_belowLowerNonCritical = 1;
    static constexpr int c_belowLowerCritical = 2;
    static constexpr int c_belowLowerNonRecoverable = 3;
    static constexpr int c_aboveUpperNonCritical = 4;
    static constexpr int c_aboveUpperCritical = 5;
    static constexpr int c_aboveUpperNonRecoverable = 6;

    Sensor() = default;
    Sensor(const Sensor&) = delete;
    Sensor& operator=(const Sensor&) = delete;
    virtual ~Sensor() = default;

    // What the sensor is; never changes.
    virtual const SensorId& GetId() const = 0;
    virtual SensorType_e GetType() const = 0;
    virtual const std::string& GetName() const = 0;
    /// For example "degrees C", "Volts", "RPM"; may be empty.
    virtual const std::string& GetUnits() const = 0;

    // Nominal value and thresholds. One that the sensor does not have is not valid; see SensorReading for what it
    // converts to.
    virtual SensorReading GetNominal() const = 0;
    virtual SensorReading GetLowerNonCritical() const = 0;
    virtual SensorReading GetLowerCritical() const = 0;
    virtual SensorReading GetLowerNonRecoverable() const = 0;
    virtual SensorReading GetUpperNonCritical() const = 0;
    virtual SensorReading GetUpperCritical() const = 0;
    virtual SensorReading GetUpperNonRecoverable() const = 0;

    /// A fresh reading, taken at or after the call. It may be not valid.
    virtual SensorReading Read() const = 0;

    /// The class of @p reading (constants above). Comparisons are strict, thresholds that are not valid are passed
    /// over; of several passed thresholds the most severe one counts, upper ones before lower ones.
    virtual int ReadingLimit(const SensorReading& reading) const;
};

}  // namespace bmc
