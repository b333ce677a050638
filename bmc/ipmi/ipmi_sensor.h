#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/sensor_record.h"
#include "bmc/sensor.h"

namespace bmc::ipmi {

/// A threshold-based sensor of a board. Accessors ask nobody: thresholds, and the nominal value where factors differ by
/// count, are those that were last read (SensorSet); what was not read yet is not valid. Any thread; accessors never
/// wait for a transaction.
///
/// What the answer to Get Sensor Reading means:
/// | completion code | reading |
/// |---|---|
/// | 0x00, scanned and available | valid |
/// | 0x00 with scanning disabled or the reading marked unavailable | not valid |
/// | 0xCB no such sensor, 0xCD illegal for it, 0xD5 not in the present state: they speak of the sensor | not valid |
/// | all others: they speak of the controller or the request | exception |
///
/// A count that has no value (see Convert) is a reading that is not valid.
class IpmiSensor : public Sensor {
public:
    /// @param board the board's label, for messages
    /// @param link to the board that has the sensor; goes on to live
    IpmiSensor(const std::string& board, SensorRecord record, Link& link);

    const SensorId& GetId() const override { return m_id; }
    SensorType_e GetType() const override { return m_record.type; }
    const std::string& GetName() const override { return m_record.name; }
    const std::string& GetUnits() const override { return m_record.units; }

    SensorReading GetNominal() const override;
    SensorReading GetLowerNonCritical() const override { return Lower(lowerNonCritical); }
    SensorReading GetLowerCritical() const override { return Lower(lowerCritical); }
    SensorReading GetLowerNonRecoverable() const override { return Lower(lowerNonRecoverable); }
    SensorReading GetUpperNonCritical() const override { return Upper(upperNonCritical); }
    SensorReading GetUpperCritical() const override { return Upper(upperCritical); }
    SensorReading GetUpperNonRecoverable() const override { return Upper(upperNonRecoverable); }

    /// One transaction; the first time that a count comes up one more where factors differ by count.
    /// @throws qstd::Exception "io/1 sensor 16 (Inlet): Get Sensor Reading: 0xC0 (busy)", also for a sensor that the
    /// board's records do not have any more
    SensorReading Read() const override;

    // The two halves of Read, for who reads many sensors at once.
    Request ReadingRequest() const;
    /// @throws qstd::Exception as Read
    SensorReading TakeReading(const Response& response) const;

    /// Whether any threshold may be read at all.
    bool HasThresholds() const;
    Request ThresholdsRequest() const;
    /// Takes over the answer to ThresholdsRequest. Codes that say that the sensor has none, or not now, are an answer;
    /// what was known before stays. @throws qstd::Exception for others
    void TakeThresholds(const Response& response);
    /// Asks for the factors that the nominal value needs, where factors differ by count. @throws qstd::Exception
    void ReadNominal();

    const SensorRecord& GetRecord() const noexcept { return m_record; }

    // Whether the board's records still have this sensor. While they do not, readings raise.
    bool IsPresent() const noexcept { return m_isPresent; }
    void SetPresent(bool isPresent) noexcept { m_isPresent = isPresent; }

private:
    using Values = std::array<std::optional<double>, thresholdCount>;

    std::string What(const Request& request) const;
    SensorReading Lower(Threshold_e threshold) const;
    SensorReading Upper(Threshold_e threshold) const;
    /// May take a transaction, where factors differ by count.
    std::optional<double> ValueOf(std::uint8_t count) const;

    const SensorId m_id;
    const SensorRecord m_record;
    const std::string m_who;  ///< "io/1 sensor 16 (Inlet)"
    Link& m_link;
    std::atomic<bool> m_isPresent{true};

    mutable std::mutex m_mutex;  ///< guards what follows; never held during a transaction
    Values m_thresholds;
    std::optional<double> m_nominal;
    mutable std::map<std::uint8_t, ConversionFactors> m_factors;  ///< by count, where they differ
};

}  // namespace bmc::ipmi
