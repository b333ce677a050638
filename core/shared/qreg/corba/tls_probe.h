#pragma once

#include <string>

#include "qreg/tls/identity.h"

namespace qreg::corba {

/// Has connections of @p context refuse every server whose certificate is not for @p name, a host's name or an address.
/// @throws qstd::Exception when @p name cannot be one.
void DemandName(ssl_ctx_st* context, const std::string& name);

/// @throws qstd::Exception when DemandName would for @p name.
void ProveName(const std::string& name);

/// Finds out why a server and a client do not come together over TLS, which the ORB does not tell, by one handshake of
/// its own. Takes at most some seconds.
/// @param name that the server's certificate must be for
/// @return what is wrong with either's certificate or with what the server speaks; empty when nothing is.
std::string ProbeTls(const std::string& host, int port, const tls::Identity& identity, const std::string& name);

}  // namespace qreg::corba
