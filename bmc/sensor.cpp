#include "bmc/sensor.h"

namespace bmc {

namespace {

bool IsAbove(double value, const SensorReading& limit) {
    return limit.IsValid() && value > limit.Converted();
}

bool IsBelow(double value, const SensorReading& limit) {
    return limit.IsValid() && value < limit.Converted();
}

}  // namespace

int Sensor::ReadingLimit(const SensorReading& reading) const {
    if (!reading.IsValid()) {
        return c_notAvailable;
    }
    const double value = reading.Converted();
    if (IsAbove(value, GetUpperNonRecoverable())) {
        return c_aboveUpperNonRecoverable;
    }
    if (IsAbove(value, GetUpperCritical())) {
        return c_aboveUpperCritical;
    }
    if (IsAbove(value, GetUpperNonCritical())) {
        return c_aboveUpperNonCritical;
    }
    if (IsBelow(value, GetLowerNonRecoverable())) {
        return c_belowLowerNonRecoverable;
    }
    if (IsBelow(value, GetLowerCritical())) {
        return c_belowLowerCritical;
    }
    if (IsBelow(value, GetLowerNonCritical())) {
        return c_belowLowerNonCritical;
    }
    return c_withinLimits;
}

}  // namespace bmc
