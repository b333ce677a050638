#include "fan_table.h"

#include <cstddef>

#include "qstd/convert.h"

namespace fan_table {

namespace {

static_assert(c_minSpeed == 2500 && c_maxSpeed == 6500, "the messages below name both");

/// Two numbers that must not stand to each other like this.
template <class Right>
std::string Contradiction(const char* subject, std::uint32_t left, const char* relation, Right right) {
    std::string text = subject;
    qstd::AppendNumber(text, left);
    qstd::AppendNumber(text.append(relation), right);
    return text;
}

/// What is wrong with a row by itself.
std::optional<std::string> FindRowError(const TempFansElem& row, double highNonCritical) {
    if (row.upper < row.lower) {
        return Contradiction("Temperature limits are invalid: ", row.lower, " > ", row.upper);
    }
    if (static_cast<double>(row.upper) > highNonCritical) {
        return Contradiction("Upper temperature limit is invalid: ", row.upper, " > ", highNonCritical);
    }
    if (row.rpm < c_minSpeed || row.rpm > c_maxSpeed) {
        return "RPM value is out of range  [2500..6500]: " + std::to_string(row.rpm);
    }
    return std::nullopt;
}

/// What is wrong with a row after the one before it.
std::optional<std::string> FindSequenceError(const TempFansElem& row, const TempFansElem& before) {
    if (row.lower <= before.lower) {
        return Contradiction("Lower temperature limits are not in sequence: ", row.lower, " <= ", before.lower);
    }
    if (row.upper <= before.upper) {
        return Contradiction("Upper temperature limits are not in sequence: ", row.upper, " <= ", before.upper);
    }
    if (row.rpm <= before.rpm) {
        return Contradiction("RPM values are not in sequence: ", row.rpm, " <= ", before.rpm);
    }
    return std::nullopt;
}

/// "Temperature: 30 is below min fan speed range: 3000."
std::string BeyondText(double temperature, const char* where, std::uint32_t rpm) {
    std::string text = "Temperature: ";
    qstd::AppendNumber(text, temperature);
    qstd::AppendNumber(text.append(where), rpm);
    return text.append(".");
}

}  // namespace

std::optional<std::string> FindError(const FanTable& table, double highNonCritical) {
    for (std::size_t index = 0; index < table.size(); ++index) {
        std::optional<std::string> error = FindRowError(table[index], highNonCritical);
        if (!error && index > 0) {
            error = FindSequenceError(table[index], table[index - 1]);
        }
        if (error) {
            return error;
        }
    }
    return std::nullopt;
}

Step TakeStep(const FanTable& table, std::uint32_t band, double temperature) {
    if (temperature < 0.0) {
        return {band, c_maxSpeed, "Can not read value from any temperature sensor."};
    }
    if (table.empty()) {
        return {band, c_maxSpeed, "User did not specify valid temperature ranges."};
    }
    const TempFansElem& row = table[band];
    if (temperature < row.lower) {
        if (band > 0) {
            return {band - 1, table[band - 1].rpm, {}};
        }
        return {band, c_minSpeed, BeyondText(temperature, " is below min fan speed range: ", row.rpm)};
    }
    if (temperature > row.upper) {
        if (band + 1 < table.size()) {
            return {band + 1, table[band + 1].rpm, {}};
        }
        return {
            band, c_maxSpeed,
            BeyondText(temperature, " is above max fan speed range: ", row.rpm) + " Will be set to max speed: 6500"};
    }
    return {band, row.rpm, {}};
}

}  // namespace fan_table
