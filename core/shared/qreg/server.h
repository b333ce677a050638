#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "qnode/tree_node.h"
#include "qreg/client_list.h"
#include "qreg/subscriptions.h"

namespace qreg {

namespace tls {
class Identity;
}

/// How a registry server speaks TLS.
struct TlsSettings {
    std::shared_ptr<const tls::Identity> identity;  ///< never null
    std::optional<int> port;                        ///< beside the other one, 0: any free one; none: in its place
    std::string listen;                             ///< address of the port of its own; empty: all
};

/// How a registry server is to run.
struct ServerSettings {
    std::string product;             ///< name and version of the program, for clients that ask
    std::string listen;              ///< address; empty: all
    int port = 0;                    ///< 0: any free one
    ClientList mayRead;              ///< clients that may read, besides those that may write; empty: every client
    ClientList mayWrite;             ///< clients that may write; empty: every client that may read
    std::optional<TlsSettings> tls;  ///< none: everything is served in clear
    bool push = false;               ///< whether clients may hand in callback objects
    std::size_t connections = 1000;  ///< the most at a time; fewer when descriptors are scarce
    std::size_t maxMessage = std::size_t{2} * 1024 * 1024;  ///< bytes of one message, either way
    std::chrono::seconds idleTime{60};                      ///< a connection without a request for so long is closed
    SubscriptionLimits subscriptions;
};

/// A registry server, whatever the transport. Its constructor has bound the port; nobody is served yet. For the main
/// thread.
class Server {
public:
    Server() = default;
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    /// Stops it.
    virtual ~Server() = default;

    /// The port it is bound to.
    virtual int GetPort() const = 0;

    /// The port that is for TLS only: the same when there is no other, 0 when there is no TLS.
    virtual int GetTlsPort() const = 0;

    /// Serves requests from now on.
    virtual void Serve() = 0;

    /// Speaks TLS as @p identity, and takes peers as it says, on every connection that is made from now on. @pre it
    /// speaks TLS. @throws qstd::Exception when OpenSSL refuses; then nothing has changed.
    virtual void RenewTls(const tls::Identity& identity) = 0;

    /// Refuses every request from now on and ends all waiting polls. When it returns no client's write is under way any
    /// more, unless one did not end within a second, which is logged.
    virtual void Refuse() = 0;

    /// Ends all connections and threads. Waits for requests that are under way.
    virtual void Stop() = 0;
};

/// Makes a server for the tree under a root. @throws qstd::Exception naming address and port when it cannot listen.
using ServerFactory = std::function<std::unique_ptr<Server>(const ServerSettings& settings,
                                                            const std::shared_ptr<qnode::TreeNode>& root)>;

}  // namespace qreg
