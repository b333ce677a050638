#pragma once

#include <string>

#include "qcfg/element.h"
#include "qcfg/finding.h"
#include "qcfg/schema.h"

namespace qcfg {

/// Proves a parsed configuration by the rules: every element and attribute known, every value of its type and in its
/// range, everything required there, nothing there more often than it may be. What the typed readers of Element and
/// Attribute pass over with a default is an error here all the same. Touches nothing but the tree. Any thread.
/// @param root the root element; its name is taken to be the rule's.
/// @return the findings in document order; none for a good configuration.
Findings CheckConfiguration(const Element& root, const ElementRule& rule);

/// Proves the element @p root of the named file likewise, for a reader that then has to look for no fault of these.
/// @throws qstd::Exception "FILE:LINE: text" for the first error
void RefuseErrors(const Element& root, const ElementRule& rule, const std::string& fileName);

}  // namespace qcfg
