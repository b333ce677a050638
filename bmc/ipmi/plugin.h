#pragma once

#include <cstdint>
#include <memory>

#include "bmc/backend.h"
#include "bmc/ipmi/settings.h"
#include "qstd/log.h"

// The one entry into zelkor-bmc-ipmi.so. The plug-in has copies of its own of everything it shares with its host by
// source, so nothing goes through but what stands here; host and plug-in are of the same build.

namespace bmc::ipmi {

/// What the plug-in's host does for it. Called from any thread.
struct PluginHost {
    void (*log)(qstd::LogLevel_e level, const std::string& text);
};

struct PluginApi {
    const char* build;  ///< c_buildId of build_info.h; a host takes no plug-in of another build
    /// Makes the backend, whose threads begin to open sessions. @throws qstd::Exception
    std::unique_ptr<Backend> (*create)(const Settings& settings, const PluginHost& host);
};

/// Name of the exported function, of type PluginEntry.
constexpr const char* c_pluginEntry = "ZelkorBmcIpmi";
using PluginEntry = const PluginApi* (*)();

}  // namespace bmc::ipmi
