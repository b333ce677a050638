#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "bmc/ipmi/sensor_record.h"

/// A full sensor record of a threshold-based temperature sensor, laid out as the IPMI v2.0 specification, 43.1, says.
/// Tests change what they are about.
struct FullRecord {
    std::uint16_t id = 1;
    std::uint8_t owner = 0x20;
    std::uint8_t lun = 0;
    std::uint8_t channel = 0;
    std::uint8_t number = 16;
    std::uint8_t type = 1;
    std::uint8_t eventType = 1;
    std::uint8_t readableMask = 0x3f;
    std::uint8_t units1 = 0;  ///< format in bits 7 and 6, rate 5..3, relation 2..1, percentage 0
    std::uint8_t baseUnit = 1;
    std::uint8_t modifierUnit = 0;
    std::uint8_t linearization = 0;
    int m = 1;
    int b = 0;
    int bExponent = 0;
    int rExponent = 0;
    bool isNominalSpecified = false;
    std::uint8_t nominal = 0;
    std::uint8_t nameCode = 0xc5;
    std::string name = "Inlet";

    bmc::ipmi::RawRecord Bytes() const {
        const auto low = [](int word) { return static_cast<std::uint8_t>(word & 0xff); };
        const auto top = [](int word) { return static_cast<std::uint8_t>(((word >> 8) & 3) << 6); };
        const std::uint8_t exponents = low(((rExponent & 0xf) << 4) | (bExponent & 0xf));
        bmc::ipmi::RawRecord bytes{low(id),
                                   low(id >> 8),
                                   0x51,
                                   0x01,
                                   0,
                                   owner,
                                   low(channel << 4 | lun),
                                   number,
                                   /* entity and flags */ 7,
                                   1,
                                   0x7f,
                                   0x68,
                                   type,
                                   eventType,
                                   /* events */ 0,
                                   0,
                                   0,
                                   0,
                                   readableMask,
                                   0x3f,
                                   units1,
                                   baseUnit,
                                   modifierUnit,
                                   linearization,
                                   low(m),
                                   top(m),
                                   low(b),
                                   top(b),
                                   0,
                                   exponents,
                                   low(isNominalSpecified ? 1 : 0),
                                   nominal,
                                   0,
                                   0,
                                   0xff,
                                   0,
                                   /* thresholds, which nobody may use */ 201,
                                   202,
                                   203,
                                   204,
                                   205,
                                   206,
                                   /* hysteresis, reserved, OEM */ 2,
                                   2,
                                   0,
                                   0,
                                   0,
                                   nameCode};
        bytes.insert(bytes.end(), name.begin(), name.end());
        bytes[4] = static_cast<std::uint8_t>(bytes.size() - 5);
        return bytes;
    }
};

/// A compact sensor record (43.2) of a threshold-based sensor.
struct CompactRecord {
    std::uint8_t owner = 0x20;
    std::uint8_t number = 32;
    std::uint8_t type = 4;
    std::uint8_t eventType = 1;
    std::uint8_t baseUnit = 18;
    std::uint8_t sharing = 1;  ///< count in bits 3..0, kind of modifier in 5..4
    std::uint8_t modifierOffset = 0;
    std::string name = "Fan";

    bmc::ipmi::RawRecord Bytes() const {
        bmc::ipmi::RawRecord bytes{2,
                                   0,
                                   0x51,
                                   0x02,
                                   0,
                                   owner,
                                   0,
                                   number,
                                   /* entity and flags */ 7,
                                   1,
                                   0x7f,
                                   0x68,
                                   type,
                                   eventType,
                                   /* events */ 0,
                                   0,
                                   0,
                                   0,
                                   0x3f,
                                   0x3f,
                                   /* format reserved */ 0xc0,
                                   baseUnit,
                                   0,
                                   sharing,
                                   modifierOffset,
                                   /* hysteresis, reserved, OEM */ 0,
                                   0,
                                   0,
                                   0,
                                   0,
                                   0,
                                   static_cast<std::uint8_t>(0xc0U | name.size())};
        bytes.insert(bytes.end(), name.begin(), name.end());
        bytes[4] = static_cast<std::uint8_t>(bytes.size() - 5);
        return bytes;
    }
};
