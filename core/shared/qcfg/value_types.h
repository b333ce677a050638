#pragma once

#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "qcfg/value_type.h"
#include "qstd/enum_map.h"

// The value types that configurations are made of.

namespace qcfg {

/// true, false, 1, 0, yes, no, on, off, in any case.
ValueTypePtr Boolean();

/// A whole number @p least..@p most, both included. In a text also "0x" and hexadecimal digits, at most 32 bits.
ValueTypePtr Whole(long long least, long long most);

/// The same, but with "0x" in an attribute too.
ValueTypePtr WholeOrHex(long long least, long long most);

/// A finite number @p least..@p most, both included. In a text also "0x" and hexadecimal digits, at most 32 bits.
ValueTypePtr Real(double least, double most = std::numeric_limits<double>::infinity());

/// Any text but the empty one. @param what what it says, for people: "path of a file"
ValueTypePtr Text(const std::string& what);

/// An IPv4 or IPv6 address.
ValueTypePtr Address();

/// An IPv4 or IPv6 address, or a prefix of addresses as ADDRESS/BITS.
ValueTypePtr AddressPrefix();

/// "all", or ids separated by commas without blanks, each a decimal number of 32 bits or "0x" and hexadecimal digits.
ValueTypePtr IdList();

/// One of @p items by its exact name or its decimal number.
/// @param schemaName name of the type in the XML schema @param what what it names, for people: "board type"
ValueTypePtr NameOrNumber(const std::string& schemaName, const std::string& what,
                          std::vector<std::pair<std::string, long long>> items);

/// A value of an enumeration by its name in qstd::EnumMap or its number, as qstd::EnumFromString takes it.
template <class E>
ValueTypePtr EnumName(const std::string& schemaName, const std::string& what) {
    std::vector<std::pair<std::string, long long>> items;
    for (const auto& [value, name] : qstd::EnumMap<E>::items.GetNames()) {
        items.emplace_back(name, static_cast<long long>(value));
    }
    return NameOrNumber(schemaName, what, std::move(items));
}

}  // namespace qcfg
