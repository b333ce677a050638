#include "bmc/ipmi/password.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "bmc/ipmi/descriptor.h"
#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

constexpr mode_t c_modeBits = 07777;

/// A buffer that is wiped at the end. Its size is more than any good file has.
struct Buffer {
    Buffer() = default;
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { ::explicit_bzero(bytes.data(), bytes.size()); }

    std::array<char, Secret::c_maxSize + 2> bytes{};
};

std::string ModeText(mode_t mode) {
    constexpr unsigned int c_bitsOfDigit = 3;
    constexpr unsigned int c_digits = 4;
    std::string text;
    for (unsigned int digit = c_digits; digit-- > 0;) {
        text += static_cast<char>('0' + ((mode >> (digit * c_bitsOfDigit)) & 7U));
    }
    return text;
}

[[noreturn]] void Refuse(const PasswordSource& source, const std::string& text) {
    throw qstd::Exception(std::string(source.isCredential ? "credential " : "password file ") + source.path + ": " +
                          text);
}

void CheckAccess(const PasswordSource& source, const struct stat& status) {
    if (!S_ISREG(status.st_mode)) {
        Refuse(source, "is not a regular file");
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        Refuse(source, "belongs to user " + std::to_string(status.st_uid) + ", must belong to root or to user " +
                           std::to_string(::geteuid()) + ", as whom this program runs");
    }
    const mode_t forbidden = S_IRGRP * (source.isCredential ? 0U : 1U) | S_IWGRP | S_IROTH | S_IWOTH;
    if ((status.st_mode & forbidden) != 0) {
        Refuse(source, "has mode " + ModeText(status.st_mode & c_modeBits) + ", must not be " +
                           (source.isCredential ? "writable by its group nor readable or writable by others"
                                                : "readable or writable by its group or by others (chmod 600)"));
    }
}

/// Reads until the buffer is full or the file ends. @return how many bytes there are.
std::size_t ReadBytes(const PasswordSource& source, int descriptor, Buffer& buffer) {
    std::size_t size = 0;
    while (size < buffer.bytes.size()) {
        const ssize_t count = ::read(descriptor, buffer.bytes.data() + size, buffer.bytes.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Refuse(source, std::string("cannot read: ") + std::strerror(errno));
        }
        if (count == 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    return size;
}

}  // namespace

Secret::Secret(const char* text, std::size_t size) : m_size(std::min(size, c_maxSize)) {
    std::copy_n(text, m_size, m_text.begin());
}

Secret::~Secret() {
    ::explicit_bzero(m_text.data(), m_text.size());
}

Secret ReadPassword(const PasswordSource& source) {
    // A pipe or a device under that name must not hang the caller.
    const Descriptor file(::open(source.path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.Get() < 0) {
        Refuse(source, errno == ELOOP ? "is a symbolic link, which is not followed"
                                      : std::string("cannot open: ") + std::strerror(errno));
    }
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) {
        Refuse(source, std::string("cannot look at it: ") + std::strerror(errno));
    }
    CheckAccess(source, status);

    Buffer buffer;
    const char* const begin = buffer.bytes.data();
    const char* const end = begin + ReadBytes(source, file.Get(), buffer);
    const char* const newline = std::find(begin, end, '\n');
    if (newline != end && newline + 1 != end) {
        Refuse(source, "has more than one line; the password is the only one");
    }
    const auto size = static_cast<std::size_t>(newline - begin);
    if (size == 0) {
        Refuse(source, "has no password in its first line");
    }
    if (size > Secret::c_maxSize) {
        Refuse(source, "the password has more than " + std::to_string(Secret::c_maxSize) + " bytes");
    }
    constexpr unsigned char c_delete = 0x7f;
    if (std::any_of(begin, newline, [](char letter) {
            const auto byte = static_cast<unsigned char>(letter);
            return byte < ' ' || byte == c_delete;
        })) {
        Refuse(source, "the password holds a control character");
    }
    return {begin, size};
}

}  // namespace bmc::ipmi
