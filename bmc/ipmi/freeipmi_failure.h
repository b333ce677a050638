#pragma once

#include "bmc/ipmi/settings.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// What the error number of a libfreeipmi context, IPMI_ERR_*, and the errno that the library left mean to who operates
/// the system, for a session opened with @p settings.
TransportError ToTransportError(int errorNumber, int systemError, const ControllerSettings& settings);

}  // namespace bmc::ipmi
