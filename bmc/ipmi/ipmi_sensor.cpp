#include "bmc/ipmi/ipmi_sensor.h"

#include <algorithm>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

constexpr std::uint8_t c_illegalForSensor = 0xcd;

/// Codes by which a controller that works says that this sensor has nothing to tell, or nothing now.
bool IsOfSensor(std::uint8_t completionCode) {
    return completionCode == c_notPresent || completionCode == c_illegalForSensor || completionCode == c_notInThisState;
}

/// The same for thresholds, which a controller need not know at all.
bool IsWithoutThresholds(std::uint8_t completionCode) {
    constexpr std::uint8_t c_invalidForUnit = 0xc2;
    constexpr std::uint8_t c_invalidField = 0xcc;
    return IsOfSensor(completionCode) || completionCode == c_invalidCommand || completionCode == c_invalidForUnit ||
           completionCode == c_invalidField;
}

/// A number in two's complement that has @p bits bits.
int Signed(unsigned int number, unsigned int bits) {
    const unsigned int sign = 1U << (bits - 1);
    return static_cast<int>(number ^ sign) - static_cast<int>(sign);
}

/// The reply to Get Sensor Reading Factors, which holds for one count.
ConversionFactors FactorsOf(const std::vector<std::uint8_t>& data, std::uint8_t format) {
    ConversionFactors factors;
    factors.m = static_cast<std::int16_t>(Signed(data[1] | ((data[2] & 0xc0U) << 2), 10));
    factors.b = static_cast<std::int16_t>(Signed(data[3] | ((data[4] & 0xc0U) << 2), 10));
    factors.rExponent = static_cast<std::int8_t>(Signed(data[6] >> 4, 4));
    factors.bExponent = static_cast<std::int8_t>(Signed(data[6] & 0x0fU, 4));
    factors.format = format;
    return factors;
}

}  // namespace

IpmiSensor::IpmiSensor(const std::string& board, SensorRecord record, Link& link)
    : m_id(record.id),
      m_record(std::move(record)),
      m_who(fmt::format("{} sensor {} ({})", board, m_record.id, m_record.name)),
      m_link(link) {
    if (m_record.nominalCount && !m_record.factors.DifferByCount()) {
        m_nominal = Convert(m_record.factors, *m_record.nominalCount);
    }
}

SensorReading IpmiSensor::GetNominal() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_nominal ? SensorReading(*m_nominal) : SensorReading();
}

SensorReading IpmiSensor::Lower(Threshold_e threshold) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::optional<double> value = m_thresholds.at(threshold);
    return value ? SensorReading(*value) : SensorReading::NoLowerLimit();
}

SensorReading IpmiSensor::Upper(Threshold_e threshold) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    const std::optional<double> value = m_thresholds.at(threshold);
    return value ? SensorReading(*value) : SensorReading::NoUpperLimit();
}

SensorReading IpmiSensor::Read() const {
    if (!m_isPresent) {
        return TakeReading({});
    }
    return TakeReading(m_link.Execute(ReadingRequest(), Purpose_e::reading));
}

Request IpmiSensor::ReadingRequest() const {
    return {NetFn_e::sensor, 0x2d, {m_record.number}, m_record.lun};
}

SensorReading IpmiSensor::TakeReading(const Response& response) const {
    constexpr std::uint8_t c_isScanned = 0x40;
    constexpr std::uint8_t c_isUnavailable = 0x20;
    if (!m_isPresent) {
        throw qstd::Exception(m_who + ": the board's sensor records do not have this sensor any more");
    }
    if (IsOfSensor(response.completionCode)) {
        return {};
    }
    const auto& data = ExpectData(response, 2, What(ReadingRequest()));
    if ((data[1] & c_isScanned) == 0 || (data[1] & c_isUnavailable) != 0) {
        return {};
    }
    const std::optional<double> value = ValueOf(data[0]);
    return value ? SensorReading(*value) : SensorReading();
}

bool IpmiSensor::HasThresholds() const {
    return std::find(m_record.isReadable.begin(), m_record.isReadable.end(), true) != m_record.isReadable.end();
}

Request IpmiSensor::ThresholdsRequest() const {
    return {NetFn_e::sensor, 0x27, {m_record.number}, m_record.lun};
}

void IpmiSensor::TakeThresholds(const Response& response) {
    if (IsWithoutThresholds(response.completionCode)) {
        return;
    }
    const auto& data = ExpectData(response, 1 + thresholdCount, What(ThresholdsRequest()));
    Values values;
    for (std::size_t i = 0; i < thresholdCount; ++i) {
        if (m_record.isReadable.at(i) && (data[0] >> i & 1U) != 0) {
            values.at(i) = ValueOf(data[1 + i]);
        }
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_thresholds = values;
}

void IpmiSensor::ReadNominal() {
    if (!m_record.nominalCount || !m_record.factors.DifferByCount()) {
        return;
    }
    const std::optional<double> value = ValueOf(*m_record.nominalCount);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_nominal = value;
}

std::string IpmiSensor::What(const Request& request) const {
    return m_who + ": " + CommandName(request);
}

std::optional<double> IpmiSensor::ValueOf(std::uint8_t count) const {
    constexpr std::size_t c_replySize = 7;
    if (!m_record.factors.DifferByCount()) {
        return Convert(m_record.factors, count);
    }
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        const auto known = m_factors.find(count);
        if (known != m_factors.end()) {
            return Convert(known->second, count);
        }
    }
    const Request request(NetFn_e::sensor, 0x23, {m_record.number, count}, m_record.lun);
    const Response response = m_link.Execute(request, Purpose_e::reading);
    const ConversionFactors factors =
        FactorsOf(ExpectData(response, c_replySize, What(request)), m_record.factors.format);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_factors[count] = factors;
    return Convert(factors, count);
}

}  // namespace bmc::ipmi
