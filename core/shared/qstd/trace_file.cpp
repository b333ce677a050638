#include "qstd/trace_file.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "qstd/exception.h"
#include "qstd/time.h"

namespace qstd {

TraceFile& TraceFile::GetInstance() {
    static auto* const instance = new TraceFile;  // never destroyed: workers trace until the very end of the process
    return *instance;
}

void TraceFile::Open(const std::string& fileName, int level) {
    if (level < 1 || level > c_maxLevel) {
        throw Exception(fmt::format("Trace level {} is not in the range 1..{}", level, c_maxLevel));
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_file.Open(fileName, false)) {
        throw Exception(fmt::format("Cannot open trace file {}: {}", fileName, std::strerror(errno)));
    }
    m_fileName = fileName;
    m_fileLevel = level;
    UpdateLevel();
}

void TraceFile::Reopen() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (m_file.IsOpen()) {
        m_file.Open(m_fileName, false);
    }
}

void TraceFile::Close() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_file.Close();
    m_fileLevel = 0;
    UpdateLevel();
}

void TraceFile::Listen(std::function<void(const Record&)> listener, int level) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_listenerLevel = listener ? level : 0;
    m_listener = std::move(listener);
    UpdateLevel();
}

void TraceFile::UpdateLevel() {
    m_level.store(std::max(m_fileLevel, m_listenerLevel), std::memory_order_relaxed);
}

void TraceFile::Trace(int level, std::string_view function, std::string_view source, int line, std::string_view text) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (level <= m_listenerLevel) {
        m_listener(Record{level, function, source, line, text});
    }
    if (level <= m_fileLevel) {
        m_file.WriteHeader(fmt::format("[{}] {} ({}) {}:{} {}: {}\n", Time::Now(Time::c_current).ToString(), level,
                                       ::gettid(), source, line, function, text));
    }
}

void TraceWrite(int level, std::string_view function, std::string_view source, int line, std::string_view text) {
    TraceFile::GetInstance().Trace(level, function, source, line, text);
}

}  // namespace qstd
