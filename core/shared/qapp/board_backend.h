#pragma once

#include <functional>
#include <memory>
#include <string>

#include "bmc/backend.h"
#include "qcfg/element.h"
#include "qcfg/schema.h"

namespace qapp {

/// A way to reach boards that the configuration may ask for by name.
struct BoardBackend {
    /// What the "boards" section holds for it. The rule's name is what `boards/@backend` says.
    qcfg::VariantRule rule;

    /// Makes the backend from the "boards" section of the named configuration file.
    /// @throws qstd::Exception with a text that says where and what.
    std::function<std::unique_ptr<bmc::Backend>(const qcfg::Element& section, const std::string& configFile)> create;

    /// Proves the section as `create` would, without touching a board. @throws qstd::Exception as `create`.
    std::function<void(const qcfg::Element& section, const std::string& configFile)> check;

    /// As `create`, for a process that runs beside the service for one action (ZelkorApplication::AddAction): takes
    /// nothing that a running service holds. Without it the action's boards come from `create`.
    std::function<std::unique_ptr<bmc::Backend>(const qcfg::Element& section, const std::string& configFile)>
        createForAction{};

    /// As `createForAction`, for a process that only reads: what it makes leaves nothing behind. Without it the boards
    /// come from `createForAction`.
    std::function<std::unique_ptr<bmc::Backend>(const qcfg::Element& section, const std::string& configFile)>
        createForCheck{};
};

}  // namespace qapp
