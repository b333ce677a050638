#include "tests/support/ipmi/sensor_record.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace test {

namespace {

constexpr std::size_t c_headerLength = 5;
constexpr std::size_t c_maxName = 16;
constexpr std::uint8_t c_latin1 = 0xc0;
// The bit of each threshold in a mask, in the order in which a simulated sensor lists them: lnr lc lnc unc uc unr.
constexpr std::array<unsigned, 6> c_thresholdBits{2, 1, 0, 3, 4, 5};

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t Byte(int value) {
    return static_cast<std::uint8_t>(value & 0xff);
}

bool IsThresholdBased(const SimulatedSensor& sensor) {
    return sensor.eventType == 1;
}

// What full and compact records have in common: bytes 6 to 23.
void AppendCommon(Bytes& record, const SimulatedSensor& sensor, std::uint8_t owner) {
    const std::uint8_t readable = ReadableThresholds(sensor);
    const int thresholdAccess = readable != 0 ? 1 : 0;
    const int lower = IsThresholdBased(sensor) ? (readable & 0x07) << 12 : 0;
    const int upper = IsThresholdBased(sensor) ? (readable & 0x38) << 9 : 0;
    record.insert(record.end(), {owner, sensor.lun, sensor.number, sensor.entity, 1, Byte(0x01 | 0x40),
                                 Byte(0x43 | thresholdAccess << 2), sensor.type, sensor.eventType, Byte(lower),
                                 Byte(lower >> 8), Byte(upper), Byte(upper >> 8), readable, 0});
    const bool isNumeric = IsThresholdBased(sensor);
    const int format = isNumeric ? static_cast<int>(sensor.format) : static_cast<int>(RawFormat_e::none);
    record.insert(record.end(), {Byte(format << 6 | (sensor.isPercent ? 1 : 0)), sensor.unit, 0});
}

void AppendName(Bytes& record, const SimulatedSensor& sensor) {
    if (sensor.name.size() > c_maxName) {
        throw std::invalid_argument("sensor name \"" + sensor.name + "\" is longer than 16 bytes");
    }
    record.push_back(Byte(c_latin1 | static_cast<int>(sensor.name.size())));
    record.insert(record.end(), sensor.name.begin(), sensor.name.end());
}

void AppendFullPart(Bytes& record, const SimulatedSensor& sensor) {
    record.push_back(static_cast<std::uint8_t>(sensor.linearization));
    const std::array<std::uint8_t, 6> factors = PackFactors(sensor.factors);
    record.insert(record.end(), factors.begin(), factors.end());
    const bool isSigned = sensor.format != RawFormat_e::unsigned_number;
    record.insert(record.end(), {Byte(sensor.nominal ? 1 : 0), sensor.nominal.value_or(0), 0, 0,
                                 Byte(isSigned ? 0x7f : 0xff), Byte(isSigned ? 0x80 : 0)});
    const auto& t = sensor.thresholds;
    for (const std::size_t i : {5U, 4U, 3U, 0U, 1U, 2U}) {
        record.push_back(t[i].value_or(0));
    }
    record.insert(record.end(), {0, 0, 0, 0, 0});
}

}  // namespace

std::uint8_t ReadableThresholds(const SimulatedSensor& sensor) {
    unsigned mask = 0;
    if (IsThresholdBased(sensor) && sensor.areThresholdsReadable) {
        for (std::size_t i = 0; i < sensor.thresholds.size(); ++i) {
            mask |= sensor.thresholds[i] ? 1U << c_thresholdBits[i] : 0U;
        }
    }
    return static_cast<std::uint8_t>(mask);
}

std::array<std::uint8_t, 6> PackFactors(const Factors& f) {
    if (std::min(f.m, f.b) < -512 || std::max(f.m, f.b) > 511 || std::min(f.bExponent, f.rExponent) < -8 ||
        std::max(f.bExponent, f.rExponent) > 7) {
        throw std::invalid_argument("factors do not fit a sensor record");
    }
    return {Byte(f.m), Byte(f.m >> 2 & 0xc0),
            Byte(f.b), Byte(f.b >> 2 & 0xc0),
            0,         Byte((f.rExponent & 0x0f) << 4 | (f.bExponent & 0x0f))};
}

std::vector<std::uint8_t> ComposeRecord(const SimulatedSensor& sensor, std::uint8_t owner, std::uint16_t id) {
    constexpr std::uint8_t c_version = 0x51;
    Bytes record{Byte(id), Byte(id >> 8), c_version, Byte(sensor.isCompact ? 2 : 1), 0};
    AppendCommon(record, sensor, owner);
    if (sensor.isCompact) {
        record.insert(record.end(), {1, 0, 0, 0, 0, 0, 0, 0});
    } else {
        AppendFullPart(record, sensor);
    }
    AppendName(record, sensor);
    record[c_headerLength - 1] = static_cast<std::uint8_t>(record.size() - c_headerLength);
    return record;
}

}  // namespace test
