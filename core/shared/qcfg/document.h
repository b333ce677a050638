#pragma once

#include <memory>
#include <string>

#include "qcfg/element.h"

namespace qcfg {

/// Reads XML into a tree of elements with their line numbers. Nothing but the file itself is ever loaded: no network,
/// no external entity; the expansion of internal entities is bounded. May be called from any thread.
/// @throws qstd::Exception "FILE:LINE: text", for the first error in a file that is malformed, "FILE: text" for one
///         that cannot be read or holds more than 64 MiB.
std::shared_ptr<Element> ReadXmlFile(const std::string& fileName);

/// The same for a text in memory. @param name what stands for FILE in messages.
std::shared_ptr<Element> ReadXmlText(const std::string& text, const std::string& name);

/// "FILE:LINE: text", the form of every message about a configuration.
std::string AtLine(const std::string& fileName, int line, const std::string& text);

}  // namespace qcfg
