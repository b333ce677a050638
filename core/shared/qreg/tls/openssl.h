#pragma once

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

// What the sources here share of OpenSSL. Not for headers.

namespace qreg::tls {

template <auto free>
struct Free {
    template <class T>
    void operator()(T* object) const noexcept {
        free(object);
    }
};

using BioPtr = std::unique_ptr<BIO, Free<BIO_free_all>>;
using CertificatePtr = std::unique_ptr<X509, Free<X509_free>>;
using CrlPtr = std::unique_ptr<X509_CRL, Free<X509_CRL_free>>;
using KeyPtr = std::unique_ptr<EVP_PKEY, Free<EVP_PKEY_free>>;
using NamePtr = std::unique_ptr<X509_NAME, Free<X509_NAME_free>>;
using ContextPtr = std::unique_ptr<SSL_CTX, Free<SSL_CTX_free>>;

/// What the OpenSSL call that failed last in this thread gave as its reason. Forgets it, and all before it.
std::string TakeReason();

/// The name as `openssl x509 -nameopt RFC2253` prints it: no two different names print alike.
std::string NameText(const X509_NAME& name);

}  // namespace qreg::tls
