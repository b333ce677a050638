#pragma once

#include <string>
#include <variant>

#include "qstd/bi_map.h"
#include "qstd/enum_map.h"

namespace qnode::enums {

/// What a node holds. The numbers are part of the registry protocol and never change; others may be added.
enum class ValueType_e : unsigned short {
    empty = 0,    ///< no value: a node that only has children
    integer = 2,  ///< whole number
    real = 6,     ///< double precision number
    text = 8,     ///< UTF-8 text
};

}  // namespace qnode::enums

namespace qnode {

/// A value of any of the value types; the first alternative is no value.
using Value = std::variant<std::monostate, int, double, std::string>;

/// The type of @p value.
enums::ValueType_e TypeOf(const Value& value) noexcept;

/// The value as text: a double in as few digits as read back to the same value, "nan" and "inf" included; no value is
/// the empty text.
std::string ToText(const Value& value);

}  // namespace qnode

namespace qstd {

template <>
const BiMap<qnode::enums::ValueType_e> EnumMap<qnode::enums::ValueType_e>::items;

}  // namespace qstd
