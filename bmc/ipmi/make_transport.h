#pragma once

#include <memory>

#include "bmc/ipmi/freeipmi_transport.h"
#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// The way to a controller that its settings name: over the LAN, or by a device, which asks for no password. Opens
/// nothing yet. @throws qstd::Exception when the host has no descriptor left
std::unique_ptr<Transport> MakeTransport(const ControllerSettings& settings,
                                         FreeIpmiTransport::WithPassword withPassword);

}  // namespace bmc::ipmi
