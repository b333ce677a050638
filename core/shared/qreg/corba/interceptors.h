#pragma once

#include <chrono>
#include <string>

#include "qreg/corba/descriptor_limit.h"
#include "qreg/limited_log.h"
#include "qreg/peer.h"

namespace qreg::corba {

/// The one object that this server has: the key that its references end with.
constexpr const char* c_objectKey = "Registry";

/// How long a message may take to come in once it has begun, and how long nothing of a reply may be taken.
constexpr std::chrono::duration<unsigned int, std::milli> c_callTimeOut{10000};

/// Puts the checks in place that stand before every request: a connection beyond the limit is closed at once, and a
/// request for any other object than the registry is refused before the ORB looks for it (a key that begins with a
/// zero byte makes omniORB 4.2.5 and 4.3.3 dispatch the same request for ever). To be called between ORB_init and the
/// first endpoint; both arguments outlive the ORB.
void InstallInterceptors(const DescriptorLimit& limit, LimitedLog& log);

/// Where the request under way in this thread comes from: its address without the port ("10.0.0.7", "fe80::1"), and
/// over TLS the subject of its certificate. Only to be called while a request is being answered.
Peer CurrentPeer();

/// The address in "giop:tcp:[::ffff:10.0.0.7]:40112"; an IPv4 address mapped into IPv6 is given as IPv4.
std::string AddressIn(const std::string& endpoint);

}  // namespace qreg::corba
