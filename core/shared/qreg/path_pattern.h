#pragma once

#include <string>
#include <string_view>

namespace qreg {

/// Whether @p pattern takes in the node at @p path: names separated by "/", "*" in a name for any characters of that
/// name, a name "**" for any number of names, none included. A pattern takes in everything below what it matches; the
/// empty one takes in everything. Empty names are passed over. Takes time in proportion to the product of both lengths
/// at most, whatever the pattern. Any thread.
bool Matches(std::string_view pattern, std::string_view path) noexcept;

/// The pattern that takes in the same as @p pattern, without what only costs time: "*" and "**" repeated, empty names.
std::string Simplified(std::string_view pattern);

}  // namespace qreg
