#include "qreg/corba/connection_descriptor.h"

#include <omniORB4/CORBA.h>
#include <omniORB4/giopEndpoint.h>
#include <omniORB4/tcpConnection.h>

namespace qreg::corba {

int DescriptorOf(omni::giopConnection& connection) noexcept {
    const auto* const tcp = dynamic_cast<omni::tcpConnection*>(&connection);
    return tcp != nullptr ? tcp->handle() : -1;
}

}  // namespace qreg::corba
