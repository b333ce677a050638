#pragma once

#include <memory>

#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// The transport by which @p settings reach their controller. The password is read at each opening of a session.
std::unique_ptr<Transport> MakeTransport(const ControllerSettings& settings);

}  // namespace bmc::ipmi
