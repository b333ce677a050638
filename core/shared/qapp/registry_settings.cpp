#include "qapp/registry_settings.h"

#include <algorithm>
#include <memory>

#include "qapp/own_section.h"
#include "qcfg/value_types.h"

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
    for (const std::shared_ptr<qcfg::Element>& write : section.GetChildren()) {
        std::string from;
        if (write->GetAttrValue("from", from)) {
            settings.mayWrite.Add(from);
        }
    }
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
    ElementRule write{.name = "write",
                      .occurrence = Occurrence_e::any,
                      .doc = "Clients that may write. Without any such element every client may."};
    write.attributes = {{.name = "from",
                         .type = qcfg::AddressPrefix(),
                         .isRequired = true,
                         .doc = "Their address, or a prefix that their addresses have."}};
    rule.children = {write};
    return rule;
}

qreg::ServerSettings ReadRegistrySettings(const qcfg::Configuration& configuration, const Options& options,
                                          qreg::ServerSettings defaults) {
    qreg::ServerSettings settings = std::move(defaults);
    if (const auto section = FindOwnSection(configuration, RegistryRule())) {
        ReadSection(*section, settings);
    }
    if (options.isPortGiven) {
        settings.port = options.port;
    }
    if (!options.listen.empty()) {
        settings.listen = options.listen;
    }
    return settings;
}

}  // namespace qapp
