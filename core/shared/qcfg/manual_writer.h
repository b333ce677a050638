#pragma once

#include <string>

#include "qcfg/schema.h"

namespace qcfg {

/// The rules as sections of a manual page in the macros of man(7): ELEMENTS with a subsection for each element, and
/// VALUES with the names that enumerations have. Any thread.
/// @param begin what stands before them, its title included @param end what stands behind them
std::string WriteManual(const ElementRule& root, const std::string& begin, const std::string& end);

}  // namespace qcfg
