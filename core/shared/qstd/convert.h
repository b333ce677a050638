#pragma once

#include <boost/lexical_cast.hpp>
#include <charconv>
#include <string>
#include <system_error>
#include <type_traits>
#include <typeinfo>

#include "qstd/exception.h"

// Conversions between numbers and text. All of them work in the "C" locale, whatever the environment says, and may be
// called from any thread. (FromString follows std::locale::global(), which this system therefore never calls.)

namespace qstd {

/// The readable name of a type as C++ writes it, for example "unsigned int".
std::string CppName(const std::type_info& type);

/// Hexadecimal text, with or without a leading "0x", to a number.
/// @throws Exception "Bad hex cast from TEXT to TYPE" when anything but hexadecimal digits is left, when there is no
///         digit, or when T cannot hold the number.
template <class T>
T HexTo(const std::string& text) {
    const bool hasPrefix = text.size() >= 2 && text[0] == '0' && text[1] == 'x';
    const char* const begin = text.data() + (hasPrefix ? 2 : 0);
    const char* const end = text.data() + text.size();
    T value{};
    const auto [stop, error] = std::from_chars(begin, end, value, 16);
    if (error != std::errc() || stop != end || *begin == '-') {
        throw Exception("Bad hex cast from " + text + " to " + CppName(typeid(T)));
    }
    return value;
}

/// Decimal text to a number, with the rules of `boost::lexical_cast`.
/// @throws Exception "Bad cast from TEXT to TYPE".
template <class T>
T FromString(const std::string& text) {
    T value{};
    if (!boost::conversion::try_lexical_convert(text, value)) {
        throw Exception("Bad cast from " + text + " to " + CppName(typeid(T)));
    }
    return value;
}

/// Text to boolean: true, false, 1, 0, yes, no, on, off, in any case.
/// @throws Exception "Bad bool cast from TEXT".
bool ToBool(const std::string& text);

/// Appends @p value as a stream with default settings writes it: six significant digits, "inf"; a NaN is "nan"
/// whatever its sign.
void AppendNumber(std::string& text, double value);

/// Appends @p value in decimal.
void AppendNumber(std::string& text, long long value);

/// Appends any other whole number in decimal; `bool` and characters as numbers.
template <class I, std::enable_if_t<std::is_integral_v<I>, int> = 0>
void AppendNumber(std::string& text, I value) {
    static_assert(sizeof(I) < sizeof(long long) || std::is_signed_v<I>, "does not fit into long long");
    AppendNumber(text, static_cast<long long>(value));
}

/// @p value as a stream with default settings writes it.
std::string NumberText(double value);

/// Tolerant equality: |a-b| <= 1e-9 * max(1, |a|, |b|). Two NaN are equal, equal infinities are equal; a NaN never
/// equals a number, nor does an infinity.
bool Equal(double left, double right) noexcept;

}  // namespace qstd
