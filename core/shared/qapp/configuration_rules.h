#pragma once

#include <string>
#include <vector>

#include "qcfg/schema.h"

namespace qapp {

/// The rules of an application's whole configuration: the framework's own sections and those given. Put together
/// before other threads use them; any thread may use the result.
/// @param backends what `<boards>` holds for each backend, in the order in which they were offered
/// @param sections the sections of the application's own
/// @throws qstd::Exception when the rules contradict one another.
qcfg::ElementRule ConfigurationRules(const std::vector<qcfg::VariantRule>& backends,
                                     const std::vector<qcfg::ElementRule>& sections);

/// The reference page of the configuration, in Markdown.
std::string ConfigurationReference(const qcfg::ElementRule& rules);

}  // namespace qapp
