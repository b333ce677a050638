#include "qreg/corba/tls_context.h"

#include <utility>

// In this order: the last one does not include what it needs.
#include <omniORB4/CORBA.h>
#include <omniORB4/sslContext.h>

#include "qstd/exception.h"

namespace qreg::corba {

namespace {

/// Takes the place of the ORB's own way from files to a context, which has a password where there is none and knows
/// neither revocation lists nor the least version. The ORB owns it.
class Context final : public sslContext {
public:
    Context(std::shared_ptr<const tls::Identity> identity, std::function<void(ssl_ctx_st*)> more)
        : m_identity(std::move(identity)), m_more(std::move(more)) {}

private:
    void set_supported_versions() override {
        m_identity->Apply(get_SSL_CTX());
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
    sslContext::full_peerdetails = false;
    sslContext::singleton = new Context(std::move(identity), std::move(more));
}

}  // namespace qreg::corba
