#include "bmc/ipmi/device_id.h"

namespace bmc::ipmi {

namespace {

constexpr std::uint8_t FromBcd(std::uint8_t byte) {
    const auto tens = static_cast<std::uint8_t>(byte >> 4);
    const auto ones = static_cast<std::uint8_t>(byte & 0x0f);
    return tens > 9 || ones > 9 ? byte : static_cast<std::uint8_t>(tens * 10 + ones);
}

}  // namespace

DeviceId DeviceId::Decode(const Response& response, const std::string& what) {
    constexpr std::size_t c_size = 11;
    const auto& data = ExpectData(response, c_size, what);
    DeviceId id;
    id.deviceId = data[0];
    id.deviceRevision = data[1] & 0x0f;
    id.providesDeviceRecords = (data[1] & 0x80) != 0;
    id.isUpdating = (data[2] & 0x80) != 0;
    id.firmwareMajor = data[2] & 0x7f;
    id.firmwareMinor = FromBcd(data[3]);
    id.ipmiVersion = data[4];
    id.hasRepository = (data[5] & 0x02) != 0;
    id.manufacturer = static_cast<std::uint32_t>(data[6] | data[7] << 8 | (data[8] & 0x0f) << 16);
    id.product = static_cast<std::uint16_t>(data[9] | data[10] << 8);
    return id;
}

}  // namespace bmc::ipmi
