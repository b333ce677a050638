#include "tests/support/tls/test_authority.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include "tests/support/file.h"
#include "tests/support/process.h"

namespace test {

namespace {

std::vector<std::string> NewKey(const std::string& key) {
    if (key == "ec") {
        return {"-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"};
    }
    return {"-newkey", key, "-nodes"};
}

std::vector<std::string> operator+(std::vector<std::string> words, const std::vector<std::string>& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

}  // namespace

TestAuthority::TestAuthority(std::string folder, std::string name)
    : m_folder(std::move(folder)), m_name(std::move(name)) {
    OpenSsl(std::vector<std::string>{"req", "-x509", "-subj", "/CN=" + m_name, "-days", "3650", "-out",
                                     Path(m_name + ".pem"), "-keyout", Path(m_name + ".key"), "-addext",
                                     "keyUsage=critical,keyCertSign,cRLSign"} +
            NewKey("ec"));
    WriteFile(Path(m_name + ".index"), "");
    WriteFile(Path(m_name + ".conf"), "[ca]\ndefault_ca=here\n[here]\ndatabase=" + Path(m_name + ".index") +
                                          "\ndefault_md=sha256\ndefault_crl_days=30\nunique_subject=no\n");
}

void TestAuthority::Issue(const std::string& name, const CertificateWish& wish) const {
    const std::string request = Path(name + ".csr");
    const std::string extensions = Path(name + ".ext");
    OpenSsl(std::vector<std::string>{"req", "-new", "-utf8", "-subj", wish.subject, "-out", request, "-keyout",
                                     Path(name + ".key")} +
            NewKey(wish.key));
    WriteFile(extensions, "basicConstraints=critical,CA:FALSE\n" +
                              (wish.names.empty() ? "" : "subjectAltName=" + wish.names + "\n") +
                              (wish.usage.empty() ? "" : "extendedKeyUsage=" + wish.usage + "\n"));
    OpenSsl({"x509", "-req", "-in", request, "-out", Path(name + ".pem"), "-CA", Path(m_name + ".pem"), "-CAkey",
             Path(m_name + ".key"), "-days", std::to_string(wish.days), "-extfile", extensions});
    std::filesystem::permissions(Path(name + ".key"), std::filesystem::perms(0600));
}

void TestAuthority::WriteRevocations(const std::string& name) const {
    OpenSsl({"ca", "-config", Path(m_name + ".conf"), "-keyfile", Path(m_name + ".key"), "-cert", Path(m_name + ".pem"),
             "-gencrl", "-out", Path(name + ".crl")});
}

void TestAuthority::Revoke(const std::string& certificate) const {
    OpenSsl({"ca", "-config", Path(m_name + ".conf"), "-keyfile", Path(m_name + ".key"), "-cert", Path(m_name + ".pem"),
             "-revoke", Path(certificate + ".pem")});
}

void TestAuthority::OpenSsl(std::vector<std::string> words) const {
    words.insert(words.begin(), "/usr/bin/openssl");
    const Result result = RunProgram(words);
    if (result.status != 0) {
        throw std::runtime_error("openssl " + words[1] + ": " + result.error);
    }
}

}  // namespace test
