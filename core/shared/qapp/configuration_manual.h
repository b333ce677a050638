#pragma once

#include <string>

#include "qcfg/schema.h"

namespace qapp {

/// The manual page of the configuration, zelkor-platformd.xml(5), in the macros of man(7). Any thread.
std::string ConfigurationManual(const qcfg::ElementRule& rules);

}  // namespace qapp
