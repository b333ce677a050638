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
    int line = 0;  ///< of the element concerned, from 1
    std::string text;
};

using Findings = std::vector<Finding>;

/// "FILE:LINE: error: text", or "warning" for it. Any thread.
std::string ToText(const Finding& finding, const std::string& fileName);

/// Whether one of the findings is an error. Any thread.
bool HasError(const Findings& findings);

}  // namespace qcfg
