#include "qapp/tls_section.h"

#include <cstdlib>
#include <filesystem>

#include "qcfg/document.h"
#include "qcfg/value_types.h"
#include "qstd/exception.h"

namespace qapp {

namespace {

constexpr long long c_maxPort = 65535;

bool Has(const qcfg::Element& element, const std::string& name) {
    std::shared_ptr<qcfg::Attribute> attribute;
    return element.FindAttr(name, attribute);
}

std::string TextOf(const qcfg::Element& element, const std::string& name) {
    std::string text;
    element.GetAttrValue(name, text);
    return text;
}

void CheckTls(const qcfg::Element& tls, qcfg::Findings& findings) {
    const auto tell = [&](const std::string& text) {
        findings.push_back({qcfg::Severity_e::error, tls.GetLine(), text});
    };
    const bool hasKey = Has(tls, "key");
    if (hasKey == Has(tls, "key-credential")) {
        tell(hasKey ? "<tls> has both \"key\" and \"key-credential\""
                    : "<tls> needs the attribute \"key\" or \"key-credential\"");
    }
    if (Has(tls, "listen") && !Has(tls, "port")) {
        tell(
            "attribute \"listen\" of <tls> goes with \"port\": without it TLS takes the place of the registry's own "
            "port");
    }
}

/// The file in which the service manager keeps the credential.
std::string CredentialPath(const std::string& name) {
    const std::string subject = "attribute \"key-credential\" of <tls>: ";
    if (name.find('/') != std::string::npos || name == "." || name == "..") {
        throw qstd::Exception(subject + "\"" + name + "\" is not the name of a credential");
    }
    const char* const folder = std::getenv("CREDENTIALS_DIRECTORY");
    if (folder == nullptr || *folder == '\0') {
        throw qstd::Exception(subject +
                              "the service manager has handed over no credentials (CREDENTIALS_DIRECTORY is not set)");
    }
    return std::string(folder) + "/" + name;
}

}  // namespace

qcfg::ElementRule TlsRule() {
    qcfg::ElementRule rule{
        .name = c_tlsElement,
        .doc =
            "TLS, version 1.2 or later, with certificates on both sides. Without `port` nothing is served in clear: "
            "the "
            "registry's own port is for TLS only. The files are in PEM form, read at start and anew at "
            "SIGHUP; relative paths are relative to this file."};
    rule.attributes = {
        {.name = "certificate",
         .type = qcfg::Text("path of a file"),
         .isRequired = true,
         .doc = "The server's certificate, and behind it those that lead from it towards the root, if there are any."},
        {.name = "key",
         .type = qcfg::Text("path of a file"),
         .doc =
             "The private key of the certificate, without a pass phrase. Nobody but root or the service's user may be "
             "able to read or write the file. Either this or `key-credential` must be there."},
        {.name = "key-credential",
         .type = qcfg::Text("name of a credential"),
         .doc = "In place of `key`, the name of a credential of the service manager with the key."},
        {.name = "ca",
         .type = qcfg::Text("path of a file"),
         .isRequired = true,
         .doc = "Certificates of authorities. A client must have a certificate that leads to one of them."},
        {.name = "crl",
         .type = qcfg::Text("path of a file"),
         .doc =
             "Revocation lists, one of each authority that issues certificates of clients. A list that is out of date "
             "lets no client of its authority in. Without it nothing is looked up."},
        {.name = "port",
         .type = qcfg::Whole(0, c_maxPort),
         .doc =
             "TCP port for TLS beside the registry's own, which then stays in clear; 0 takes any free one, which the "
             "log then names."},
        {.name = "listen",
         .type = qcfg::Address(),
         .doc = "Address to listen on at `port`; that of the registry when left out."},
    };
    rule.check = CheckTls;
    return rule;
}

std::shared_ptr<const qreg::tls::Identity> ReadIdentity(const qcfg::Element& tls,
                                                        const qcfg::Configuration& configuration,
                                                        qreg::tls::Outdated_e outdated) {
    const auto resolve = [&](const std::string& name) {
        return Has(tls, name)
                   ? std::filesystem::path(configuration.ResolvePath(TextOf(tls, name))).lexically_normal().string()
                   : std::string();
    };
    const bool isCredential = Has(tls, "key-credential");
    return std::make_shared<const qreg::tls::Identity>(
        qreg::tls::Side_e::server,
        qreg::tls::IdentityFiles{.certificate = resolve("certificate"),
                                 .key = isCredential ? CredentialPath(TextOf(tls, "key-credential")) : resolve("key"),
                                 .isKeyCredential = isCredential,
                                 .ca = resolve("ca"),
                                 .crl = resolve("crl")},
        outdated);
}

std::shared_ptr<const qreg::tls::Identity> ReadIdentityAtLine(const qcfg::Element& tls,
                                                              const qcfg::Configuration& configuration,
                                                              qreg::tls::Outdated_e outdated) {
    try {
        return ReadIdentity(tls, configuration, outdated);
    } catch (const qstd::Exception& error) {
        throw qstd::Exception(qcfg::AtLine(configuration.GetFileName(), tls.GetLine(), error.what()));
    }
}

qreg::TlsSettings ReadTlsSection(const qcfg::Element& tls, const qcfg::Configuration& configuration,
                                 const std::string& listen) {
    qreg::TlsSettings settings;
    settings.identity = ReadIdentityAtLine(tls, configuration, qreg::tls::Outdated_e::taken);
    long long port = 0;
    if (tls.GetAttrValue("port", port)) {
        settings.port = static_cast<int>(port);
    }
    settings.listen = Has(tls, "listen") ? TextOf(tls, "listen") : listen;
    return settings;
}

}  // namespace qapp
