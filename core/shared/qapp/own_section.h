#pragma once

#include <memory>
#include <string>

#include "qcfg/configuration.h"
#include "qcfg/element.h"
#include "qcfg/schema.h"

namespace qapp {

/// The one section of that name; null when the configuration has none.
/// @throws qstd::Exception "FILE:LINE: text" for a second one.
std::shared_ptr<qcfg::Element> FindOnlySection(const qcfg::Configuration& configuration, const std::string& name);

/// The section of the application's own that @p rule describes, proved by it; null when the configuration has none.
/// @throws qstd::Exception "FILE:LINE: text" for anything in the section that the rule does not allow, and for a second
///         section.
std::shared_ptr<qcfg::Element> FindOwnSection(const qcfg::Configuration& configuration, const qcfg::ElementRule& rule);

}  // namespace qapp
