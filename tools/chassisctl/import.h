#pragma once

#include "tools/chassisctl/command_line.h"
#include "tools/chassisctl/commands.h"

namespace chassisctl {

/// The command `import`: reads a sensor table and prints a board of a chassis description. Each row that is left out is
/// named on `err` as FILE:LINE: left out: REASON: NAME; a summary follows.
/// @return c_exitDone, or c_exitRefused when the table has no sensor
/// @throws qstd::Exception when an option is wrong or the file cannot be read.
int RunImport(const CommandLine& line, Streams streams);

}  // namespace chassisctl
