#pragma once

#include <memory>
#include <string>

#include "bmc/backend.h"
#include "bmc/ipmi/settings.h"
#include "qcfg/element.h"

// Boards over IPMI as a program offers them. The backend itself is a shared object that is loaded when the
// configuration asks for it: the library under it has a licence of its own and need not be installed.

namespace bmc::ipmi {

/// The backend that the configuration's section <boards backend="ipmi"> asks for. Its threads begin to open sessions.
/// @throws qstd::Exception "FILE:LINE: text"; nothing was started then.
std::unique_ptr<Backend> Create(const qcfg::Element& section, const std::string& configFile);

/// As Create, for an action beside the service: controllers have several sessions. A password that cannot be read is
/// the trouble of its own board: the others are to be made safe all the same.
std::unique_ptr<Backend> CreateToAct(const qcfg::Element& section, const std::string& configFile);

/// As Create, for a process that only looks: the boards' sensor records that are kept on disk are read, never written.
std::unique_ptr<Backend> CreateToLook(const qcfg::Element& section, const std::string& configFile);

/// Proves the section as Create would, its passwords and that the shared object fits included, and asks no controller.
/// @throws qstd::Exception as Create
void Check(const qcfg::Element& section, const std::string& configFile);

/// Where the shared object of the running program is: ../lib/zelkor/zelkor-bmc-ipmi.so beside its folder, in the build
/// and where it is installed alike. @throws qstd::Exception when the program does not know where it is
std::string PluginPath();

/// Loads the shared object at @p path, which stays loaded until the end of the process, and makes the backend. What the
/// backend has to log goes to the log of the program. Any thread may call it.
/// @throws qstd::Exception naming the path and what is wrong with it, or what the backend raises
std::unique_ptr<Backend> LoadBackend(const Settings& settings, const std::string& path);

/// Loads the shared object as LoadBackend does, to prove that it fits. @throws qstd::Exception as LoadBackend
void ProvePlugin(const std::string& path);

}  // namespace bmc::ipmi
