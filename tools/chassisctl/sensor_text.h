#pragma once

#include <optional>
#include <string>
#include <string_view>

// How sensor tables write numbers and names. Pure functions, callable from any thread.

namespace chassisctl {

/// What a cell that should hold a number says.
enum class Cell_e {
    number,        ///< a finite number
    notAvailable,  ///< "na", "n/a", "Disabled" in any case, or nothing
    notFinite,     ///< an infinity, "nan", or a number that a double cannot hold
    malformed,     ///< anything else
};

struct NumberCell {
    Cell_e kind = Cell_e::notAvailable;
    double number = 0.0;  ///< meaningful only for Cell_e::number
};

/// Reads a cell, blanks around it allowed. The decimal separator is a point or, when there is no point, one comma.
NumberCell ReadNumber(std::string_view cell);

/// The shortest text that reads back to the same double. @param number finite
std::string ShortestNumber(double number);

/// @p text without the blanks and tabs at both ends.
std::string_view Trim(std::string_view text);

/// Whether both are the same but for the case of ASCII letters.
bool EqualIgnoringCase(std::string_view left, std::string_view right);

/// Why @p text cannot stand in an XML attribute on one line: not well-formed UTF-8, a control character, or a code
/// point that XML does not have. Nothing when it can.
std::optional<std::string> WhyNotPrintable(std::string_view text);

/// @p text fit for a terminal: bytes that WhyNotPrintable objects to become "?".
std::string Printable(std::string_view text);

}  // namespace chassisctl
