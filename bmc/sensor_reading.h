#pragma once

#include <limits>

namespace bmc {

/// One reading or threshold of a sensor in engineering units (degrees Celsius, volts, amperes, RPM, ...).
class SensorReading {
public:
    /// A reading that is not available: not valid, and its value is not a number.
    SensorReading() = default;

    /// A valid reading.
    explicit SensorReading(double value) noexcept : m_value(value), m_isValid(true) {}

    /// A reading that is not valid but converts to @p value all the same.
    static SensorReading NotAvailable(double value) noexcept {
        SensorReading reading(value);
        reading.m_isValid = false;
        return reading;
    }

    /// An upper threshold that the sensor does not have: no value is above it.
    static SensorReading NoUpperLimit() noexcept { return NotAvailable(std::numeric_limits<double>::infinity()); }

    /// A lower threshold that the sensor does not have: no value is below it.
    static SensorReading NoLowerLimit() noexcept { return NotAvailable(-std::numeric_limits<double>::infinity()); }

    bool IsValid() const noexcept { return m_isValid; }

    /// The value in engineering units. Of a reading that is not valid: not a number; of a missing upper threshold
    /// +infinity, of a missing lower one -infinity.
    double Converted() const noexcept { return m_value; }

private:
    double m_value = std::numeric_limits<double>::quiet_NaN();
    bool m_isValid = false;
};

}  // namespace bmc
