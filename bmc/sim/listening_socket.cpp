#include "bmc/sim/listening_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "qstd/exception.h"

namespace bmc::sim {

namespace {

constexpr mode_t c_mode = 0660;
constexpr int c_backlog = 32;

[[noreturn]] void Raise(const std::string& path, const std::string& reason) {
    throw qstd::Exception("control socket " + path + ": " + reason);
}

sockaddr_un AddressOf(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    constexpr std::size_t c_limit = sizeof(address.sun_path) - 1;
    if (path.size() > c_limit) {
        Raise(path, "the path has " + std::to_string(path.size()) + " bytes, the limit is " + std::to_string(c_limit));
    }
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

FileDescriptor NewSocket(const std::string& path) {
    FileDescriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (made.Get() < 0) {
        Raise(path, std::strerror(errno));
    }
    return made;
}

/// Removes a socket file that nobody listens on. Leaves anything else alone.
void RemoveStale(const std::string& path, const sockaddr_un& address) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return;  // nothing there, or binding will tell
    }
    if (!S_ISSOCK(status.st_mode)) {
        Raise(path, "exists and is not a socket");
    }
    const FileDescriptor probe = NewSocket(path);
    const int result = ::connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    if (result == 0 || errno != ECONNREFUSED) {
        Raise(path, result == 0 || errno == EAGAIN ? "in use by another process" : std::strerror(errno));
    }
    if (::unlink(path.c_str()) != 0) {
        Raise(path, std::string("cannot remove what an earlier run left: ") + std::strerror(errno));
    }
}

}  // namespace

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(m_number, other.m_number);
    return *this;
}

FileDescriptor::~FileDescriptor() {
    if (m_number >= 0) {
        ::close(m_number);
    }
}

void ListeningSocket::CheckPath(const std::string& path) {
    AddressOf(path);
}

ListeningSocket::ListeningSocket(const std::string& path) : m_path(path) {
    const sockaddr_un address = AddressOf(path);
    RemoveStale(path, address);
    m_socket = NewSocket(path);
    // The mode of the socket is that of the file it is bound to, less the umask: at no time more than wanted.
    if (::fchmod(Get(), c_mode) != 0 ||
        ::bind(Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        Raise(path, errno == EADDRINUSE ? "in use by another process" : std::strerror(errno));
    }
    struct stat status {};
    if (::chmod(path.c_str(), c_mode) != 0 || ::lstat(path.c_str(), &status) != 0 || ::listen(Get(), c_backlog) != 0) {
        const std::string reason = std::strerror(errno);
        ::unlink(path.c_str());
        Raise(path, reason);
    }
    m_device = status.st_dev;
    m_inode = status.st_ino;
}

ListeningSocket::~ListeningSocket() {
    struct stat status {};
    if (::lstat(m_path.c_str(), &status) == 0 && status.st_dev == m_device && status.st_ino == m_inode) {
        ::unlink(m_path.c_str());
    }
}

}  // namespace bmc::sim
