#pragma once

#include <string>

#include <registry.hh>

namespace qreg::corba {

/// The listener that a client handed in, at the address that the client's request came from: only port and key are
/// taken from the reference. So nobody makes this process connect to others, or resolve a name, and a listener behind
/// a translated address is found.
/// @throws RegistryError failed when the reference leads to nothing that could be called.
::reg::Listener_ptr ListenerAt(CORBA::ORB_ptr orb, ::reg::Listener_ptr given, const std::string& address);

}  // namespace qreg::corba
