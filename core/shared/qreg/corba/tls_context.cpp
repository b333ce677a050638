#include "qreg/corba/tls_context.h"

#include <mutex>
#include <utility>

// In this order: the last one does not include what it needs.
#include <omniORB4/CORBA.h>
#include <omniORB4/sslContext.h>

#include "qreg/tls/openssl.h"
#include "qstd/exception.h"

namespace qreg::corba {

namespace {

/// What connections are made with in place of the ORB's own context. That one is not changed once threads make
/// connections with it: OpenSSL does not allow for that.
class NewestContext {
public:
    static NewestContext& Instance() {
        static NewestContext instance;
        return instance;
    }

    /// @param context null: the ORB's own is the newest one
    void Set(tls::ContextPtr context) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_context.swap(context);
    }

    bool GiveTo(SSL* connection) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return m_context == nullptr || SSL_set_SSL_CTX(connection, m_context.get()) != nullptr;
    }

private:
    std::mutex m_mutex;  ///< guards m_context
    tls::ContextPtr m_context;
};

/// Called by OpenSSL when a client has said hello, before anything is taken of the context.
int OnClientHello(SSL* connection, int* /*alert*/, void* /*unused*/) {
    return NewestContext::Instance().GiveTo(connection) ? SSL_CLIENT_HELLO_SUCCESS : SSL_CLIENT_HELLO_ERROR;
}

/// Takes the place of the ORB's own way from files to a context, which has a password where there is none and knows
/// neither revocation lists nor the least version. The ORB owns it.
class Context final : public sslContext {
public:
    Context(std::shared_ptr<const tls::Identity> identity, std::function<void(ssl_ctx_st*)> more)
        : m_identity(std::move(identity)), m_more(std::move(more)) {}

private:
    void set_supported_versions() override {
        m_identity->Apply(get_SSL_CTX());
        SSL_CTX_set_client_hello_cb(get_SSL_CTX(), OnClientHello, nullptr);
        if (m_more) {
            m_more(get_SSL_CTX());
        }
    }
    void set_certificate() override {}
    void set_privatekey() override {}
    void set_CA() override {}
    void set_DH() override {}
    void seed_PRNG() override {}
    int set_verify_mode() override { return SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT; }

    const std::shared_ptr<const tls::Identity> m_identity;
    const std::function<void(ssl_ctx_st*)> m_more;
};

}  // namespace

void UseIdentity(std::shared_ptr<const tls::Identity> identity, std::function<void(ssl_ctx_st*)> more) {
    if (sslContext::singleton != nullptr) {
        throw qstd::Exception("This process speaks TLS already, with an identity of its own");
    }
    NewestContext::Instance().Set(nullptr);
    sslContext::full_peerdetails = false;
    sslContext::singleton = new Context(std::move(identity), std::move(more));
}

void RenewIdentity(const tls::Identity& identity) {
    tls::ContextPtr context(SSL_CTX_new(TLS_server_method()));
    if (context == nullptr) {
        throw qstd::Exception("TLS cannot be had: " + tls::TakeReason());
    }
    identity.Apply(context.get());
    // A connection asks its context for this one at each step. What else the ORB has set it has taken over already.
    SSL_CTX_set_info_callback(context.get(), sslContext::info_callback);
    NewestContext::Instance().Set(std::move(context));
}

}  // namespace qreg::corba
