#pragma once

#include <functional>
#include <memory>

#include "qreg/tls/identity.h"

namespace qreg::corba {

/// Has the ORB that is made next speak TLS with @p identity, until it ends. Not thread-safe.
/// @param more called with the OpenSSL context when the ORB has made it
/// @throws qstd::Exception when the ORB of this process has an identity already.
void UseIdentity(std::shared_ptr<const tls::Identity> identity, std::function<void(ssl_ctx_st*)> more = nullptr);

/// Has the ORB's connections that are made from now on speak with @p identity in place of the one of UseIdentity; those
/// that exist stay as they are. Any thread.
/// @pre the ORB was made after UseIdentity, as a server.
/// @throws qstd::Exception when OpenSSL refuses; then nothing has changed.
void RenewIdentity(const tls::Identity& identity);

}  // namespace qreg::corba
