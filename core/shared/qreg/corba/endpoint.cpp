#include "qreg/corba/endpoint.h"

#include <cerrno>
#include <cstdint>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "qstd/exception.h"

namespace qreg::corba {

namespace {

bool HasIpv6() {
    const int socket = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (socket < 0) {
        return false;
    }
    ::close(socket);
    return true;
}

}  // namespace

Endpoint::Endpoint(const std::string& address, int port, Transport_e transport) {
    sockaddr_in v4{};
    v4.sin_family = AF_INET;
    v4.sin_port = htons(static_cast<std::uint16_t>(port));
    sockaddr_in6 v6{};
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(static_cast<std::uint16_t>(port));
    v6.sin6_addr = in6addr_any;

    const std::string prefix = PrefixOf(transport);
    const std::string portText = ":" + std::to_string(port);
    m_name = (address.empty() ? "*" : address) + portText;
    const bool isV4 = address.empty() ? !HasIpv6() : ::inet_pton(AF_INET, address.c_str(), &v4.sin_addr) == 1;
    if (isV4) {
        m_text = prefix + (address.empty() ? "0.0.0.0" : address) + portText;
        Probe(&v4, sizeof(v4), AF_INET);
    } else if (address.empty()) {
        m_text = prefix + portText;
        Probe(&v6, sizeof(v6), AF_INET6);
    } else if (::inet_pton(AF_INET6, address.c_str(), &v6.sin6_addr) == 1) {
        m_name = "[" + address + "]" + portText;
        m_text = prefix + m_name;
        Probe(&v6, sizeof(v6), AF_INET6);
    } else {
        throw qstd::Exception(Refusal("\"" + address + "\" is neither an IPv4 nor an IPv6 address"), true);
    }
}

const char* Endpoint::PrefixOf(Transport_e transport) noexcept {
    return transport == Transport_e::tls ? "giop:ssl:" : "giop:tcp:";
}

std::string Endpoint::Refusal(const std::string& reason) const {
    return "Cannot listen on " + m_name + ": " + reason;
}

void Endpoint::Probe(const void* address, unsigned size, int family) const {
    const int socket = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    const bool canListen = socket >= 0 && ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)) == 0 &&
                           ::bind(socket, static_cast<const sockaddr*>(address), size) == 0 && ::listen(socket, 1) == 0;
    const int error = errno;
    if (socket >= 0) {
        ::close(socket);
    }
    if (!canListen) {
        throw qstd::Exception(Refusal(std::generic_category().message(error)), true);
    }
}

}  // namespace qreg::corba
