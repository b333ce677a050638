#pragma once

#include <string>

#include "qapp/options.h"
#include "qcfg/configuration.h"
#include "qcfg/finding.h"
#include "qcfg/schema.h"
#include "qreg/server.h"

namespace qapp {

/// The rules of the section <registry>, in which the defaults stand.
qcfg::ElementRule RegistryRule();

/// What of the section the rules cannot say: the files that <tls> names must be there and be good, which are errors;
/// and warnings of certificates that end soon. None when there is no <tls>. @pre the section keeps the rules.
qcfg::Findings CheckTlsFiles(const qcfg::Configuration& configuration);

/// How the registry server is to run: what the section <registry> says, and what the command line says in its place.
/// @param defaults what holds where neither says anything
/// @throws qstd::Exception "FILE:LINE: text" for anything in the section that the rules do not allow, for an error of
///         CheckTlsFiles, and for a second section.
qreg::ServerSettings ReadRegistrySettings(const qcfg::Configuration& configuration, const Options& options,
                                          qreg::ServerSettings defaults);

}  // namespace qapp
