#pragma once

#include <string>

#include "qcfg/schema.h"

namespace qcfg {

/// The rules as a reference page in Markdown: a section for each element with its attributes, children, variants and
/// text, and tables of the names that enumerations have. Any thread.
/// @param preface what stands before the first section, its heading included
std::string WriteReference(const ElementRule& root, const std::string& preface);

}  // namespace qcfg
