#include "qstd/trace_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "qstd/exception.h"
#include "qstd/time.h"

namespace qstd {

namespace {

constexpr mode_t c_fileMode = 0640;

int OpenForAppending(const std::string& fileName) {
    return ::open(fileName.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, c_fileMode);
}

}  // namespace

TraceFile& TraceFile::GetInstance() {
    static auto* const instance = new TraceFile;  // never destroyed: workers trace until the very end of the process
    return *instance;
}

void TraceFile::Open(const std::string& fileName, int level) {
    if (level < 1 || level > c_maxLevel) {
        throw Exception(fmt::format("Trace level {} is not in the range 1..{}", level, c_maxLevel));
    }
    const int descriptor = OpenForAppending(fileName);
    if (descriptor < 0) {
        throw Exception(fmt::format("Cannot open trace file {}: {}", fileName, std::strerror(errno)));
    }
    Close();
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_descriptor = descriptor;
    m_fileName = fileName;
    m_level.store(level, std::memory_order_relaxed);
}

void TraceFile::Reopen() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_descriptor < 0) {
        return;
    }
    const int descriptor = OpenForAppending(m_fileName);
    if (descriptor >= 0) {
        ::close(std::exchange(m_descriptor, descriptor));
    }
}

void TraceFile::Close() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_level.store(0, std::memory_order_relaxed);
    if (m_descriptor >= 0) {
        ::close(std::exchange(m_descriptor, -1));
    }
}

void TraceFile::Listen(std::function<void(const Record&)> listener, int level) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_listener = std::move(listener);
    m_level.store(level, std::memory_order_relaxed);
}

void TraceFile::Trace(int level, std::string_view function, std::string_view source, int line, std::string_view text) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_listener) {
        m_listener(Record{level, function, source, line, text});
    }
    if (m_descriptor < 0) {
        return;
    }
    const std::string record = fmt::format("[{}] {} ({}) {}:{} {}: {}\n", Time::Now(Time::c_current).ToString(), level,
                                           ::gettid(), source, line, function, text);
    [[maybe_unused]] const auto written = ::write(m_descriptor, record.data(), record.size());
}

void TraceWrite(int level, std::string_view function, std::string_view source, int line, std::string_view text) {
    TraceFile::GetInstance().Trace(level, function, source, line, text);
}

}  // namespace qstd
