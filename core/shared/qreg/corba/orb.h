#pragma once

#include <memory>
#include <string>
#include <vector>

#include <omniORB4/CORBA.h>

#include "qreg/corba/descriptor_limit.h"
#include "qreg/corba/endpoint.h"
#include "qreg/limited_log.h"
#include "qreg/server.h"

namespace qreg::corba {

/// The ORB of a server and the ports it listens on, with every setting fixed in code: neither the command line nor the
/// environment nor a configuration file of the ORB has a say. Not thread-safe.
class Orb {
public:
    /// Listens; what comes has to wait until Serve. Clears the variables of the ORB from the environment.
    /// @throws qstd::Exception naming address and port when it cannot listen.
    explicit Orb(const ServerSettings& settings);
    Orb(const Orb&) = delete;
    Orb& operator=(const Orb&) = delete;
    ~Orb() { Stop(); }

    int GetPort() const noexcept { return m_ports.front(); }
    /// 0 when there is no TLS.
    int GetTlsPort() const noexcept { return m_tlsPort; }
    CORBA::ORB_ptr Get() const noexcept { return m_orb.in(); }

    /// Gives the requests for the registry to @p servant from now on. @param connections the most of them
    void Serve(PortableServer::Servant servant, std::size_t connections);

    /// Ends all connections and threads; waits for requests under way. No reference may be used afterwards.
    void Stop() noexcept;

private:
    void Initialise(const ServerSettings& settings, const std::vector<Endpoint>& endpoints);
    void Listen();

    DescriptorLimit m_descriptors;
    LimitedLog m_log;
    CORBA::ORB_var m_orb;
    PortableServer::POA_var m_adapter;
    std::vector<int> m_ports;  ///< those there are, that in clear first
    int m_tlsPort = 0;
};

}  // namespace qreg::corba
