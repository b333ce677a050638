#include "qreg/tls/identity.h"

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "qreg/tls/openssl.h"
#include "qstd/clock.h"
#include "qstd/exception.h"
#include "qstd/secret_file.h"

namespace qreg::tls {

namespace {

constexpr std::size_t c_largestFile = std::size_t{1024} * 1024;
constexpr std::size_t c_largestKey = std::size_t{64} * 1024;
constexpr int c_longestChain = 10;
/// Forward secrecy and authenticated encryption; of TLS 1.3 all suites have both.
constexpr const char* c_ciphers12 = "ECDHE+AESGCM:ECDHE+CHACHA20";

[[noreturn]] void Refuse(const std::string& what, const std::string& path, const std::string& text) {
    throw qstd::Exception(what + " " + path + ": " + text);
}

std::time_t Now() {
    return std::chrono::system_clock::to_time_t(qstd::Clock::Get().SystemNow());
}

/// Below, equal to or above 0: @p time is before, at or after @p then; before, too, when it is none. OpenSSL's own
/// comparison takes a time_t, which on 32 bits is another one there.
int Compare(const ASN1_TIME* time, std::time_t then) {
    std::tm fields{};
    if (ASN1_TIME_to_tm(time, &fields) != 1) {
        return -1;
    }
    const std::time_t seconds = ::timegm(&fields);
    return seconds < then ? -1 : (seconds > then ? 1 : 0);
}

/// "2026-11-21 14:03:07 UTC".
std::string TimeText(const ASN1_TIME* time) {
    constexpr std::size_t c_size = 32;
    std::tm fields{};
    char text[c_size] = "";
    if (ASN1_TIME_to_tm(time, &fields) == 1) {
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &fields);
    }
    return text;
}

std::string ReadText(const std::string& what, const std::string& path) {
    std::error_code error;
    // A pipe or a device under that name must not hang the caller.
    const auto status = std::filesystem::status(path, error);
    if (error || !std::filesystem::exists(status)) {
        Refuse(
            what, path,
            "cannot open: " + (error ? error : std::make_error_code(std::errc::no_such_file_or_directory)).message());
    }
    if (!std::filesystem::is_regular_file(status)) {
        Refuse(what, path, "is not a regular file");
    }
    if (std::filesystem::file_size(path, error) > c_largestFile || error) {
        Refuse(what, path, "has more than " + std::to_string(c_largestFile) + " bytes");
    }
    std::ifstream file(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad()) {
        Refuse(what, path, "cannot be read: " + std::generic_category().message(errno));
    }
    return text;
}

BioPtr Memory(std::string_view text) {
    return BioPtr(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

/// Every object of one kind in the file, at least one. @param read one of the PEM_read_bio_...
template <class Pointer, class Read>
std::vector<Pointer> ReadAll(const std::string& what, const std::string& path, const char* item, Read read) {
    const std::string text = ReadText(what, path);
    const BioPtr memory = Memory(text);
    std::vector<Pointer> found;
    while (Pointer object{read(memory.get(), nullptr, nullptr, nullptr)}) {
        found.push_back(std::move(object));
    }
    const bool isEnd = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
    const std::string reason = TakeReason();
    if (!isEnd) {
        Refuse(what, path, std::string(item) + " " + std::to_string(found.size() + 1) + " does not parse: " + reason);
    }
    if (found.empty()) {
        Refuse(what, path, std::string("holds no ") + item + " in PEM form");
    }
    return found;
}

/// An encrypted key would ask at the terminal.
int RefusePassPhrase(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* wasAsked) {
    *static_cast<bool*>(wasAsked) = true;
    return -1;
}

KeyPtr ReadKey(const IdentityFiles& files) {
    const std::string what = files.isKeyCredential ? "credential" : "key";
    const qstd::SecretFile file(what, files.key, files.isKeyCredential, c_largestKey);
    bool wasAsked = false;
    KeyPtr key(PEM_read_bio_PrivateKey(Memory(file.Reveal()).get(), nullptr, RefusePassPhrase, &wasAsked));
    const std::string reason = TakeReason();
    if (key == nullptr) {
        Refuse(what, files.key,
               wasAsked ? "has a pass phrase, which nobody is there to give"
                        : "holds no private key in PEM form (" + reason + ")");
    }
    return key;
}

}  // namespace

struct Identity::Parts {
    std::vector<CertificatePtr> certificates;  ///< its own, then those above; none: there is no key either
    KeyPtr key;
    std::vector<CertificatePtr> authorities;
    std::vector<CrlPtr> revocations;
};

namespace {

std::string SubjectIn(const X509& certificate) {
    return " (" + NameText(*X509_get_subject_name(&certificate)) + ")";
}

/// Empty when it holds already.
std::string FindBegin(const X509& certificate) {
    const ASN1_TIME* const begin = X509_get0_notBefore(&certificate);
    return Compare(begin, Now()) > 0 ? "holds only from " + TimeText(begin) + SubjectIn(certificate) : "";
}

void RefuseOutsideItsTime(const std::string& path, const X509& certificate) {
    if (const std::string begin = FindBegin(certificate); !begin.empty()) {
        Refuse("certificate", path, begin);
    }
    if (Compare(X509_get0_notAfter(&certificate), Now()) <= 0) {
        Refuse("certificate", path,
               "expired at " + TimeText(X509_get0_notAfter(&certificate)) + SubjectIn(certificate));
    }
}

void ProveOwnCertificate(Side_e side, const std::string& path, const std::vector<CertificatePtr>& certificates,
                         const std::string& keyPath, EVP_PKEY* key) {
    X509* const own = certificates.front().get();
    const bool isServer = side == Side_e::server;
    if (X509_check_purpose(own, isServer ? X509_PURPOSE_SSL_SERVER : X509_PURPOSE_SSL_CLIENT, 0) != 1) {
        Refuse("certificate", path,
               std::string("is not for a ") + (isServer ? "server" : "client") +
                   " (its key usage or extended key usage forbids it)");
    }
    if (X509_check_private_key(own, key) != 1) {
        TakeReason();
        Refuse("certificate", path, "does not belong to the key " + keyPath);
    }
}

}  // namespace

Identity::Identity(Side_e side, const IdentityFiles& files, Outdated_e outdated)
    : m_files(files), m_parts([&] {
          auto parts = std::make_unique<Parts>();
          if (!files.certificate.empty()) {
              parts->certificates =
                  ReadAll<CertificatePtr>("certificate", files.certificate, "certificate", PEM_read_bio_X509);
              parts->key = ReadKey(files);
              if (outdated == Outdated_e::refused) {
                  for (const CertificatePtr& certificate : parts->certificates) {
                      RefuseOutsideItsTime(files.certificate, *certificate);
                  }
              }
              ProveOwnCertificate(side, files.certificate, parts->certificates, files.key, parts->key.get());
          }
          parts->authorities = ReadAll<CertificatePtr>("ca", files.ca, "certificate", PEM_read_bio_X509);
          if (!files.crl.empty()) {
              parts->revocations = ReadAll<CrlPtr>("crl", files.crl, "revocation list", PEM_read_bio_X509_CRL);
              for (const CrlPtr& list : parts->revocations) {
                  const ASN1_TIME* const end = X509_CRL_get0_nextUpdate(list.get());
                  if (outdated == Outdated_e::refused && end != nullptr && Compare(end, Now()) <= 0) {
                      Refuse("crl", files.crl, "is out of date since " + TimeText(end) + ": no peer could be taken");
                  }
              }
          }
          return parts;
      }()) {
    // What OpenSSL itself may refuse: weak keys and signatures.
    const ContextPtr context(SSL_CTX_new(TLS_method()));
    if (context == nullptr) {
        throw qstd::Exception("TLS cannot be had: " + TakeReason());
    }
    Apply(context.get());
}

Identity::~Identity() = default;

std::vector<std::string> Identity::FindConcerns() const {
    const std::time_t soon = Now() + std::chrono::duration_cast<std::chrono::seconds>(c_endsSoon).count();
    std::vector<std::string> concerns;
    const auto look = [&](const std::string& what, const std::string& path, const ASN1_TIME* end,
                          const std::string& whose) {
        if (end != nullptr && Compare(end, soon) <= 0) {
            concerns.push_back(what + " " + path + ": " + (Compare(end, Now()) <= 0 ? "expired at " : "expires at ") +
                               TimeText(end) + whose);
        }
    };
    for (const CertificatePtr& certificate : m_parts->certificates) {
        if (const std::string begin = FindBegin(*certificate); !begin.empty()) {
            concerns.push_back("certificate " + m_files.certificate + ": " + begin);
        }
        look("certificate", m_files.certificate, X509_get0_notAfter(certificate.get()), SubjectIn(*certificate));
    }
    for (const CertificatePtr& authority : m_parts->authorities) {
        look("ca", m_files.ca, X509_get0_notAfter(authority.get()), SubjectIn(*authority));
    }
    for (const CrlPtr& list : m_parts->revocations) {
        look("crl", m_files.crl, X509_CRL_get0_nextUpdate(list.get()), "; no peer is taken from then on");
    }
    return concerns;
}

void Identity::Apply(ssl_ctx_st* context) const {
    const auto demand = [](bool isDone, const std::string& what, const std::string& path) {
        if (!isDone) {
            Refuse(what, path, TakeReason());
        }
    };
    demand(SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION) == 1 &&
               SSL_CTX_set_cipher_list(context, c_ciphers12) == 1 && SSL_CTX_set_num_tickets(context, 0) == 1,
           "TLS", "1.2");
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_NO_TICKET);
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);  // a peer proves itself at every connection
    // Connections that are idle hold little; of the chain goes out what stands in the file.
    SSL_CTX_set_mode(context, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_NO_AUTO_CHAIN);
    SSL_CTX_set_verify_depth(context, c_longestChain);

    if (!m_parts->certificates.empty()) {
        demand(SSL_CTX_use_certificate(context, m_parts->certificates.front().get()) == 1, "certificate",
               m_files.certificate);
        for (auto above = m_parts->certificates.begin() + 1; above != m_parts->certificates.end(); ++above) {
            demand(SSL_CTX_add1_chain_cert(context, above->get()) == 1, "certificate", m_files.certificate);
        }
        demand(SSL_CTX_use_PrivateKey(context, m_parts->key.get()) == 1, "key", m_files.key);
    }
    X509_STORE* const store = SSL_CTX_get_cert_store(context);
    unsigned long flags = X509_V_FLAG_PARTIAL_CHAIN;  // an authority that is no root is one all the same
    for (const CertificatePtr& authority : m_parts->authorities) {
        demand(X509_STORE_add_cert(store, authority.get()) == 1 && SSL_CTX_add_client_CA(context, authority.get()) == 1,
               "ca", m_files.ca);
    }
    for (const CrlPtr& list : m_parts->revocations) {
        demand(X509_STORE_add_crl(store, list.get()) == 1, "crl", m_files.crl);
        flags |= X509_V_FLAG_CRL_CHECK;
    }
    X509_STORE_set_flags(store, flags);
}

}  // namespace qreg::tls
