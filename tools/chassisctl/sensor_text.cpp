#include "tools/chassisctl/sensor_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <system_error>

#include "qstd/from_chars.h"

namespace chassisctl {

namespace {

constexpr std::string_view c_blanks = " \t";

char ToLower(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool IsNotAvailable(std::string_view cell) {
    static constexpr std::array<std::string_view, 3> c_words{"na", "n/a", "disabled"};
    return cell.empty() || std::any_of(c_words.begin(), c_words.end(),
                                       [&](std::string_view word) { return EqualIgnoringCase(cell, word); });
}

/// One code point at the front of a text: how many bytes it takes (0: not well-formed) and which it is.
struct CodePoint {
    std::size_t size = 0;
    std::uint32_t value = 0;
};

CodePoint ReadCodePoint(std::string_view text) {
    struct Form {
        std::uint32_t mask, lead, first;  // bits that tell the form, their value, the smallest code point it may write
        std::size_t size;
    };
    static constexpr std::array<Form, 4> c_forms{
        {{0x80, 0x00, 0x0, 1}, {0xe0, 0xc0, 0x80, 2}, {0xf0, 0xe0, 0x800, 3}, {0xf8, 0xf0, 0x10000, 4}}};
    const auto lead = static_cast<unsigned char>(text.front());
    for (const Form& form : c_forms) {
        if ((lead & form.mask) != form.lead) {
            continue;
        }
        if (text.size() < form.size) {
            return {};
        }
        std::uint32_t value = lead & ~form.mask & 0xffU;
        for (std::size_t i = 1; i < form.size; ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            if ((byte & 0xc0U) != 0x80U) {
                return {};
            }
            value = (value << 6U) | (byte & 0x3fU);
        }
        const bool isSurrogate = value >= 0xd800 && value <= 0xdfff;
        return value < form.first || value > 0x10ffff || isSurrogate ? CodePoint{} : CodePoint{form.size, value};
    }
    return {};
}

/// Null when the code point may stand in a name.
const char* WhyNot(const CodePoint& point) {
    if (point.size == 0) {
        return "not valid UTF-8";
    }
    if (point.value < 0x20 || (point.value >= 0x7f && point.value <= 0x9f)) {
        return "holds a control character";
    }
    return point.value == 0xfffe || point.value == 0xffff ? "holds a character that XML does not have" : nullptr;
}

}  // namespace

NumberCell ReadNumber(std::string_view cell) {
    cell = Trim(cell);
    if (IsNotAvailable(cell)) {
        return {Cell_e::notAvailable, 0.0};
    }
    std::string text(cell);
    if (text.find('.') == std::string::npos && std::count(text.begin(), text.end(), ',') == 1) {
        std::replace(text.begin(), text.end(), ',', '.');
    }
    const std::size_t sign = text.front() == '+' && text.size() > 1 && text[1] != '-' ? 1 : 0;
    double number = 0.0;
    const auto [stop, error] = qstd::FromChars(text.data() + sign, text.data() + text.size(), number);
    if (stop != text.data() + text.size() || error == std::errc::invalid_argument) {
        return {Cell_e::malformed, 0.0};
    }
    return error != std::errc() || !std::isfinite(number) ? NumberCell{Cell_e::notFinite, 0.0}
                                                          : NumberCell{Cell_e::number, number};
}

std::string ShortestNumber(double number) {
    std::array<char, 32> buffer{};  // 24 are enough for any double
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
    return {buffer.data(), result.ptr};
}

std::string_view Trim(std::string_view text) {
    const auto begin = text.find_first_not_of(c_blanks);
    return begin == std::string_view::npos ? std::string_view()
                                           : text.substr(begin, text.find_last_not_of(c_blanks) - begin + 1);
}

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](char one, char other) { return ToLower(one) == ToLower(other); });
}

std::optional<std::string> WhyNotPrintable(std::string_view text) {
    while (!text.empty()) {
        const CodePoint point = ReadCodePoint(text);
        if (const char* why = WhyNot(point)) {
            return why;
        }
        text.remove_prefix(point.size);
    }
    return std::nullopt;
}

std::string Printable(std::string_view text) {
    std::string printable;
    while (!text.empty()) {
        const CodePoint point = ReadCodePoint(text);
        const std::size_t size = std::max<std::size_t>(point.size, 1);
        printable += WhyNot(point) == nullptr ? text.substr(0, size) : "?";
        text.remove_prefix(size);
    }
    return printable;
}

}  // namespace chassisctl
