#include "bmc/ipmi/fpga_template.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <system_error>
#include <utility>

#include "qstd/exception.h"
#include "qstd/strings.h"

namespace bmc::ipmi {

namespace {

constexpr unsigned int c_bitsOfByte = 8;
constexpr unsigned int c_byteMask = 0xff;

/// A byte, decimal or after "0x" hexadecimal.
std::optional<std::uint8_t> ParseByte(const std::string& text) {
    constexpr int c_hexadecimal = 16;
    constexpr int c_decimal = 10;
    const bool isHexadecimal = text.compare(0, 2, "0x") == 0;
    const char* const end = text.data() + text.size();
    std::uint8_t value = 0;
    const auto [stop, error] =
        std::from_chars(text.data() + (isHexadecimal ? 2 : 0), end, value, isHexadecimal ? c_hexadecimal : c_decimal);
    return error == std::errc() && stop == end ? std::optional(value) : std::nullopt;
}

std::uint8_t HighByte(std::uint16_t word) {
    return static_cast<std::uint8_t>(word >> c_bitsOfByte);
}

std::uint8_t LowByte(std::uint16_t word) {
    return static_cast<std::uint8_t>(word & c_byteMask);
}

}  // namespace

/// Reads one of the texts.
class FpgaTemplate::Parser {
public:
    Parser(const char* name, const std::string& text) : m_name(name) {
        std::istringstream words(text);
        for (std::string word; words >> word;) {
            m_tokens.push_back(Parse(word));
        }
        if (m_tokens.size() > c_maxSize) {
            Refuse("has " + std::to_string(m_tokens.size()) + " bytes, the limit is " + std::to_string(c_maxSize));
        }
    }

    /// Proves that each of the bytes that @p wanted names stands there once, and none of the others.
    void ProveUse(std::initializer_list<Token_e> wanted) const {
        for (const auto& [name, kind] : c_names) {
            const auto count = std::count_if(m_tokens.begin(), m_tokens.end(),
                                             [kind = kind](const Token& token) { return token.kind == kind; });
            const bool isWanted = std::find(wanted.begin(), wanted.end(), kind) != wanted.end();
            if (kind == Token_e::anything) {
                if (count > 0 && !isWanted) {
                    Refuse("\"*\" is for replies; a byte that is sent has a value");
                }
            } else if (isWanted && count == 0) {
                Refuse(std::string(name) + " is missing");
            } else if (isWanted && count > 1) {
                Refuse(std::string(name) + " stands there " + std::to_string(count) + " times, must once");
            } else if (!isWanted && count > 0) {
                Refuse(std::string(name) + " has no meaning there");
            }
        }
    }

    /// Proves that network function and command come first.
    void ProveCommand() const {
        constexpr std::uint8_t c_largestNetFn = 0x3e;
        constexpr std::size_t c_leastSize = 2;
        if (m_tokens.size() < c_leastSize || m_tokens[0].kind != Token_e::literal ||
            m_tokens[1].kind != Token_e::literal) {
            Refuse("must begin with two bytes, network function and command");
        }
        if (m_tokens[0].byte > c_largestNetFn || m_tokens[0].byte % 2 != 0) {
            Refuse("the network function is " + std::to_string(m_tokens[0].byte) +
                   ", must be an even number 0..62 (0x00..0x3e)");
        }
    }

    std::vector<Token> Take() { return std::move(m_tokens); }

private:
    static constexpr std::array<std::pair<const char*, Token_e>, 5> c_names = {{
        {"*", Token_e::anything},
        {"{addr:hi}", Token_e::addressHigh},
        {"{addr:lo}", Token_e::addressLow},
        {"{value:hi}", Token_e::valueHigh},
        {"{value:lo}", Token_e::valueLow},
    }};

    Token Parse(const std::string& word) const {
        for (const auto& [name, kind] : c_names) {
            if (word == name) {
                return {kind};
            }
        }
        const std::optional<std::uint8_t> byte = ParseByte(word);
        if (!byte) {
            Refuse("\"" + qstd::OneLine(word) +
                   "\" is neither a byte (0..255, 0x00..0xff) nor {addr:hi}, {addr:lo}, {value:hi}, {value:lo} or *");
        }
        return {Token_e::literal, *byte};
    }

    [[noreturn]] void Refuse(const std::string& text) const {
        throw qstd::Exception(std::string("attribute \"") + m_name + "\" of <fpga>: " + text);
    }

    const char* m_name;
    std::vector<Token> m_tokens;
};

FpgaTemplate::FpgaTemplate(const std::string& read, const std::string& write, const std::string& reply) {
    Parser readParser("read", read);
    readParser.ProveCommand();
    readParser.ProveUse({Token_e::addressHigh, Token_e::addressLow});
    Parser writeParser("write", write);
    writeParser.ProveCommand();
    writeParser.ProveUse({Token_e::addressHigh, Token_e::addressLow, Token_e::valueHigh, Token_e::valueLow});
    Parser replyParser("reply", reply);
    replyParser.ProveUse({Token_e::valueHigh, Token_e::valueLow, Token_e::anything});
    m_read = readParser.Take();
    m_write = writeParser.Take();
    m_reply = replyParser.Take();
}

Request FpgaTemplate::Make(const std::vector<Token>& tokens, std::uint16_t address, std::uint16_t value) {
    std::vector<std::uint8_t> bytes;
    bytes.reserve(tokens.size());
    for (const Token& token : tokens) {
        switch (token.kind) {
            case Token_e::addressHigh:
                bytes.push_back(HighByte(address));
                break;
            case Token_e::addressLow:
                bytes.push_back(LowByte(address));
                break;
            case Token_e::valueHigh:
                bytes.push_back(HighByte(value));
                break;
            case Token_e::valueLow:
                bytes.push_back(LowByte(value));
                break;
            case Token_e::literal:
            case Token_e::anything:  // in replies only
                bytes.push_back(token.byte);
                break;
        }
    }
    return {bytes[0], bytes[1], {bytes.begin() + 2, bytes.end()}};
}

Request FpgaTemplate::MakeRead(std::uint16_t address) const {
    return Make(m_read, address, 0);
}

Request FpgaTemplate::MakeWrite(std::uint16_t address, std::uint16_t value) const {
    return Make(m_write, address, value);
}

std::optional<std::uint16_t> FpgaTemplate::ReadReply(const std::vector<std::uint8_t>& data) const {
    if (data.size() < m_reply.size()) {
        return std::nullopt;
    }
    unsigned int value = 0;
    for (std::size_t i = 0; i < m_reply.size(); ++i) {
        const Token& token = m_reply[i];
        if (token.kind == Token_e::literal && token.byte != data[i]) {
            return std::nullopt;
        }
        if (token.kind == Token_e::valueHigh) {
            value |= static_cast<unsigned int>(data[i]) << c_bitsOfByte;
        } else if (token.kind == Token_e::valueLow) {
            value |= data[i];
        }
    }
    return static_cast<std::uint16_t>(value);
}

}  // namespace bmc::ipmi
