#include "qcfg/finding.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <system_error>

#include "qcfg/document.h"

namespace qcfg {

namespace {

/// A message taken apart: "FILE:LINE: text".
struct PlacedText {
    std::string file;
    int line = 0;
    std::string text;
};

std::optional<PlacedText> TakeApart(const std::string& message) {
    for (std::size_t colon = message.find(':'); colon != std::string::npos; colon = message.find(':', colon + 1)) {
        int line = 0;
        const char* const end = message.data() + message.size();
        const auto [rest, error] = std::from_chars(message.data() + colon + 1, end, line);
        if (error == std::errc() && line > 0 && end - rest > 2 && rest[0] == ':' && rest[1] == ' ') {
            return PlacedText{message.substr(0, colon), line, std::string(rest + 2, end)};
        }
    }
    return std::nullopt;
}

}  // namespace

std::string ToText(const Finding& finding, const std::string& fileName) {
    const std::string text = (finding.severity == Severity_e::error ? "error: " : "warning: ") + finding.text;
    if (!finding.place.empty()) {
        return finding.place + ": " + text;
    }
    return finding.line > 0 ? AtLine(fileName, finding.line, text) : fileName + ": " + text;
}

bool HasError(const Findings& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& finding) { return finding.severity == Severity_e::error; });
}

Finding ErrorFrom(const std::string& message, const std::string& fileName, int line) {
    if (const auto placed = TakeApart(message)) {
        if (placed->file == fileName) {
            return {Severity_e::error, placed->line, placed->text};
        }
        // Addresses with a port look alike, but are no files.
        std::error_code ignored;
        if (std::filesystem::exists(placed->file, ignored)) {
            return {Severity_e::error, line, placed->text, placed->file + ":" + std::to_string(placed->line)};
        }
    }
    const std::string prefix = fileName + ": ";
    return {Severity_e::error, line, message.starts_with(prefix) ? message.substr(prefix.size()) : message};
}

void SortByLine(Findings& findings) {
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& left, const Finding& right) { return left.line < right.line; });
}

}  // namespace qcfg
