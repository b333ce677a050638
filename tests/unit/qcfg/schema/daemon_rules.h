#pragma once

#include "configuration_rules.h"
#include "qapp/configuration_rules.h"

/// The rules of the daemon's whole configuration, as the program puts them together.
inline const qcfg::ElementRule& DaemonRules() {
    static const qcfg::ElementRule rules =
        qapp::ConfigurationRules({qapp::SimulatedChassisRule()}, WorkerSectionRules());
    return rules;
}
