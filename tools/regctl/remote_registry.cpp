#include "tools/regctl/remote_registry.h"

#include <limits>
#include <memory>

#include "qreg/tls/identity.h"

namespace regctl {

namespace {

/// Boards may be slow to answer, and a page of a tree holds many values.
constexpr std::chrono::seconds c_timeout{30};
/// Somebody waits at the keyboard.
constexpr std::chrono::seconds c_endTimeout{1};

std::optional<qreg::corba::ClientTls> ReadTls(const ServerName& server) {
    if (!server.tls) {
        return std::nullopt;
    }
    using qreg::tls::Identity;
    const TlsFiles& files = *server.tls;
    return qreg::corba::ClientTls{
        std::make_shared<const Identity>(
            qreg::tls::Side_e::client,
            qreg::tls::IdentityFiles{.certificate = files.certificate, .key = files.key, .ca = files.ca}),
        files.serverName};
}

}  // namespace

RemoteRegistry::RemoteRegistry(const ServerName& server)
    : m_server(server), m_tls(ReadTls(server)), m_client(server.host, server.port, c_timeout, m_tls) {}

qreg::NodeInfo RemoteRegistry::Describe(const std::string& path) {
    return m_client.Describe(path);
}

std::vector<qreg::NodeInfo> RemoteRegistry::Children(const std::string& path) {
    return m_client.Children(path);
}

std::vector<qreg::Outcome> RemoteRegistry::GetMany(const std::vector<std::string>& paths) {
    return m_client.GetMany(paths);
}

void RemoteRegistry::Subtree(const std::string& path, const std::function<void(const qreg::corba::TreeItem&)>& visit) {
    m_client.Subtree(path, std::numeric_limits<std::size_t>::max(), visit);
}

void RemoteRegistry::Set(const std::string& path, const qnode::Value& value) {
    m_client.Set(path, value);
}

qreg::Lease RemoteRegistry::Subscribe(const qreg::Filter& filter) {
    return m_client.Subscribe(filter);
}

qreg::Batch RemoteRegistry::Poll(const std::string& id, std::uint64_t received, std::size_t max,
                                 std::chrono::milliseconds wait) {
    return m_client.Poll(id, received, max, wait);
}

void RemoteRegistry::Unsubscribe(const std::string& id) {
    m_client.Unsubscribe(id);
}

bool RemoteRegistry::EndPolls(const std::string& id) {
    try {
        qreg::corba::Client(m_server.host, m_server.port, c_endTimeout, m_tls).Unsubscribe(id);
        return true;
    } catch (const qreg::RegistryError&) {
        return true;  // the subscription is gone already
    } catch (const qstd::Exception&) {
        return false;
    }
}

}  // namespace regctl
