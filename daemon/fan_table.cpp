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

/// Adds what is wrong with the row of that number by itself.
void AddRowErrors(const FanTable& table, std::size_t number, double highNonCritical, std::vector<RowError>& errors) {
    const TempFansElem& row = table[number];
    if (row.upper < row.lower) {
        errors.push_back(
            {number, false, Contradiction("Temperature limits are invalid: ", row.lower, " > ", row.upper)});
    }
    if (static_cast<double>(row.upper) > highNonCritical) {
        errors.push_back(
            {number, true, Contradiction("Upper temperature limit is invalid: ", row.upper, " > ", highNonCritical)});
    }
    if (row.rpm < c_minSpeed || row.rpm > c_maxSpeed) {
        errors.push_back({number, false, "RPM value is out of range  [2500..6500]: " + std::to_string(row.rpm)});
    }
}

/// Adds what is wrong with the row of that number after the one before it.
void AddSequenceErrors(const FanTable& table, std::size_t number, std::vector<RowError>& errors) {
    const TempFansElem& row = table[number];
    const TempFansElem& before = table[number - 1];
    const auto add = [&](const char* subject, std::uint32_t value, std::uint32_t valueBefore) {
        if (value <= valueBefore) {
            errors.push_back({number, false, Contradiction(subject, value, " <= ", valueBefore)});
        }
    };
    add("Lower temperature limits are not in sequence: ", row.lower, before.lower);
    add("Upper temperature limits are not in sequence: ", row.upper, before.upper);
    add("RPM values are not in sequence: ", row.rpm, before.rpm);
}

/// "Temperature: 30 is below min fan speed range: 3000."
std::string BeyondText(double temperature, const char* where, std::uint32_t rpm) {
    std::string text = "Temperature: ";
    qstd::AppendNumber(text, temperature);
    qstd::AppendNumber(text.append(where), rpm);
    return text.append(".");
}

}  // namespace

double LowerLimit(double lowest, const bmc::SensorReading& next) {
    return next.IsValid() && (qstd::Equal(lowest, 0.0) || next.Converted() < lowest) ? next.Converted() : lowest;
}

std::vector<RowError> FindErrors(const FanTable& table, double highNonCritical) {
    std::vector<RowError> errors;
    for (std::size_t number = 0; number < table.size(); ++number) {
        AddRowErrors(table, number, highNonCritical, errors);
        if (number > 0) {
            AddSequenceErrors(table, number, errors);
        }
    }
    return errors;
}

std::optional<std::string> FindError(const FanTable& table, double highNonCritical) {
    const std::vector<RowError> errors = FindErrors(table, highNonCritical);
    return errors.empty() ? std::nullopt : std::optional(errors.front().text);
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
