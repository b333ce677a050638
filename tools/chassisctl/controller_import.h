#pragma once

#include "tools/chassisctl/board_writer.h"
#include "tools/chassisctl/command_line.h"
#include "tools/chassisctl/commands.h"

namespace chassisctl {

/// Whether the command line of `import` names a controller and not a file.
bool NamesController(const CommandLine& line);

/// The command `import` with a controller: asks it and prints each of its boards as a board of a chassis description,
/// all of them or none. What could not be had of a board that answers is named on `err`; a summary of each follows.
/// @param options of the first board; an empty name is that of the controller
/// @return c_exitDone; c_exitNoAnswer when a board does not answer; c_exitRefused when no board has a sensor
/// @throws qstd::Exception when an option is wrong, or what the controller gives cannot be used
int ImportController(const CommandLine& line, const BoardOptions& options, Streams streams);

}  // namespace chassisctl
