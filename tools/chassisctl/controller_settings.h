#pragma once

#include "bmc/ipmi/settings.h"
#include "tools/chassisctl/board_writer.h"
#include "tools/chassisctl/command_line.h"

namespace chassisctl {

/// The controller that the command line of `import` names and the boards behind it, in the order of --ipmb; proved as a
/// configuration's are, the file with the password included. Sensor records are not kept.
/// @param first uri and type of the first board; each further one has an id one higher. A name that is empty is that of
///        the controller.
/// @throws qstd::Exception that names the option which is wrong
bmc::ipmi::Settings ReadControllerSettings(const CommandLine& line, const BoardOptions& first);

}  // namespace chassisctl
