#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qnode/value.h"
#include "qreg/access.h"
#include "qreg/error.h"
#include "qreg/subscriptions.h"
#include "qreg/tls/identity.h"
#include "qstd/exception.h"

namespace qreg::corba {

/// The server cannot be reached, or the connection broke.
class NoServer : public qstd::Exception {
public:
    using qstd::Exception::Exception;
};

/// What a server says of itself.
struct ServerInfo {
    int major = 0;  ///< of the protocol
    int minor = 0;
    std::string product;  ///< name and version of the program
    std::string bootId;   ///< another one after every start of the server
};

/// One node of a subtree.
struct TreeItem {
    std::size_t depth = 0;  ///< 0: where the subtree begins
    std::string path;       ///< from below the root
    NodeInfo info;
    Outcome outcome;  ///< its value; code not_readable for a node without one
};

/// How a client speaks TLS.
struct ClientTls {
    std::shared_ptr<const tls::Identity> identity;  ///< never null
    std::string serverName;  ///< a host's name or an address that the server's certificate must be for; empty: the host

    friend bool operator==(const ClientTls&, const ClientTls&) = default;
};

/// A client of a registry server. One thread at a time; another one may hold a client of its own to the same server.
/// Every operation throws NoServer when the server does not answer, RegistryError when it refuses. A connection that
/// the server closed for idleness is made anew without a word. Not for a process that also serves a registry: the last
/// client that ends takes the process's ORB with it. All clients that a process has at a time speak TLS in the same way
/// to one server, or none does.
class Client {
public:
    /// Does not connect yet.
    /// @param host name or address, IPv6 without brackets
    /// @param timeout of one request, beyond the time that a poll waits
    /// @param tls none: in clear
    /// @throws qstd::Exception when host or port cannot be one, or when this process has clients that speak otherwise.
    Client(const std::string& host, int port, std::chrono::milliseconds timeout,
           const std::optional<ClientTls>& tls = std::nullopt);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    ~Client();

    ServerInfo Hello();
    NodeInfo Describe(const std::string& path);
    std::vector<NodeInfo> Children(const std::string& path);
    qnode::Value Get(const std::string& path);
    /// One outcome a path, in their order.
    std::vector<Outcome> GetMany(const std::vector<std::string>& paths);
    /// The whole subtree, page by page. @param visit called for each node in order
    void Subtree(const std::string& path, std::size_t depth, const std::function<void(const TreeItem&)>& visit);
    void Set(const std::string& path, const qnode::Value& value);
    std::vector<Outcome> SetMany(const std::vector<std::pair<std::string, qnode::Value>>& assignments);
    Lease Subscribe(const Filter& filter);
    Batch Poll(const std::string& id, std::uint64_t received, std::size_t max, std::chrono::milliseconds wait);
    std::chrono::seconds Renew(const std::string& id);
    void Unsubscribe(const std::string& id);

    /// Values of a prepared list.
    struct Readings {
        std::vector<double> values;  ///< NaN where the state is not ok
        std::vector<ErrorCode_e> states;
    };
    /// Prepares a list of nodes with numbers. @return the view's id. Against a server that knows no views the client
    /// reads value by value and nobody sees the difference but in speed.
    std::string OpenView(const std::vector<std::string>& paths);
    Readings ReadView(const std::string& id);
    void CloseView(const std::string& id);

private:
    class Impl;
    const std::unique_ptr<Impl> m_impl;
};

}  // namespace qreg::corba
