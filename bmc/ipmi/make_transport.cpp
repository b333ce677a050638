#include "bmc/ipmi/make_transport.h"

#include <utility>

#include "bmc/ipmi/device_transport.h"

namespace bmc::ipmi {

std::unique_ptr<Transport> MakeTransport(const ControllerSettings& settings,
                                         FreeIpmiTransport::WithPassword withPassword) {
    if (settings.host.empty()) {
        return std::make_unique<DeviceTransport>(settings);
    }
    return std::make_unique<FreeIpmiTransport>(settings, std::move(withPassword));
}

}  // namespace bmc::ipmi
