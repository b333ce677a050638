#include "qapp/pid_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "qstd/exception.h"
#include "qstd/strings.h"

namespace qapp {

namespace {

constexpr mode_t c_fileMode = 0644;

[[noreturn]] void Fail(const std::string& fileName, int descriptor, const std::string& reason) {
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    throw qstd::Exception("Cannot write pid file " + fileName + ": " + reason);
}

/// What the file holds, as far as it can be a process id and its newline.
std::string Content(int descriptor) {
    constexpr std::size_t c_longest = 32;
    std::array<char, c_longest> buffer{};
    const ssize_t size = ::pread(descriptor, buffer.data(), buffer.size(), 0);
    return {buffer.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

/// Who holds the lock, as far as the file says.
std::string Holder(int descriptor) {
    const std::string text = Content(descriptor);
    return qstd::OneLine(text.substr(0, text.find('\n')));
}

/// Whether the file is empty or what an earlier run left, so that nothing is lost with its content.
bool IsPidFile(int descriptor) {
    constexpr std::size_t c_longestId = 20;
    const std::string text = Content(descriptor);
    const auto end = text.find_first_not_of("0123456789");
    return text.size() <= c_longestId && (end == std::string::npos || (end == text.size() - 1 && text[end] == '\n'));
}

/// Whether the file of that name is still the one that is open: another program may have removed it before the lock.
bool IsSameFile(const std::string& fileName, int descriptor) {
    struct stat named {};
    struct stat open {};
    return ::stat(fileName.c_str(), &named) == 0 && ::fstat(descriptor, &open) == 0 && named.st_ino == open.st_ino &&
           named.st_dev == open.st_dev;
}

}  // namespace

PidFile::~PidFile() {
    if (m_descriptor >= 0) {
        ::unlink(m_fileName.c_str());
        ::close(m_descriptor);
    }
}

void PidFile::Create(const std::string& fileName) {
    int descriptor = -1;
    for (;;) {
        descriptor = ::open(fileName.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, c_fileMode);
        if (descriptor < 0) {
            Fail(fileName, -1, std::strerror(errno));
        }
        if (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
            Fail(fileName, descriptor,
                 errno == EWOULDBLOCK ? "locked by process " + Holder(descriptor) : std::strerror(errno));
        }
        if (IsSameFile(fileName, descriptor)) {
            break;
        }
        ::close(descriptor);
    }
    if (!IsPidFile(descriptor)) {
        Fail(fileName, descriptor, "it holds something else than a process id");
    }
    const std::string text = std::to_string(::getpid()) + "\n";
    if (::ftruncate(descriptor, 0) != 0 ||
        ::pwrite(descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
        Fail(fileName, descriptor, std::strerror(errno));
    }
    m_descriptor = descriptor;
    m_fileName = fileName;
}

}  // namespace qapp
