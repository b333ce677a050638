#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tools/regctl/command_line.h"
#include "tools/regctl/output.h"
#include "tools/regctl/registry.h"

namespace regctl {

/// Makes the registry of a server; does not connect yet. @throws qstd::Exception when the name cannot be a server's.
using Connector = std::function<std::unique_ptr<Registry>(const ServerName& server)>;

/// Carries out one command line. What went wrong is said on `err`: the text of a node or a server letter by letter in
/// a line of its own, anything else behind the program's name.
/// @param arguments without the program's name
/// @param output `isJson` is taken from the arguments
/// @return the exit status
/// @throws OutputFailure when standard output cannot be written.
int Run(const std::vector<std::string>& arguments, Output output, const Connector& connect);

}  // namespace regctl
