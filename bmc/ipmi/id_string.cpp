#include "bmc/ipmi/id_string.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

// The IPMI library gives id strings as the bytes they are stored in, whatever their coding.

namespace bmc::ipmi {

namespace {

using Bytes = std::span<const std::uint8_t>;

/// "BCD plus": two characters a byte, the first one in the high half.
std::string FromBcd(Bytes bytes, std::size_t length) {
    constexpr std::string_view c_characters = "0123456789 -.:,_";
    std::string text;
    for (std::size_t i = 0; i < std::min(length, bytes.size() * 2); ++i) {
        const unsigned int shift = i % 2 == 0 ? 4 : 0;
        text += c_characters[(bytes[i / 2] >> shift) & 0x0fU];
    }
    return text;
}

/// 6-bit ASCII: four characters in three bytes, the first one in the lowest bits; they begin at the blank.
std::string FromSixBit(Bytes bytes, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < std::min(length, bytes.size() * 8 / 6); ++i) {
        const std::size_t bit = i * 6;
        unsigned int two = bytes[bit / 8];
        if (bit / 8 + 1 < bytes.size()) {
            two |= static_cast<unsigned int>(bytes[bit / 8 + 1]) << 8;
        }
        text += static_cast<char>(' ' + ((two >> (bit % 8)) & 0x3fU));
    }
    return text;
}

/// Two bytes a character, the low one first. Controllers that say so but give plain text are known.
std::string FromUnicode(Bytes bytes, std::size_t length) {
    if (bytes.size() < 2 || bytes[1] != 0) {
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(length, bytes.size()))};
    }
    std::string text;
    for (std::size_t i = 0; i < std::min(length, bytes.size() / 2); ++i) {
        text += bytes[2 * i + 1] == 0 ? static_cast<char>(bytes[2 * i]) : '?';
    }
    return text;
}

}  // namespace

std::string DecodeIdString(std::uint8_t typeLength, std::span<const std::uint8_t> bytes) {
    const std::size_t length = typeLength & 0x1fU;
    std::string text;
    switch (typeLength >> 6) {
        case 0:
            text = FromUnicode(bytes, length);
            break;
        case 1:
            text = FromBcd(bytes, length);
            break;
        case 2:
            text = FromSixBit(bytes, length);
            break;
        default:
            text.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(std::min(length, bytes.size())));
            break;
    }
    text.resize(std::min(text.size(), text.find('\0')));
    std::replace_if(
        text.begin(), text.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

}  // namespace bmc::ipmi
