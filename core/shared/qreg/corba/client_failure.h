#pragma once

#include <omniORB4/CORBA.h>

#include <chrono>
#include <optional>
#include <string>

#include "qreg/corba/client.h"

namespace qreg::corba {

/// Where a server is.
struct ServerAddress {
    std::string host;  ///< a name or an address, IPv6 without brackets
    int port = 0;
    std::optional<ClientTls> tls{};

    /// The name that the server's certificate must be for. @pre there is TLS.
    const std::string& CertificateName() const { return tls->serverName.empty() ? host : tls->serverName; }

    /// "host:port", an IPv6 address in brackets.
    std::string ToString() const;

    /// The registry's URL. @throws qstd::Exception when host or port cannot be one.
    std::string ToUrl() const;
};

/// Says in words why a request to @p server failed with @p failure. May try to connect, to learn why that fails.
/// @param limit how long the request was allowed to take
std::string FailureText(const ServerAddress& server, std::chrono::milliseconds limit,
                        const CORBA::SystemException& failure);

}  // namespace qreg::corba
