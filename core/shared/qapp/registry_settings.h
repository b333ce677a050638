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

/// What of <tls> the rules cannot say: the files that it names must be there and be good, and its port must not be that
/// of the registry in clear, which are errors; and warnings of certificates that end soon. None when there is no <tls>.
/// @param options what the command line says of the registry's port and address; its port, given or not, holds where
/// the
///        configuration names none
/// @pre the section keeps the rules.
qcfg::Findings CheckTlsSection(const qcfg::Configuration& configuration, const Options& options);

/// The identity that the files of <tls> make now. @pre ReadRegistrySettings has read a section with <tls>.
/// @throws qstd::Exception "FILE:LINE: text" saying which file is wrong, and how.
std::shared_ptr<const qreg::tls::Identity> ReadTlsIdentity(const qcfg::Configuration& configuration);

/// Tells the log what does not hold today, or will not for long.
void TellTlsConcerns(const qreg::tls::Identity& identity);

/// How the registry server is to run: what the section <registry> says, and what the command line says in its place.
/// @param defaults what holds where neither says anything
/// @throws qstd::Exception "FILE:LINE: text" for anything in the section that the rules do not allow, for an error of
///         CheckTlsSection but a date, and for a second section.
qreg::ServerSettings ReadRegistrySettings(const qcfg::Configuration& configuration, const Options& options,
                                          qreg::ServerSettings defaults);

}  // namespace qapp
