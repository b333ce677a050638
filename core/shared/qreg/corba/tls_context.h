#pragma once

#include <functional>
#include <memory>

#include "qreg/tls/identity.h"

namespace qreg::corba {

/// Has the ORB that is made next speak TLS with @p identity, until it ends. Not thread-safe.
/// @param more called with the OpenSSL context when the ORB has made it
/// @throws qstd::Exception when the ORB of this process has an identity already.
void UseIdentity(std::shared_ptr<const tls::Identity> identity, std::function<void(ssl_ctx_st*)> more = nullptr);

}  // namespace qreg::corba
