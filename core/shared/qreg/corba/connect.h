#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "qstd/descriptor.h"

namespace qreg::corba {

/// What came of an attempt to connect, which tells more than the ORB does of its own.
struct Connection {
    std::unique_ptr<const qstd::Descriptor> socket;  ///< blocking; null when there is none
    std::string reason;                              ///< why not; empty when there is one
};

/// Connects to the first address of @p host. @param limit how long that may take beside looking up the name
Connection Connect(const std::string& host, int port, std::chrono::milliseconds limit);

}  // namespace qreg::corba
