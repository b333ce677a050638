#include "qcfg/finding.h"

#include <algorithm>

#include "qcfg/document.h"

namespace qcfg {

std::string ToText(const Finding& finding, const std::string& fileName) {
    const char* const severity = finding.severity == Severity_e::error ? "error: " : "warning: ";
    return AtLine(fileName, finding.line, severity + finding.text);
}

bool HasError(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity_e::error; });
}

}  // namespace qcfg
