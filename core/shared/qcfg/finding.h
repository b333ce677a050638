#pragma once

#include <string>
#include <vector>

namespace qcfg {

enum class Severity_e {
    error,    ///< the file does not say what it must, or says something that is not understood
    warning,  ///< allowed, but most likely not what was meant
};

/// Something to say about a configuration.
struct Finding {
    Severity_e severity = Severity_e::error;
    int line = 0;  ///< of the element concerned, from 1; 0: the file as a whole
    std::string text;
    std::string place{};  ///< "FILE:LINE" when the fault itself is in another file; empty otherwise
};

using Findings = std::vector<Finding>;

/// "FILE:LINE: error: text", or "warning" for it; "FILE: error: text" about a file as a whole. Any thread.
std::string ToText(const Finding& finding, const std::string& fileName);

/// Whether one of the findings is an error. Any thread.
bool HasError(const Findings& findings);

/// The error that somebody who reads a configuration has raised as an exception.
/// @param message its text. "FILE:LINE: text" (see AtLine) is an error in that line of @p fileName, or in a file that
///                @p fileName names; any other text is one in @p line
Finding ErrorFrom(const std::string& message, const std::string& fileName, int line);

/// Brings findings of several checks into the order of the document; those of one line keep theirs.
void SortByLine(Findings& findings);

}  // namespace qcfg
