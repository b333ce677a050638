#pragma once

#include "tools/chassisctl/command_line.h"
#include "tools/chassisctl/commands.h"

namespace chassisctl {

/// The command `import`: reads a sensor table and prints a board of a chassis description. Each row that is left out is
/// named on `err` as FILE:LINE: left out: REASON: NAME; a summary follows. With the options of a controller see
/// ImportController.
/// @return c_exitDone, or c_exitNoAnswer when a controller does not answer
/// @throws qstd::Exception when an option is wrong, the file cannot be read or there is no sensor in it.
int RunImport(const CommandLine& line, Streams streams);

}  // namespace chassisctl
