#pragma once

#include <sys/types.h>

#include <string>

namespace bmc::sim {

/// A file descriptor that is closed at the end.
class FileDescriptor {
public:
    explicit FileDescriptor(int number = -1) noexcept : m_number(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();
    int Get() const noexcept { return m_number; }

private:
    int m_number;
};

/// A Unix stream socket that listens, with its file (mode 0660), which is removed at the end. Non-blocking.
class ListeningSocket {
public:
    /// A socket file that nobody listens on any more is replaced.
    /// @throws qstd::Exception naming @p path: too long, in use, not a socket, or cannot be made
    explicit ListeningSocket(const std::string& path);
    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;
    ~ListeningSocket();

    int Get() const noexcept { return m_socket.Get(); }

    /// @throws qstd::Exception when @p path is too long for a socket
    static void CheckPath(const std::string& path);

private:
    const std::string m_path;
    FileDescriptor m_socket;
    dev_t m_device = 0;  ///< with m_inode: the file that is ours to remove
    ino_t m_inode = 0;
};

}  // namespace bmc::sim
