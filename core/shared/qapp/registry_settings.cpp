#include "qapp/registry_settings.h"

#include <algorithm>
#include <memory>

#include "qapp/own_section.h"
#include "qapp/tls_section.h"
#include "qcfg/document.h"
#include "qcfg/value_types.h"
#include "qreg/tls/identity.h"
#include "qreg/tls/subject.h"
#include "qstd/exception.h"
#include "qstd/log.h"

namespace qapp {

namespace {

using qcfg::ElementRule;
using qcfg::Occurrence_e;

constexpr long long c_highestPort = 65535;
constexpr long long c_maxConnections = 100000;
constexpr long long c_minMessage = 65536;
constexpr long long c_maxMessage = 1LL << 30;
constexpr long long c_maxIdleTime = 86400;
constexpr long long c_maxSubscriptions = 10000;
constexpr long long c_maxQueue = 1000000;
constexpr std::size_t c_patternsEach = 8;  ///< that all subscriptions may have on average

template <class T>
void Take(const qcfg::Element& section, const std::string& name, T& out) {
    long long number = 0;
    if (section.GetAttrValue(name, number)) {
        out = T(number);
    }
}

constexpr const char* c_readers = "read";
constexpr const char* c_writers = "write";

/// Those whom <read> or <write> names.
void AddClients(const qcfg::Element& clients, qreg::ClientList& list) {
    std::string from;
    std::string subject;
    clients.GetAttrValue("from", from);
    if (clients.GetAttrValue("subject", subject)) {
        subject = qreg::tls::CanonicalSubject(subject);
    }
    list.Add(from, subject);
}

void ReadSection(const qcfg::Element& section, qreg::ServerSettings& settings) {
    Take(section, "port", settings.port);
    section.GetAttrValue("listen", settings.listen);
    section.GetAttrValue("push", settings.push);
    Take(section, "connections", settings.connections);
    Take(section, "max_message", settings.maxMessage);
    Take(section, "idle_time", settings.idleTime);
    qreg::SubscriptionLimits& limits = settings.subscriptions;
    Take(section, "subscriptions", limits.subscriptions);
    limits.allPatterns = std::max(limits.allPatterns, c_patternsEach * limits.subscriptions);
    Take(section, "queue", limits.queue);
    limits.defaultQueue = std::min(limits.defaultQueue, limits.queue);
    for (const std::shared_ptr<qcfg::Element>& child : section.GetChildren()) {
        if (child->GetName() == c_readers) {
            AddClients(*child, settings.mayRead);
        } else if (child->GetName() == c_writers) {
            AddClients(*child, settings.mayWrite);
        }
    }
}

/// Proves <read> or <write>. @param hasTls whether clients can have certificates at all
void CheckClients(const qcfg::Element& clients, bool hasTls, qcfg::Findings& findings) {
    const auto tell = [&](const std::string& text) {
        findings.push_back({qcfg::Severity_e::error, clients.GetLine(), text});
    };
    const std::string element = "<" + clients.GetName() + ">";
    std::string from;
    std::string subject;
    const bool hasFrom = clients.GetAttrValue("from", from);
    if (!clients.GetAttrValue("subject", subject)) {
        if (!hasFrom) {
            tell(element + " names no clients: it needs the attribute \"from\" or \"subject\"");
        }
        return;
    }
    try {
        qreg::tls::CanonicalSubject(subject);
    } catch (const qstd::Exception& error) {
        tell("attribute \"subject\" of " + element + ": " + error.what());
    }
    if (!hasTls) {
        tell("attribute \"subject\" of " + element +
             ": clients show certificates over TLS only, and there is no <tls>");
    }
}

void TakeOptions(const Options& options, qreg::ServerSettings& settings) {
    if (options.isPortGiven) {
        settings.port = options.port;
    }
    if (!options.listen.empty()) {
        settings.listen = options.listen;
    }
}

/// What keeps <tls> from listening beside the port in clear; empty when nothing does. @param settings of that port
std::string FindPortProblem(const qcfg::Element& tls, const qreg::ServerSettings& settings) {
    long long port = 0;
    std::string listen = settings.listen;
    tls.GetAttrValue("listen", listen);
    const bool isSame = tls.GetAttrValue("port", port) && port != 0 && port == settings.port &&
                        (listen == settings.listen || listen.empty() || settings.listen.empty());
    return isSame ? "attribute \"port\" of <tls>: the registry's own port is " + std::to_string(port) +
                        " as well; without the attribute that port is for TLS only"
                  : "";
}

/// What the parts of the section have to do with each other.
void CheckSection(const qcfg::Element& section, qcfg::Findings& findings) {
    const std::shared_ptr<qcfg::Element> tls = section.FindChild(c_tlsElement);
    bool isPush = false;
    section.GetAttrValue("push", isPush);
    for (const std::shared_ptr<qcfg::Element>& child : section.GetChildren()) {
        if (child->GetName() == c_readers || child->GetName() == c_writers) {
            CheckClients(*child, tls != nullptr, findings);
        }
    }
    std::shared_ptr<qcfg::Attribute> port;
    if (isPush && tls != nullptr && !tls->FindAttr("port", port)) {
        findings.push_back({qcfg::Severity_e::error, section.GetLine(),
                            "attribute \"push\" of <registry>: callback objects are called in clear, but <tls> without "
                            "\"port\" leaves nothing in clear"});
    }
}

ElementRule ClientsRule(const std::string& name, const std::string& doc) {
    ElementRule rule{.name = name, .occurrence = Occurrence_e::any, .doc = doc};
    rule.attributes = {
        {.name = "from",
         .type = qcfg::AddressPrefix(),
         .doc = "Their address, or a prefix that their addresses have. Any address when left out."},
        {.name = "subject",
         .type = qcfg::Text("subject of a certificate"),
         .doc = "The subject of their certificate, as `openssl x509 -noout -subject -nameopt RFC2253` prints it behind "
                "\"subject=\". With `from`, both must hold; one of the two must be there."},
    };
    return rule;
}

}  // namespace

ElementRule RegistryRule() {
    ElementRule rule{.name = "registry", .doc = "The registry server, through which other programs read and write."};
    rule.attributes = {
        {.name = "port",
         .type = qcfg::Whole(0, c_highestPort),
         .defaultValue = "5678",
         .doc = "TCP port; 0 takes any free one, which the log then names. The option --port wins over it."},
        {.name = "listen",
         .type = qcfg::Address(),
         .doc = "Address to listen on; all addresses when left out. The option --listen wins over it."},
        {.name = "push",
         .type = qcfg::Boolean(),
         .defaultValue = "false",
         .doc = "Whether clients may hand in callback objects for notifications; otherwise they poll. The program then "
                "connects to whatever port of its own host a client names."},
        {.name = "connections",
         .type = qcfg::Whole(1, c_maxConnections),
         .defaultValue = "1000",
         .doc = "The most connections at a time; fewer where file descriptors are scarce. One more is closed at once."},
        {.name = "max_message",
         .type = qcfg::Whole(c_minMessage, c_maxMessage),
         .defaultValue = "2097152",
         .doc = "The most bytes of one message, request or reply."},
        {.name = "idle_time",
         .type = qcfg::Whole(1, c_maxIdleTime),
         .defaultValue = "60",
         .doc = "Seconds after which a connection without a request is closed."},
        {.name = "subscriptions",
         .type = qcfg::Whole(1, c_maxSubscriptions),
         .defaultValue = "256",
         .doc = "The most subscriptions to notifications at a time."},
        {.name = "queue",
         .type = qcfg::Whole(1, c_maxQueue),
         .defaultValue = "10000",
         .doc = "The most notifications that wait for one subscriber, however many it asks for. For one too many the "
                "oldest is dropped, and the subscriber is told how many were."},
    };
    rule.children = {
        ClientsRule(c_readers,
                    "Clients that may read, besides those that may write. Without any such element every client may."),
        ClientsRule(c_writers, "Clients that may write. Without any such element every client that may read may."),
        TlsRule(),
    };
    rule.check = CheckSection;
    return rule;
}

qreg::ServerSettings ReadRegistrySettings(const qcfg::Configuration& configuration, const Options& options,
                                          qreg::ServerSettings defaults) {
    qreg::ServerSettings settings = std::move(defaults);
    const auto section = FindOwnSection(configuration, RegistryRule());
    if (section != nullptr) {
        ReadSection(*section, settings);
    }
    TakeOptions(options, settings);
    if (const auto tls = section != nullptr ? section->FindChild(c_tlsElement) : nullptr) {
        settings.tls = ReadTlsSection(*tls, configuration, settings.listen);
        if (const std::string problem = FindPortProblem(*tls, settings); !problem.empty()) {
            throw qstd::Exception(qcfg::AtLine(configuration.GetFileName(), tls->GetLine(), problem));
        }
    }
    return settings;
}

std::shared_ptr<const qreg::tls::Identity> ReadTlsIdentity(const qcfg::Configuration& configuration) {
    const auto tls = FindOnlySection(configuration, RegistryRule().name)->FindChild(c_tlsElement);
    return ReadIdentityAtLine(*tls, configuration, qreg::tls::Outdated_e::refused);
}

void TellTlsConcerns(const qreg::tls::Identity& identity) {
    for (const std::string& concern : identity.FindConcerns()) {
        qstd::LogWarning("TLS: " + concern);
    }
}

qcfg::Findings CheckTlsSection(const qcfg::Configuration& configuration, const Options& options) {
    const auto section = FindOnlySection(configuration, RegistryRule().name);
    const auto tls = section != nullptr ? section->FindChild(c_tlsElement) : nullptr;
    qcfg::Findings findings;
    if (tls == nullptr) {
        return findings;
    }
    qreg::ServerSettings settings;
    settings.port = options.port;
    ReadSection(*section, settings);
    TakeOptions(options, settings);
    if (const std::string problem = FindPortProblem(*tls, settings); !problem.empty()) {
        findings.push_back({qcfg::Severity_e::error, tls->GetLine(), problem});
    }
    try {
        const auto identity = ReadIdentity(*tls, configuration, qreg::tls::Outdated_e::refused);
        for (const std::string& concern : identity->FindConcerns()) {
            findings.push_back({qcfg::Severity_e::warning, tls->GetLine(), concern});
        }
    } catch (const qstd::Exception& error) {
        findings.push_back({qcfg::Severity_e::error, tls->GetLine(), error.what()});
    }
    return findings;
}

}  // namespace qapp
