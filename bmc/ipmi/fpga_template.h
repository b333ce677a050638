#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bmc/ipmi/message.h"

namespace bmc::ipmi {

/// How registers of the fan controller are reached by a board's own commands, for example
///
///     read="0x30 0x10 {addr:hi} {addr:lo}" write="0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}"
///     reply="{value:hi} {value:lo}"
///
/// Bytes are decimal or, after "0x", hexadecimal, and separated by blanks. The first two bytes of a request are network
/// function and command, what follows is data. A reply is what follows the completion code: literal bytes must be
/// there,
/// "*" is any one byte, more bytes may follow. Once the revision register is set nothing changes, and any thread may
/// use it.
class FpgaTemplate {
public:
    /// The longest text, in bytes of the message.
    static constexpr std::size_t c_maxSize = 32;

    /// @throws qstd::Exception naming the text ("read", "write", "reply") and what is wrong with it
    FpgaTemplate(const std::string& read, const std::string& write, const std::string& reply);

    /// With the register that holds the revision of the FPGA.
    void SetRevisionRegister(std::uint16_t address) { m_revisionRegister = address; }
    std::optional<std::uint16_t> GetRevisionRegister() const { return m_revisionRegister; }

    Request MakeRead(std::uint16_t address) const;
    Request MakeWrite(std::uint16_t address, std::uint16_t value) const;

    /// The value in the data of a reply to MakeRead; nothing when the data is not as the template says.
    std::optional<std::uint16_t> ReadReply(const std::vector<std::uint8_t>& data) const;

private:
    /// What stands at a place of a message.
    enum class Token_e : std::uint8_t { literal, anything, addressHigh, addressLow, valueHigh, valueLow };
    struct Token {
        Token_e kind = Token_e::literal;
        std::uint8_t byte = 0;  ///< of a literal
    };
    class Parser;

    static Request Make(const std::vector<Token>& tokens, std::uint16_t address, std::uint16_t value);

    std::vector<Token> m_read;
    std::vector<Token> m_write;
    std::vector<Token> m_reply;
    std::optional<std::uint16_t> m_revisionRegister;
};

}  // namespace bmc::ipmi
