#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

struct ssl_ctx_st;

namespace qreg::tls {

/// Whose certificate it is: certificates are made for one side of a connection or for both.
enum class Side_e {
    server,
    client,
};

/// What becomes of an own certificate, or a revocation list, that does not hold today.
enum class Outdated_e {
    refused,
    taken,  ///< FindConcerns tells of it; peers refuse the certificate, and nobody is taken by the list
};

/// The files that an identity is read from, all of them PEM.
struct IdentityFiles {
    std::string certificate;  ///< its own, and behind it those that lead towards the root; empty: none, for a client
    std::string key;          ///< of the certificate, without a pass phrase
    bool isKeyCredential =
        false;          ///< the key is kept by the service manager, which may let the service's group read it
    std::string ca;     ///< certificates to one of which those of peers must lead
    std::string crl{};  ///< revoked certificates, of each issuer of peers; empty: none is looked up
};

/// What a program shows its peers, and what it asks of theirs: read and proved once, immutable. Any thread.
class Identity {
public:
    /// How long before its end a certificate is told of.
    static constexpr std::chrono::hours c_endsSoon{24 * 30};

    /// @throws qstd::Exception naming the file and what is wrong with it: it cannot be read or does not parse, others
    ///         can read the key, the key does not fit the certificate, the certificate is not for this side, or, unless
    ///         that is @p outdated, today is outside the time it holds for.
    Identity(Side_e side, const IdentityFiles& files, Outdated_e outdated = Outdated_e::refused);
    Identity(const Identity&) = delete;
    Identity& operator=(const Identity&) = delete;
    ~Identity();

    /// What does not hold today, or will not for long: sentences that name the file.
    std::vector<std::string> FindConcerns() const;

    /// Makes @p context speak TLS 1.2 and later as this identity, and take no peer without a certificate that leads to
    /// one of its authorities. No sessions are taken up again, nothing is negotiated anew.
    /// @throws qstd::Exception when OpenSSL refuses.
    void Apply(ssl_ctx_st* context) const;

private:
    struct Parts;
    const IdentityFiles m_files;
    const std::unique_ptr<const Parts> m_parts;
};

}  // namespace qreg::tls
