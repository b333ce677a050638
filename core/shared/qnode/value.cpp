#include "qnode/value.h"

#include <array>
#include <charconv>
#include <cmath>

namespace qstd {

using qnode::enums::ValueType_e;

template <>
const BiMap<ValueType_e> EnumMap<ValueType_e>::items{{ValueType_e::empty, "empty"},
                                                     {ValueType_e::integer, "integer"},
                                                     {ValueType_e::real, "double"},
                                                     {ValueType_e::text, "string"}};

}  // namespace qstd

namespace qnode {

enums::ValueType_e TypeOf(const Value& value) noexcept {
    using enums::ValueType_e;
    constexpr std::array c_types{ValueType_e::empty, ValueType_e::integer, ValueType_e::real, ValueType_e::text};
    return c_types.at(value.index());
}

std::string ToText(const Value& value) {
    if (const auto* text = std::get_if<std::string>(&value)) {
        return *text;
    }
    constexpr std::size_t c_longest = 32;
    std::array<char, c_longest> digits{};
    char* end = digits.data();
    if (const auto* real = std::get_if<double>(&value)) {
        if (std::isnan(*real)) {
            return "nan";
        }
        end = std::to_chars(digits.data(), digits.data() + digits.size(), *real).ptr;
    } else if (const auto* integer = std::get_if<int>(&value)) {
        end = std::to_chars(digits.data(), digits.data() + digits.size(), *integer).ptr;
    }
    return {digits.data(), end};
}

}  // namespace qnode
