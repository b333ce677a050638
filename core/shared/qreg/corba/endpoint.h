#pragma once

#include <string>

namespace qreg::corba {

/// What a server speaks below its protocol.
enum class Transport_e {
    tcp,  ///< in clear
    tls,
};

/// Where a server listens.
class Endpoint {
public:
    /// @param address IPv4 or IPv6 address; empty: all of the host, of both kinds where the host has them
    /// @param port 0: any free one
    /// @param transport what is spoken there
    /// @throws qstd::Exception naming both when @p address is none, or when the system does not let this process listen
    ///         there at present.
    Endpoint(const std::string& address, int port, Transport_e transport);

    /// As the ORB takes it: "giop:tcp:127.0.0.1:5678", "giop:ssl:..." for TLS.
    const std::string& GetText() const noexcept { return m_text; }

    /// What it begins with, by the transport: "giop:tcp:".
    static const char* PrefixOf(Transport_e transport) noexcept;

    /// What an exception says that ends the attempt to listen here.
    std::string Refusal(const std::string& reason) const;

private:
    /// @throws qstd::Exception with the system's reason when nobody can listen there now.
    void Probe(const void* address, unsigned size, int family) const;

    std::string m_name;  ///< address and port for people
    std::string m_text;
};

}  // namespace qreg::corba
