#pragma once

namespace omni {
class giopConnection;
}

namespace qreg::corba {

/// The descriptor of a connection's socket, -1 for one that is no TCP connection.
int DescriptorOf(omni::giopConnection& connection) noexcept;

}  // namespace qreg::corba
