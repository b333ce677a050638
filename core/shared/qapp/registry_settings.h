#pragma once

#include <string>

#include "qapp/options.h"
#include "qcfg/configuration.h"
#include "qcfg/schema.h"
#include "qreg/server.h"

namespace qapp {

/// The rules of the section <registry>, in which the defaults stand.
qcfg::ElementRule RegistryRule();

/// How the registry server is to run: what the section <registry> says, and what the command line says in its place.
/// @param defaults what holds where neither says anything
/// @throws qstd::Exception "FILE:LINE: text" for anything in the section that the rules do not allow, and for a second
///         section.
qreg::ServerSettings ReadRegistrySettings(const qcfg::Configuration& configuration, const Options& options,
                                          qreg::ServerSettings defaults);

}  // namespace qapp
