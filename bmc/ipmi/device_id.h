#pragma once

#include <cstdint>
#include <vector>

#include "bmc/ipmi/message.h"

namespace bmc::ipmi {

/// What is used of what a controller says of itself (Get Device ID, IPMI v2.0 specification 20.1).
struct DeviceId {
    bool providesDeviceRecords = false;
    bool isUpdating = false;  ///< firmware or sensor records are being written, or it initialises itself
    std::uint8_t firmwareMajor = 0;
    std::uint8_t firmwareMinor = 0;  ///< decoded from BCD; as it stands when it is none
    std::uint8_t ipmiVersion = 0;    ///< as it stands: 0x02 is 2.0

    static Request MakeRequest() { return {NetFn_e::app, 0x01}; }

    /// @param what who asked for what, as ExpectData takes it. @throws qstd::Exception as ExpectData
    static DeviceId Decode(const Response& response, const std::string& what);
};

}  // namespace bmc::ipmi
