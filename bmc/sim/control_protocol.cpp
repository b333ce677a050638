#include "bmc/sim/control_protocol.h"

#include <array>
#include <charconv>
#include <cmath>
#include <system_error>

#include "qstd/exception.h"
#include "qstd/from_chars.h"
#include "qstd/strings.h"

namespace bmc::sim {

namespace {

/// Enough for the shortest form of any double and of any 64-bit integer.
constexpr std::size_t c_numberSize = 40;

template <class T, class... Format>
std::optional<T> Parse(const char* begin, const char* end, Format... format) {
    T value{};
    const auto [stop, error] = qstd::FromChars(begin, end, value, format...);
    return error == std::errc() && stop == end ? std::optional<T>(value) : std::nullopt;
}

}  // namespace

std::vector<std::string> SplitFields(const std::string& line) {
    std::vector<std::string> fields;
    std::size_t begin = 0;
    for (std::size_t end = line.find(c_fieldSeparator); end != std::string::npos;
         end = line.find(c_fieldSeparator, begin)) {
        fields.push_back(line.substr(begin, end - begin));
        begin = end + 1;
    }
    fields.push_back(line.substr(begin));
    return fields;
}

std::string JoinFields(const std::vector<std::string>& fields) {
    std::string line;
    for (const std::string& field : fields) {
        if (field.find_first_of(std::string("\t\n\0", 3)) != std::string::npos) {
            throw qstd::Exception("A field may not hold a tab, newline or null byte: \"" + qstd::OneLine(field) + "\"");
        }
        if (&field != &fields.front()) {
            line += c_fieldSeparator;
        }
        line += field;
    }
    return line;
}

std::string RealText(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    std::array<char, c_numberSize> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value);
    return {buffer.data(), result.ptr};
}

std::string AddressText(unsigned int address) {
    constexpr int c_hexadecimal = 16;
    std::array<char, c_numberSize> buffer{};
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), address, c_hexadecimal);
    return "0x" + std::string(buffer.data(), result.ptr);
}

std::optional<double> ParseReal(const std::string& text) {
    return Parse<double>(text.data(), text.data() + text.size());
}

std::optional<long long> ParseInteger(const std::string& text, long long least, long long most) {
    const auto value = Parse<long long>(text.data(), text.data() + text.size());
    return value && *value >= least && *value <= most ? value : std::nullopt;
}

std::optional<unsigned int> ParseRegister(const std::string& text) {
    constexpr unsigned int c_largest = 0xFFFF;
    constexpr int c_hexadecimal = 16;
    constexpr int c_decimal = 10;
    const bool isHexadecimal = text.compare(0, 2, "0x") == 0 || text.compare(0, 2, "0X") == 0;
    const auto value = Parse<unsigned int>(text.data() + (isHexadecimal ? 2 : 0), text.data() + text.size(),
                                           isHexadecimal ? c_hexadecimal : c_decimal);
    return value && *value <= c_largest ? value : std::nullopt;
}

}  // namespace bmc::sim
