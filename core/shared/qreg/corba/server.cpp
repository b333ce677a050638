#include "qreg/corba/server.h"

#include <chrono>
#include <string>

#include "qreg/access.h"
#include "qreg/corba/orb.h"
#include "qreg/corba/registry_servant.h"
#include "qreg/corba/tls_context.h"
#include "qreg/guarded_access.h"
#include "qreg/subscriptions.h"
#include "qstd/log.h"

namespace qreg::corba {

namespace {

constexpr std::chrono::milliseconds c_writesMayTake{1000};

/// The parts of a registry server, in the order in which they need each other.
class CorbaServer final : public Server {
public:
    CorbaServer(const ServerSettings& settings, const std::shared_ptr<qnode::TreeNode>& root)
        : m_connections(settings.connections),
          m_orb(settings),
          m_access(root),
          m_guard(m_access, settings.mayRead, settings.mayWrite),
          m_subscriptions(m_access, settings.subscriptions),
          m_servant(new RegistryServant(settings, m_access, m_guard, m_subscriptions, m_orb.Get())) {}

    ~CorbaServer() override { StopAll(); }

    int GetPort() const override { return m_orb.GetPort(); }

    int GetTlsPort() const override { return m_orb.GetTlsPort(); }

    void Serve() override { m_orb.Serve(m_servant.in(), m_connections); }

    void RenewTls(const tls::Identity& identity) override { RenewIdentity(identity); }

    void Refuse() override { RefuseAll(); }

    void Stop() override { StopAll(); }

private:
    void RefuseAll() {
        m_subscriptions.Stop();
        const std::size_t running = m_servant->Refuse(c_writesMayTake);
        if (running != 0) {
            qstd::LogWarning("The registry server stops while " + std::to_string(running) +
                             " writes of clients are still under way");
        }
    }

    void StopAll() {
        if (!m_isStopped) {
            m_isStopped = true;
            RefuseAll();
            m_servant->StopPush();
            m_orb.Stop();
        }
    }

    const std::size_t m_connections;
    Orb m_orb;
    const Access m_access;
    const GuardedAccess m_guard;
    Subscriptions m_subscriptions;
    const PortableServer::Servant_var<RegistryServant> m_servant;
    bool m_isStopped = false;
};

}  // namespace

std::unique_ptr<Server> CreateServer(const ServerSettings& settings, const std::shared_ptr<qnode::TreeNode>& root) {
    return std::make_unique<CorbaServer>(settings, root);
}

}  // namespace qreg::corba
