#pragma once

#include <memory>
#include <string>

#include "qcfg/configuration.h"
#include "qcfg/element.h"
#include "qcfg/schema.h"
#include "qreg/server.h"

namespace qapp {

constexpr const char* c_tlsElement = "tls";

/// The rules of <tls> in the section <registry>.
qcfg::ElementRule TlsRule();

/// The identity that the files named by @p tls make. @pre the element keeps the rules.
/// @throws qstd::Exception saying which file or credential is wrong, and how.
std::shared_ptr<const qreg::tls::Identity> ReadIdentity(const qcfg::Element& tls,
                                                        const qcfg::Configuration& configuration);

/// The same. @throws qstd::Exception "FILE:LINE: text" for what ReadIdentity finds.
std::shared_ptr<const qreg::tls::Identity> ReadIdentityAtLine(const qcfg::Element& tls,
                                                              const qcfg::Configuration& configuration);

/// How the server is to speak TLS. @param listen where it listens for everything else
/// @throws qstd::Exception "FILE:LINE: text" for what ReadIdentity finds.
qreg::TlsSettings ReadTlsSection(const qcfg::Element& tls, const qcfg::Configuration& configuration,
                                 const std::string& listen);

}  // namespace qapp
