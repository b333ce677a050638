#include "qstd/convert.h"

#include <algorithm>
#include <array>
#include <boost/core/demangle.hpp>
#include <cmath>
#include <string_view>
#include <utility>

namespace qstd {

namespace {

/// Enough for six significant digits, a sign, a point and an exponent, and for any 64-bit integer.
constexpr std::size_t c_numberSize = 32;
constexpr int c_streamPrecision = 6;

char ToLowerAscii(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

std::string CppName(const std::type_info& type) {
    return boost::core::demangle(type.name());
}

bool ToBool(const std::string& text) {
    static constexpr std::array<std::pair<std::string_view, bool>, 8> c_words{{{"true", true},
                                                                               {"false", false},
                                                                               {"1", true},
                                                                               {"0", false},
                                                                               {"yes", true},
                                                                               {"no", false},
                                                                               {"on", true},
                                                                               {"off", false}}};
    for (const auto& [word, value] : c_words) {
        if (std::equal(word.begin(), word.end(), text.begin(), text.end(),
                       [](char expected, char given) { return expected == ToLowerAscii(given); })) {
            return value;
        }
    }
    throw Exception("Bad bool cast from " + text);
}

void AppendNumber(std::string& text, double value) {
    if (std::isnan(value)) {
        text += "nan";
        return;
    }
    std::array<char, c_numberSize> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value, std::chars_format::general,
                                      c_streamPrecision);
    text.append(buffer.data(), result.ptr);
}

void AppendNumber(std::string& text, long long value) {
    std::array<char, c_numberSize> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    text.append(buffer.data(), result.ptr);
}

std::string NumberText(double value) {
    std::string text;
    AppendNumber(text, value);
    return text;
}

bool Equal(double left, double right) noexcept {
    if (std::isnan(left) || std::isnan(right)) {
        return std::isnan(left) && std::isnan(right);
    }
    if (std::isinf(left) || std::isinf(right)) {
        return left == right;
    }
    constexpr double c_tolerance = 1e-9;
    return std::fabs(left - right) <= c_tolerance * std::max({1.0, std::fabs(left), std::fabs(right)});
}

}  // namespace qstd
