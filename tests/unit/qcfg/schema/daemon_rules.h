#pragma once

#include "bmc/ipmi/configuration_rule.h"
#include "bmc/sim/configuration_rule.h"
#include "configuration_rules.h"
#include "qapp/configuration_rules.h"

/// The rules of the daemon's whole configuration, as the program puts them together.
inline const qcfg::ElementRule& DaemonRules() {
    static const qcfg::ElementRule rules =
        qapp::ConfigurationRules({bmc::sim::ConfigurationRule(), bmc::ipmi::ConfigurationRule()}, WorkerSectionRules());
    return rules;
}
