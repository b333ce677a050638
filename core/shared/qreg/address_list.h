#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace qreg {

/// Addresses of the network, given one by one or by prefix: "10.0.0.7", "127.0.0.0/8", "fe80::/10". Bits behind those
/// of the prefix do not count. "::/0" is every address of IPv6, and none of IPv4: that is "0.0.0.0/0". Immutable after
/// it was filled, so safe to read from any thread.
class AddressList {
public:
    /// @throws qstd::Exception naming @p text when it is neither an IPv4 or IPv6 address nor a prefix of one.
    void Add(const std::string& text);

    bool IsEmpty() const noexcept { return m_prefixes.empty(); }

    /// Whether @p address (IPv4, IPv6, or IPv4 mapped into IPv6) is in the list; false for a text that is no address.
    bool Contains(const std::string& address) const;

private:
    static constexpr std::size_t c_bytes = 16;
    using Bytes = std::array<std::uint8_t, c_bytes>;  ///< IPv4 is mapped into IPv6

    struct Prefix {
        Bytes bytes{};
        unsigned bits = 0;
    };

    std::vector<Prefix> m_prefixes;
};

}  // namespace qreg
