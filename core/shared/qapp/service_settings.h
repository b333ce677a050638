#pragma once

#include "qcfg/configuration.h"
#include "qcfg/schema.h"
#include "qstd/enum_map.h"

namespace qapp {

/// What has to be well for the service manager's watchdog to be fed.
enum class Watchdog_e {
    process,  ///< the main thread runs
    workers,  ///< besides, no vital part of the service has ended before its time
};

/// How the application behaves towards the service manager.
struct ServiceSettings {
    Watchdog_e watchdog = Watchdog_e::process;
};

/// The rules of the section <service>, in which the defaults stand.
qcfg::ElementRule ServiceRule();

/// What the section <service> says.
/// @throws qstd::Exception "FILE:LINE: text" for anything in the section that the rules do not allow, and for a second
///         section.
ServiceSettings ReadServiceSettings(const qcfg::Configuration& configuration);

}  // namespace qapp

namespace qstd {

template <>
const BiMap<qapp::Watchdog_e> EnumMap<qapp::Watchdog_e>::items;

}  // namespace qstd
