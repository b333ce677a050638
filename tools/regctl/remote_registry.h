#pragma once

#include <optional>

#include "tools/regctl/command_line.h"
#include "tools/regctl/registry.h"

namespace regctl {

/// The registry of a server.
class RemoteRegistry final : public Registry {
public:
    /// Does not connect yet. @throws qstd::Exception when the server's host or port cannot be one, or a file of TLS is
    /// not what it should be.
    explicit RemoteRegistry(const ServerName& server);

    qreg::NodeInfo Describe(const std::string& path) override;
    std::vector<qreg::NodeInfo> Children(const std::string& path) override;
    std::vector<qreg::Outcome> GetMany(const std::vector<std::string>& paths) override;
    void Subtree(const std::string& path, const std::function<void(const qreg::corba::TreeItem&)>& visit) override;
    void Set(const std::string& path, const qnode::Value& value) override;
    qreg::Lease Subscribe(const qreg::Filter& filter) override;
    qreg::Batch Poll(const std::string& id, std::uint64_t received, std::size_t max,
                     std::chrono::milliseconds wait) override;
    void Unsubscribe(const std::string& id) override;
    bool EndPolls(const std::string& id) override;

private:
    const ServerName m_server;
    const std::optional<qreg::corba::ClientTls> m_tls;
    qreg::corba::Client m_client;
};

}  // namespace regctl
