#pragma once

#include <memory>

#include "qreg/server.h"

namespace qreg::corba {

/// A registry server that speaks GIOP: the object with the key `Registry` of the registry's IDL. One at a time in a
/// process. @throws qstd::Exception naming address and port when it cannot listen.
std::unique_ptr<Server> CreateServer(const ServerSettings& settings, const std::shared_ptr<qnode::TreeNode>& root);

}  // namespace qreg::corba
