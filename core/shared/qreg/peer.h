#pragma once

#include <string>

namespace qreg {

/// Who asks a registry server, as the transport knows it.
struct Peer {
    std::string address;       ///< without the port
    std::string subject{};     ///< of the certificate that it proved to have, in RFC 2253 form; empty: none
    bool isEncrypted = false;  ///< whether nobody between can read along

    /// "10.0.0.7", or "10.0.0.7 (CN=operator,O=Lab)": one line of limited length for logs.
    std::string ToText() const;
};

/// @p text for a log: one line, cut behind @p most bytes.
std::string ForLog(const std::string& text, std::size_t most);

}  // namespace qreg
