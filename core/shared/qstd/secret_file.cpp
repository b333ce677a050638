#include "qstd/secret_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "qstd/descriptor.h"
#include "qstd/exception.h"

namespace qstd {

namespace {

constexpr mode_t c_modeBits = 07777;

std::string ModeText(mode_t mode) {
    constexpr unsigned int c_bitsOfDigit = 3;
    constexpr unsigned int c_digits = 4;
    std::string text;
    for (unsigned int digit = c_digits; digit-- > 0;) {
        text += static_cast<char>('0' + ((mode >> (digit * c_bitsOfDigit)) & 7U));
    }
    return text;
}

/// What is wrong with who owns the file and who may use it; empty when nothing is.
std::string AccessProblem(const struct stat& status, bool mayGroupRead) {
    if (!S_ISREG(status.st_mode)) {
        return "is not a regular file";
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        return "belongs to user " + std::to_string(status.st_uid) + ", must belong to root or to user " +
               std::to_string(::geteuid()) + ", as whom this program runs";
    }
    const mode_t forbidden = S_IRGRP * (mayGroupRead ? 0U : 1U) | S_IWGRP | S_IROTH | S_IWOTH;
    if ((status.st_mode & forbidden) != 0) {
        return "has mode " + ModeText(status.st_mode & c_modeBits) + ", must not be " +
               (mayGroupRead ? "writable by its group nor readable or writable by others"
                             : "readable or writable by its group or by others (chmod 600)");
    }
    return {};
}

/// Reads until @p bytes are full or the file ends. @return how many there are; -1 for an error, which errno names.
ssize_t ReadBytes(int descriptor, std::vector<char>& bytes) {
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ssize_t count = ::read(descriptor, bytes.data() + size, bytes.size() - size);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return -1;
        }
        if (count == 0) {
            break;
        }
        size += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(size);
}

}  // namespace

SecretFile::SecretFile(const std::string& kind, const std::string& path, bool mayGroupRead, std::size_t most) {
    const auto refuse = [&](const std::string& text) { throw Exception(kind + " " + path + ": " + text); };
    // A pipe or a device under that name must not hang the caller.
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (file.Get() < 0) {
        refuse(errno == ELOOP ? "is a symbolic link, which is not followed"
                              : std::string("cannot open: ") + std::strerror(errno));
    }
    struct stat status {};
    if (::fstat(file.Get(), &status) != 0) {
        refuse(std::string("cannot look at it: ") + std::strerror(errno));
    }
    const std::string problem = AccessProblem(status, mayGroupRead);
    if (!problem.empty()) {
        refuse(problem);
    }
    m_bytes.resize(most);
    const ssize_t size = ReadBytes(file.Get(), m_bytes);
    if (size < 0) {
        refuse(std::string("cannot read: ") + std::strerror(errno));
    }
    m_size = static_cast<std::size_t>(size);
}

SecretFile::~SecretFile() {
    ::explicit_bzero(m_bytes.data(), m_bytes.size());
}

}  // namespace qstd
