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
    std::string line = text;
    for (char& letter : line) {
        const auto code = static_cast<unsigned char>(letter);
        if (code < c_firstPrintable || code == c_delete) {
            letter = '?';
        }
    }
    return line;
}

}  // namespace qstd
