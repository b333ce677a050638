#include "qstd/strings.h"

#include <cerrno>

namespace qstd {

std::vector<std::string> TokenizeString(const std::string& text, char separator) {
    std::vector<std::string> tokens;
    std::string::size_type begin = 0;
    while (begin <= text.size()) {
        const auto found = text.find(separator, begin);
        const auto end = found == std::string::npos ? text.size() : found;
        if (end > begin) {
            tokens.push_back(text.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    return tokens;
}

std::string GetProgName() {
    return program_invocation_short_name;
}

std::string OneLine(const std::string& text) {
    constexpr unsigned char c_firstPrintable = 0x20;
    constexpr unsigned char c_delete = 0x7f;
    // The second half of the control characters, which terminals obey as well, is C2 80 to C2 9F in UTF-8.
    constexpr unsigned char c_lead = 0xc2;
    constexpr unsigned char c_first = 0x80;
    constexpr unsigned char c_last = 0x9f;
    std::string line = text;
    unsigned char before = 0;
    for (std::size_t index = 0; index < line.size(); ++index) {
        const auto code = static_cast<unsigned char>(line[index]);
        if (code < c_firstPrintable || code == c_delete) {
            line[index] = '?';
        } else if (before == c_lead && code >= c_first && code <= c_last) {
            line[index - 1] = '?';
            line[index] = '?';
        }
        before = code;
    }
    return line;
}

}  // namespace qstd
