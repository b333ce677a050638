#pragma once

#include <omniORB4/CORBA.h>

#include "qreg/corba/client_failure.h"

namespace qreg::corba {

/// A hold on the process's ORB, set up for clients: the first hold makes it, the last one ends it. Neither the
/// environment nor a configuration file of the host has a say. Any thread; the first hold of a process takes the
/// environment variables away that only the ORB reads (ORB...), so it is made before threads that change the
/// environment.
class ClientOrb {
public:
    /// @param server whose way of speaking TLS the ORB gets
    /// @throws CORBA::SystemException when there can be none, qstd::Exception when it was made for another way.
    explicit ClientOrb(const ServerAddress& server);
    ClientOrb(const ClientOrb&) = delete;
    ClientOrb& operator=(const ClientOrb&) = delete;
    ~ClientOrb();

    CORBA::ORB_ptr Get() const noexcept { return m_orb.in(); }

private:
    CORBA::ORB_var m_orb;
};

}  // namespace qreg::corba
