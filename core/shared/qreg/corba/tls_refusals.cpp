#include "qreg/corba/tls_refusals.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cstring>

// In this order: the second one does not include what it needs.
#include <omniORB4/CORBA.h>
#include <omniORB4/sslContext.h>

#include <openssl/err.h>
#include <openssl/x509_vfy.h>

#include "qreg/peer.h"
#include "qreg/tls/subject.h"

namespace qreg::corba {

namespace {

LimitedLog* g_log = nullptr;

/// The address at the other end, without the port; an IPv4 address mapped into IPv6 as IPv4.
std::string AddressOf(const SSL* connection) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    char host[NI_MAXHOST] = "";
    if (::getpeername(SSL_get_fd(connection), reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
        ::getnameinfo(reinterpret_cast<sockaddr*>(&address), size, host, sizeof host, nullptr, 0, NI_NUMERICHOST) !=
            0) {
        return "a client that has gone";
    }
    static constexpr const char* c_mapped = "::ffff:";
    const bool isMapped = std::strncmp(host, c_mapped, std::strlen(c_mapped)) == 0 && std::strchr(host, '.') != nullptr;
    return host + (isMapped ? std::strlen(c_mapped) : 0);
}

void Tell(const Peer& peer, const std::string& reason) {
    g_log->Warning("Refused a TLS connection from " + peer.ToText() + ": " + reason);
}

/// Called by OpenSSL for each certificate of a client's chain, and for what is wrong with one.
int OnVerify(int isGood, X509_STORE_CTX* state) {
    if (isGood != 1) {
        const auto* const connection =
            static_cast<const SSL*>(X509_STORE_CTX_get_ex_data(state, SSL_get_ex_data_X509_STORE_CTX_idx()));
        const X509* const certificate = X509_STORE_CTX_get_current_cert(state);
        Tell({AddressOf(connection), certificate != nullptr ? tls::SubjectOf(*certificate) : "", true},
             X509_verify_cert_error_string(X509_STORE_CTX_get_error(state)));
    }
    return isGood;
}

/// Called by OpenSSL at each step of a handshake.
void OnStep(const SSL* connection, int where, int result) {
    if (where != SSL_CB_ACCEPT_EXIT || result > 0 || SSL_get_error(connection, result) != SSL_ERROR_SSL ||
        SSL_get_verify_result(connection) != X509_V_OK) {
        return;  // it goes on, or its socket broke, or OnVerify has told
    }
    const unsigned long code = ERR_peek_error();
    if (ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
        return;  // whoever it was has gone, as over TCP
    }
    const char* const reason = ERR_reason_error_string(code);
    Tell({AddressOf(connection), {}, true}, reason != nullptr ? reason : "the handshake failed");
}

}  // namespace

void TellTlsRefusals(LimitedLog* log) {
    g_log = log;
    sslContext::verify_callback = log != nullptr ? OnVerify : nullptr;
    sslContext::info_callback = log != nullptr ? OnStep : nullptr;
}

}  // namespace qreg::corba
