#include "bmc/ipmi/make_transport.h"

#include "bmc/ipmi/device_transport.h"
#include "bmc/ipmi/freeipmi_transport.h"
#include "bmc/ipmi/password.h"

namespace bmc::ipmi {

std::unique_ptr<Transport> MakeTransport(const ControllerSettings& settings) {
    if (settings.host.empty()) {
        return std::make_unique<DeviceTransport>(settings);
    }
    return std::make_unique<FreeIpmiTransport>(settings, [source = settings.password](const auto& use) {
        const Secret password = ReadPassword(source);
        use(password.Reveal());
    });
}

}  // namespace bmc::ipmi
