#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/regctl/output.h"
#include "tools/regctl/registry.h"

namespace regctl {

/// What to watch, and for how long.
struct WatchRequest {
    std::vector<std::string> patterns;  ///< none: everything
    std::optional<std::size_t> count;   ///< notifications
    std::optional<std::chrono::milliseconds> timeout;
};

/// A notification's line, without its newline.
std::string EventLine(const qreg::Event& event, const Output& output);

/// Prints notifications as they come, each line flushed at once, until there were enough, the time is over or
/// @p isInterrupted says so. How many were lost is said on standard error. The server ends the subscription afterwards.
/// @param onSubscribed gets the subscription's id; a poll that fails after @p isInterrupted became true is no failure
/// @return the exit status
/// @throws RegistryError no_such_node for a path without "*" that leads nowhere; what the registry throws.
int Watch(const WatchRequest& request, Registry& registry, const Output& output,
          const std::function<bool()>& isInterrupted, const std::function<void(const std::string& id)>& onSubscribed);

}  // namespace regctl
