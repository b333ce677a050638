#include "qreg/corba/connect.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <system_error>

namespace qreg::corba {

namespace {

/// The error number that connecting ends with, 0 when it succeeds.
int Await(int socket, const addrinfo& address, std::chrono::milliseconds limit) {
    int error = ::connect(socket, address.ai_addr, address.ai_addrlen) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        pollfd source{socket, POLLOUT, 0};
        error = ETIMEDOUT;
        if (::poll(&source, 1, static_cast<int>(limit.count())) > 0) {
            socklen_t size = sizeof error;
            ::getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
        }
    }
    return error;
}

}  // namespace

Connection Connect(const std::string& host, int port, std::chrono::milliseconds limit) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int problem = ::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (problem != 0) {
        return {nullptr, problem == EAI_SYSTEM ? std::generic_category().message(errno) : ::gai_strerror(problem)};
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> addresses(found, &::freeaddrinfo);
    auto socket = std::make_unique<const qstd::Descriptor>(
        ::socket(addresses->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int error = socket->Get() < 0 ? errno : Await(socket->Get(), *addresses, limit);
    if (error != 0) {
        return {nullptr, std::generic_category().message(error)};
    }
    ::fcntl(socket->Get(), F_SETFL, ::fcntl(socket->Get(), F_GETFL) & ~O_NONBLOCK);
    return {std::move(socket), {}};
}

}  // namespace qreg::corba
