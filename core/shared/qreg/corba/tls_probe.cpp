#include "qreg/corba/tls_probe.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <chrono>
#include <memory>

#include "qreg/corba/connect.h"
#include "qreg/peer.h"
#include "qreg/tls/openssl.h"
#include "qreg/tls/subject.h"
#include "qstd/exception.h"

namespace qreg::corba {

namespace {

constexpr std::chrono::milliseconds c_probeLimit{500};
constexpr timeval c_stepLimit{1, 0};  ///< of each read and write
constexpr std::size_t c_shown = 200;
constexpr const char* c_ended =
    "the server ended the connection in the handshake: it has as many clients as it may have, or it speaks something "
    "else";

/// Of the certificate that was found wrong in this thread's handshake.
thread_local std::string t_subject;

int OnVerify(int isGood, X509_STORE_CTX* state) {
    const X509* const certificate = X509_STORE_CTX_get_current_cert(state);
    if (isGood != 1) {
        t_subject = certificate == nullptr ? "" : " (" + ForLog(tls::SubjectOf(*certificate), c_shown) + ")";
    }
    return isGood;
}

/// What is wrong with the certificate that the server has shown.
std::string VerifyFailure(long problem, const std::string& name) {
    if (problem == X509_V_ERR_HOSTNAME_MISMATCH || problem == X509_V_ERR_IP_ADDRESS_MISMATCH) {
        return "the server's certificate is not for " + name + t_subject;
    }
    return std::string("the server's certificate is not trusted: ") + X509_verify_cert_error_string(problem) +
           t_subject;
}

/// What the error that came first says.
std::string HandshakeFailure() {
    const unsigned long code = ERR_peek_error();
    const int reason = ERR_GET_REASON(code);
    const char* const text = ERR_reason_error_string(code);
    const std::string shown = text != nullptr ? text : "error " + std::to_string(code);
    switch (reason) {
        case SSL_R_UNEXPECTED_EOF_WHILE_READING:
            return c_ended;
        case SSL_R_WRONG_VERSION_NUMBER:
        case SSL_R_UNSUPPORTED_PROTOCOL:
            return "the server speaks no TLS 1.2 or later there (" + shown + ")";
        case SSL_AD_REASON_OFFSET + SSL_AD_CERTIFICATE_REQUIRED:
            return "the server requires a certificate, and this client has none";
        case SSL_AD_REASON_OFFSET + SSL_AD_BAD_CERTIFICATE:
        case SSL_AD_REASON_OFFSET + SSL_AD_UNSUPPORTED_CERTIFICATE:
        case SSL_AD_REASON_OFFSET + SSL_AD_CERTIFICATE_REVOKED:
        case SSL_AD_REASON_OFFSET + SSL_AD_CERTIFICATE_EXPIRED:
        case SSL_AD_REASON_OFFSET + SSL_AD_CERTIFICATE_UNKNOWN:
        case SSL_AD_REASON_OFFSET + SSL_AD_UNKNOWN_CA:
            return std::string("the server refuses this client's certificate: ") +
                   SSL_alert_desc_string_long(reason - SSL_AD_REASON_OFFSET);
        default:
            return "the handshake failed (" + shown + ")";
    }
}

}  // namespace

namespace {

void Demand(X509_VERIFY_PARAM* demands, const std::string& name) {
    X509_VERIFY_PARAM_set_hostflags(demands, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const bool isTaken = X509_VERIFY_PARAM_set1_ip_asc(demands, name.c_str()) == 1 ||
                         (!name.empty() && name.find_first_of(": \t") == std::string::npos &&
                          X509_VERIFY_PARAM_set1_host(demands, name.data(), name.size()) == 1);
    ERR_clear_error();
    if (!isTaken) {
        throw qstd::Exception("a certificate cannot be for \"" + name + "\": neither a host's name nor an address");
    }
}

}  // namespace

void DemandName(ssl_ctx_st* context, const std::string& name) {
    Demand(SSL_CTX_get0_param(context), name);
}

void ProveName(const std::string& name) {
    const std::unique_ptr<X509_VERIFY_PARAM, tls::Free<X509_VERIFY_PARAM_free>> demands(X509_VERIFY_PARAM_new());
    Demand(demands.get(), name);
}

std::string ProbeTls(const std::string& host, int port, const tls::Identity& identity, const std::string& name) {
    const Connection way = Connect(host, port, c_probeLimit);
    const tls::ContextPtr context(SSL_CTX_new(TLS_client_method()));
    if (way.socket == nullptr || context == nullptr) {
        return {};
    }
    ::setsockopt(way.socket->Get(), SOL_SOCKET, SO_RCVTIMEO, &c_stepLimit, sizeof c_stepLimit);
    ::setsockopt(way.socket->Get(), SOL_SOCKET, SO_SNDTIMEO, &c_stepLimit, sizeof c_stepLimit);
    identity.Apply(context.get());
    DemandName(context.get(), name);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, OnVerify);
    const std::unique_ptr<SSL, tls::Free<SSL_free>> connection(SSL_new(context.get()));
    if (connection == nullptr || SSL_set_fd(connection.get(), way.socket->Get()) != 1) {
        return {};
    }
    ERR_clear_error();
    int result = SSL_connect(connection.get());
    if (result == 1) {
        // With TLS 1.3 a server says only now what it thinks of the client's certificate.
        char byte = 0;
        result = SSL_read(connection.get(), &byte, 1);
    }
    std::string failure;
    const int error = result <= 0 ? SSL_get_error(connection.get(), result) : SSL_ERROR_NONE;
    if (error == SSL_ERROR_SSL) {
        const long problem = SSL_get_verify_result(connection.get());
        failure = problem != X509_V_OK ? VerifyFailure(problem, name) : HandshakeFailure();
    } else if (!SSL_is_init_finished(connection.get()) &&
               (error == SSL_ERROR_ZERO_RETURN || error == SSL_ERROR_SYSCALL)) {
        failure = c_ended;
    }
    ERR_clear_error();
    return failure;
}

}  // namespace qreg::corba
