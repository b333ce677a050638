#pragma once

#include <string>
#include <vector>

namespace test {

/// What a certificate of a test says.
struct CertificateWish {
    std::string subject = "/O=Lab/CN=server";          ///< as `openssl req -subj` takes it
    std::string names = "IP:127.0.0.1,DNS:localhost";  ///< alternative names
    std::string usage = "serverAuth,clientAuth";       ///< extended key usage; empty: none is said
    int days = 30;                                     ///< it holds from now; negative: it has expired
    std::string key = "ec";                            ///< "ec", or "rsa:1024" and the like
};

/// A certificate authority of a test's own in a folder, made with the openssl program: NAME.pem and NAME.key.
class TestAuthority {
public:
    /// @throws std::runtime_error with what openssl says.
    explicit TestAuthority(std::string folder, std::string name = "ca");

    /// Makes NAME.pem and NAME.key, mode 0600, in the folder.
    void Issue(const std::string& name, const CertificateWish& wish = {}) const;

    /// Makes the authority's revocation list, NAME.crl, with the certificates revoked so far.
    void WriteRevocations(const std::string& name) const;
    void Revoke(const std::string& certificate) const;

    std::string Path(const std::string& file) const { return m_folder + "/" + file; }

private:
    void OpenSsl(std::vector<std::string> words) const;

    const std::string m_folder;
    const std::string m_name;
};

}  // namespace test
