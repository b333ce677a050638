#include "bmc/ipmi/sensor_record.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <type_traits>

#include <freeipmi/record-format/ipmi-sdr-record-format.h>
#include <freeipmi/sdr/ipmi-sdr.h>
#include <freeipmi/spec/ipmi-event-reading-type-code-spec.h>

#include "bmc/ipmi/id_string.h"
#include "bmc/ipmi/sensor_units.h"

namespace bmc::ipmi {

namespace {

constexpr std::size_t c_typeOffset = 3;
constexpr std::size_t c_lengthOffset = 4;
constexpr std::size_t c_recordHeaderSize = 5;

// Where the type/length byte of the name is, with which the part that every record has ends. The library parses a
// record that is shorter than that, but has no values for what is missing.
constexpr std::size_t c_fullNameOffset = 47;
constexpr std::size_t c_compactNameOffset = 31;

constexpr unsigned int c_mostShared = 15;

struct ContextDeleter {
    void operator()(ipmi_sdr_ctx_t context) const { ipmi_sdr_ctx_destroy(context); }
};
using Context = std::unique_ptr<std::remove_pointer_t<ipmi_sdr_ctx_t>, ContextDeleter>;

/// One record and what the library makes of it. Functions return false when it makes nothing of it.
class Parser {
public:
    /// @p record goes on to live.
    Parser(const RawRecord& record, std::size_t size)
        : m_context(ipmi_sdr_ctx_create()), m_data(record.data()), m_size(static_cast<unsigned int>(size)) {}

    bool IsThresholdBased() const {
        std::uint8_t code = 0;
        return m_context && ipmi_sdr_parse_event_reading_type_code(m_context.get(), m_data, m_size, &code) >= 0 &&
               IPMI_EVENT_READING_TYPE_CODE_IS_THRESHOLD(code);
    }

    bool Identity(SensorRecord& sensor) const {
        std::uint8_t isSoftware = 0;
        std::uint8_t owner = 0;
        std::uint8_t type = 0;
        if (ipmi_sdr_parse_sensor_owner_id(m_context.get(), m_data, m_size, &isSoftware, &owner) < 0 ||
            ipmi_sdr_parse_sensor_owner_lun(m_context.get(), m_data, m_size, &sensor.lun, &sensor.channel) < 0 ||
            ipmi_sdr_parse_sensor_number(m_context.get(), m_data, m_size, &sensor.number) < 0 ||
            ipmi_sdr_parse_sensor_type(m_context.get(), m_data, m_size, &type) < 0) {
            return false;
        }
        sensor.owner = static_cast<std::uint8_t>((owner << 1) | isSoftware);
        sensor.id = sensor.number + 256 * sensor.lun;
        sensor.type = SensorTypeFromIpmi(type).value_or(SensorType_e::unspecified);
        return true;
    }

    bool Units(SensorRecord& sensor) const {
        std::uint8_t isPercentage = 0;
        UnitCodes codes;
        if (ipmi_sdr_parse_sensor_units(m_context.get(), m_data, m_size, &isPercentage, &codes.relation, &codes.rate,
                                        &codes.base, &codes.modifier) < 0) {
            return false;
        }
        codes.isPercentage = isPercentage != 0;
        sensor.units = UnitsText(codes);
        return true;
    }

    bool Factors(SensorRecord& sensor) const {
        ConversionFactors& factors = sensor.factors;
        return ipmi_sdr_parse_sensor_decoding_data(m_context.get(), m_data, m_size, &factors.rExponent,
                                                   &factors.bExponent, &factors.m, &factors.b, &factors.linearization,
                                                   &factors.format) >= 0;
    }

    bool IsNominalSpecified() const {
        std::uint8_t isSpecified = 0;
        return ipmi_sdr_parse_sensor_reading_ranges_specified(m_context.get(), m_data, m_size, &isSpecified, nullptr,
                                                              nullptr) >= 0 &&
               isSpecified != 0;
    }

    bool Readable(SensorRecord& sensor) const {
        std::array<std::uint8_t, thresholdCount> bits{};
        if (ipmi_sdr_parse_threshold_readable(m_context.get(), m_data, m_size, &bits[lowerNonCritical],
                                              &bits[lowerCritical], &bits[lowerNonRecoverable], &bits[upperNonCritical],
                                              &bits[upperCritical], &bits[upperNonRecoverable]) < 0) {
            return false;
        }
        for (std::size_t i = 0; i < thresholdCount; ++i) {
            sensor.isReadable.at(i) = bits.at(i) != 0;
        }
        return true;
    }

    /// How many sensors a compact record stands for, and how their names differ.
    struct Sharing {
        std::uint8_t count = 0;
        std::uint8_t modifierType = 0;  ///< 0 a number, 1 letters
        std::uint8_t modifierOffset = 0;
    };
    bool ReadSharing(Sharing& sharing) const {
        return ipmi_sdr_parse_sensor_record_sharing(m_context.get(), m_data, m_size, &sharing.count,
                                                    &sharing.modifierType, &sharing.modifierOffset, nullptr) >= 0;
    }

private:
    Context m_context;
    const std::uint8_t* m_data;
    unsigned int m_size;
};

/// A, B .. Z, AA, AB ..
std::string Letters(unsigned int index) {
    std::string text(1, static_cast<char>('A' + index % 26));
    return index < 26 ? text : static_cast<char>('A' + index / 26 - 1) + text;
}

void SetName(SensorRecord& sensor, const std::string& name) {
    sensor.name = name.empty() ? "Sensor " + std::to_string(sensor.id) : name;
}

std::string NameOf(const RawRecord& record, std::size_t size, std::size_t nameOffset) {
    return DecodeIdString(record[nameOffset], std::span(record).subspan(nameOffset + 1, size - nameOffset - 1));
}

std::vector<SensorRecord> DecodeFull(const RawRecord& record, std::size_t size) {
    constexpr std::size_t c_nominalOffset = 31;
    const Parser parser(record, size);
    SensorRecord sensor;
    if (!parser.IsThresholdBased() || !parser.Identity(sensor) || !parser.Factors(sensor) ||
        sensor.factors.format > 2 || !parser.Units(sensor) || !parser.Readable(sensor)) {
        return {};
    }
    SetName(sensor, NameOf(record, size, c_fullNameOffset));
    if (parser.IsNominalSpecified()) {
        sensor.nominalCount = record[c_nominalOffset];
    }
    return {sensor};
}

std::vector<SensorRecord> DecodeCompact(const RawRecord& record, std::size_t size) {
    const Parser parser(record, size);
    SensorRecord first;
    Parser::Sharing sharing;
    if (!parser.IsThresholdBased() || !parser.Identity(first) || !parser.Units(first) || !parser.ReadSharing(sharing)) {
        return {};
    }
    const std::string name = NameOf(record, size, c_compactNameOffset);
    if (sharing.count < 2) {
        SetName(first, name);
        return {first};
    }
    std::vector<SensorRecord> sensors;
    for (unsigned int i = 0; i < std::min<unsigned int>(sharing.count, c_mostShared) && first.number + i <= 0xff; ++i) {
        SensorRecord sensor = first;
        sensor.number = static_cast<std::uint8_t>(first.number + i);
        sensor.id = first.id + static_cast<int>(i);
        const unsigned int modifier = sharing.modifierOffset + i;
        SetName(sensor, name);
        sensor.name += " " + (sharing.modifierType == 1 ? Letters(modifier) : std::to_string(modifier));
        sensors.push_back(sensor);
    }
    return sensors;
}

}  // namespace

std::vector<SensorRecord> DecodeRecord(const RawRecord& record) {
    if (record.size() < c_recordHeaderSize) {
        return {};
    }
    // What follows the length that the header tells is none of the record's.
    const std::size_t size = std::min<std::size_t>(record.size(), c_recordHeaderSize + record[c_lengthOffset]);
    if (record[c_typeOffset] == IPMI_SDR_FORMAT_FULL_SENSOR_RECORD && size > c_fullNameOffset) {
        return DecodeFull(record, size);
    }
    if (record[c_typeOffset] == IPMI_SDR_FORMAT_COMPACT_SENSOR_RECORD && size > c_compactNameOffset) {
        return DecodeCompact(record, size);
    }
    return {};
}

}  // namespace bmc::ipmi
