#pragma once

#include <boost/lexical_cast.hpp>
#include <cstdint>
#include <string>

#include "qstd/bi_map.h"
#include "qstd/exception.h"

namespace qstd {

/// The name table of an enumeration. Whoever owns the enumeration defines the specialised member.
template <class E>
struct EnumMap {
    static const BiMap<E> items;
};

/// An enumeration value given as text: its exact name or, failing that, its decimal number.
/// @throws Exception "Invalid integer value" when it is neither a name nor a number, "Invalid enum value" when the
///         number is none of the enumeration's.
template <class E>
E EnumFromString(const std::string& text) {
    if (const auto named = EnumMap<E>::items.FindValue(text)) {
        return *named;
    }
    std::int64_t number = 0;
    if (!boost::conversion::try_lexical_convert(text, number)) {
        throw Exception("Invalid integer value");
    }
    if (const auto numbered = EnumMap<E>::items.FindNumber(number)) {
        return *numbered;
    }
    throw Exception("Invalid enum value");
}

}  // namespace qstd
