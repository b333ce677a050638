#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <registry.hh>

namespace qreg::corba {

/// What is taken from the reference of a listener: where its object is at its host.
struct ListenerAddress {
    unsigned minor = 0;      ///< version of GIOP: 1.minor
    std::uint16_t port = 0;  ///< 0: the reference leads to nothing on the network
    std::vector<CORBA::Octet> key;
};

/// Takes an object reference off the wire. No more than a few KiB of it are believed.
/// @throws CORBA::MARSHAL when it is broken or has too much in it.
ListenerAddress ReadListenerAddress(cdrStream& stream);

/// The listener that a client handed in, at the address that the client's request came from: only port and key are
/// taken from its reference. So nobody makes this process connect to others, or resolve a name, and a listener behind
/// a translated address is found.
/// @throws RegistryError failed when the reference leads to nothing that could be called.
::reg::Listener_ptr ListenerAt(CORBA::ORB_ptr orb, const ListenerAddress& given, const std::string& address);

}  // namespace qreg::corba
