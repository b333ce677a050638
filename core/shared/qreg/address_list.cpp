#include "qreg/address_list.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <string_view>

#include "qstd/exception.h"

namespace qreg {

namespace {

constexpr std::size_t c_mappedAt = 12;  ///< where the IPv4 address stands in one that is mapped into IPv6
constexpr unsigned c_mappedBits = 96;
constexpr unsigned c_octet = 8;

/// An address in the 16 bytes of IPv6, and the number of leading bits that its own notation does not count.
template <class Bytes>
struct Parsed {
    Bytes bytes{};
    unsigned uncounted = 0;
};

template <class Bytes>
std::optional<Parsed<Bytes>> Parse(const std::string& text) {
    Parsed<Bytes> parsed;
    if (inet_pton(AF_INET6, text.c_str(), parsed.bytes.data()) == 1) {
        return parsed;
    }
    if (inet_pton(AF_INET, text.c_str(), parsed.bytes.data() + c_mappedAt) != 1) {
        return std::nullopt;
    }
    parsed.bytes[c_mappedAt - 2] = 0xFF;
    parsed.bytes[c_mappedAt - 1] = 0xFF;
    parsed.uncounted = c_mappedBits;
    return parsed;
}

/// @p bytes with nothing but zeros behind the first @p bits.
template <class Bytes>
Bytes Cut(Bytes bytes, unsigned bits) {
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const unsigned before = static_cast<unsigned>(index) * c_octet;
        const unsigned kept = bits > before ? std::min(bits - before, c_octet) : 0;
        bytes[index] = static_cast<std::uint8_t>(bytes[index] & (0xFF00U >> kept));
    }
    return bytes;
}

}  // namespace

void AddressList::Add(const std::string& text) {
    const auto refuse = [&text](const std::string& reason) {
        throw qstd::Exception("Bad address \"" + text + "\": " + reason);
    };
    const std::size_t slash = text.find('/');
    const auto parsed = Parse<Bytes>(text.substr(0, slash));
    if (!parsed || text.find('\0') != std::string::npos) {
        refuse("neither an IPv4 or IPv6 address nor a prefix of one");
    }
    Prefix prefix{parsed->bytes, c_bytes * c_octet};
    if (slash != std::string::npos) {
        const unsigned most = prefix.bits - parsed->uncounted;
        const char* const end = text.data() + text.size();
        unsigned length = 0;
        const auto [stop, error] = std::from_chars(text.data() + slash + 1, end, length);
        if (error != std::errc() || stop != end || length > most) {
            refuse("the length of a prefix is 0 to " + std::to_string(most));
        }
        prefix.bits = parsed->uncounted + length;
        prefix.bytes = Cut(prefix.bytes, prefix.bits);
    }
    m_prefixes.push_back(prefix);
}

bool AddressList::Contains(const std::string& address) const {
    // The zone of a link-local address ("fe80::1%eth0") says where it is, not which it is.
    const auto parsed = Parse<Bytes>(address.substr(0, address.find('%')));
    if (!parsed) {
        return false;
    }
    static const Bytes c_mapped = Parse<Bytes>("0.0.0.0")->bytes;
    const bool isMapped = Cut(parsed->bytes, c_mappedBits) == c_mapped;
    return std::any_of(m_prefixes.begin(), m_prefixes.end(), [&](const Prefix& prefix) {
        // Shorter ones are of IPv6: who lets "::/0" in has not thought of IPv4.
        return (prefix.bits >= c_mappedBits || !isMapped) && Cut(parsed->bytes, prefix.bits) == prefix.bytes;
    });
}

}  // namespace qreg
