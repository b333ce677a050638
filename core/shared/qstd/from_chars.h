#pragma once

#include <charconv>
#include <type_traits>

namespace qstd {

/// As std::from_chars, and rounded to the nearest number on every platform: the C++ library's own for 32-bit processors
/// computes some of them in more digits than a double has and rounds twice. "C" locale; any thread.
std::from_chars_result FromChars(const char* begin, const char* end, double& value);

/// As std::from_chars.
template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
std::from_chars_result FromChars(const char* begin, const char* end, I& value, int base = 10) {
    return std::from_chars(begin, end, value, base);
}

}  // namespace qstd
