#include "qstd/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace qstd {

namespace {

constexpr mode_t c_fileMode = 0644;

int OpenDescriptor(const std::string& fileName) {
    // Never waits: a pipe without reader is refused, a full one takes no more.
    return ::open(fileName.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, c_fileMode);
}

}  // namespace

LogFile::~LogFile() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

bool LogFile::Open(const std::string& fileName, bool truncate) {
    int descriptor = OpenDescriptor(fileName);
    if (descriptor < 0 && errno == ENOENT) {
        const std::filesystem::path folder = std::filesystem::path(fileName).parent_path();
        std::error_code error;
        if (!folder.empty()) {
            std::filesystem::create_directories(folder, error);
        }
        if (error) {
            errno = error.value();
            return false;
        }
        descriptor = OpenDescriptor(fileName);
    }
    if (descriptor < 0) {
        return false;
    }
    Close();
    m_descriptor = descriptor;
    if (truncate) {
        // Only now, so that the trailer which Close() may have written to the same file goes too. What cannot be cut
        // (a device) need not be.
        [[maybe_unused]] const int cut = ::ftruncate(descriptor, 0);
    }
    struct stat status {};
    const bool isNew = ::fstat(descriptor, &status) != 0 || status.st_size == 0;
    if (!Append(isNew ? FileHeader() : AppendBanner())) {
        const int reason = errno;
        ::close(std::exchange(m_descriptor, -1));
        errno = reason;
        return false;
    }
    return true;
}

bool LogFile::WriteHeader(const std::string& text) {
    return Append(text);
}

bool LogFile::Write(const char* text, std::size_t size) {
    std::string line = LineHeader();
    line.append(text, size);
    line += LineTrailer();
    line += '\n';
    return Append(line);
}

void LogFile::Close() {
    if (m_descriptor >= 0) {
        Append(FileTrailer());
        ::close(std::exchange(m_descriptor, -1));
    }
}

bool LogFile::Append(const std::string& bytes) const {
    if (bytes.empty()) {
        return IsOpen();
    }
    if (!IsOpen()) {
        return false;
    }
    const off_t end = ::lseek(m_descriptor, 0, SEEK_END);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(m_descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            const int reason = written < 0 ? errno : ENOSPC;
            // Take a part of a line back: the next record must not be glued to it.
            if (done > 0 && end >= 0) {
                [[maybe_unused]] const int cut = ::ftruncate(m_descriptor, end);
            }
            errno = reason;
            return false;
        }
        done += static_cast<std::size_t>(written);
    }
    return true;
}

}  // namespace qstd
