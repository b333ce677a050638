#include "qapp/service_settings.h"

#include <string>

#include "qapp/own_section.h"
#include "qcfg/value_types.h"
#include "qstd/enum_map.h"

namespace qstd {

template <>
const BiMap<qapp::Watchdog_e> EnumMap<qapp::Watchdog_e>::items{
    {qapp::Watchdog_e::process, "process"},
    {qapp::Watchdog_e::workers, "workers"},
};

}  // namespace qstd

namespace qapp {

qcfg::ElementRule ServiceRule() {
    qcfg::ElementRule rule{.name = "service", .doc = "What the service manager is told."};
    rule.attributes = {
        {.name = "watchdog",
         .type = qcfg::EnumName<Watchdog_e>("watchdog", "thing to watch (process, workers)"),
         .defaultValue = "process",
         .doc = "What has to be well for the service manager's watchdog to be fed. \"process\": that the process "
                "answers. \"workers\": besides, that neither fan control nor damage protection has ended by an error, "
                "so that the service manager then starts the service anew."}};
    return rule;
}

ServiceSettings ReadServiceSettings(const qcfg::Configuration& configuration) {
    ServiceSettings settings;
    if (const auto section = FindOwnSection(configuration, ServiceRule())) {
        std::string watchdog;
        if (section->GetAttrValue("watchdog", watchdog)) {
            settings.watchdog = qstd::EnumFromString<Watchdog_e>(watchdog);
        }
    }
    return settings;
}

}  // namespace qapp
