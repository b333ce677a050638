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
    id.providesDeviceRecords = (data[1] & 0x80) != 0;
    id.isUpdating = (data[2] & 0x80) != 0;
    id.firmwareMajor = data[2] & 0x7f;
    id.firmwareMinor = FromBcd(data[3]);
    id.ipmiVersion = data[4];
    return id;
}

}  // namespace bmc::ipmi
