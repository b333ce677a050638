#pragma once

#include <memory>
#include <string>

#include "qcfg/configuration.h"
#include "qcfg/element.h"
#include "qcfg/schema.h"
#include "qreg/server.h"
#include "qreg/tls/identity.h"

namespace qapp {

constexpr const char* c_tlsElement = "tls";

/// The rules of <tls> in the section <registry>.
qcfg::ElementRule TlsRule();

/// The identity that the files named by @p tls make. @pre the element keeps the rules.
/// @throws qstd::Exception saying which file or credential is wrong, and how.
std::shared_ptr<const qreg::tls::Identity> ReadIdentity(const qcfg::Element& tls,
                                                        const qcfg::Configuration& configuration,
                                                        qreg::tls::Outdated_e outdated);

/// The same. @throws qstd::Exception "FILE:LINE: text" for what ReadIdentity finds.
std::shared_ptr<const qreg::tls::Identity> ReadIdentityAtLine(const qcfg::Element& tls,
                                                              const qcfg::Configuration& configuration,
                                                              qreg::tls::Outdated_e outdated);

/// How the server is to speak TLS: also with a certificate that does not hold today, so that a date does not leave the
/// chassis without control. @param listen where it listens for everything else
/// @throws qstd::Exception "FILE:LINE: text" for what else ReadIdentity finds.
qreg::TlsSettings ReadTlsSection(const qcfg::Element& tls, const qcfg::Configuration& configuration,
                                 const std::string& listen);

}  // namespace qapp
