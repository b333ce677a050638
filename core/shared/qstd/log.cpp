#include "qstd/log.h"

#include <fmt/format.h>
#include <poll.h>
#include <spdlog/pattern_formatter.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstddef>
#include <cstring>
#include <utility>

#include "qstd/exception.h"
#include "qstd/log_file.h"

static_assert(qstd::SourceName(__FILE__) == "core/shared/qstd/log", "trace records name framework sources by path");

namespace qstd {

namespace {

/// The level's name in a log line, padded so that every prefix is equally wide.
class LevelName : public spdlog::custom_flag_formatter {
public:
    void format(const spdlog::details::log_msg& message, const std::tm&, spdlog::memory_buf_t& out) override {
        fmt::format_to(std::back_inserter(out), "{:<8}", Name(message.level));
    }
    std::unique_ptr<spdlog::custom_flag_formatter> clone() const override { return std::make_unique<LevelName>(); }

private:
    static const char* Name(spdlog::level::level_enum level) {
        switch (level) {
            case spdlog::level::warn:
                return "WARNING";
            case spdlog::level::err:
                return "ERROR";
            case spdlog::level::critical:
                return "CRITICAL";
            default:
                return "INFO";
        }
    }
};

/// "[2026/11/21 14:03:07.512] INFO     text"; the level is the part that a terminal shows in colour.
std::unique_ptr<spdlog::formatter> MakeFormatter() {
    auto formatter = std::make_unique<spdlog::pattern_formatter>();
    formatter->add_flag<LevelName>('*').set_pattern("[%Y/%m/%d %H:%M:%S.%e] %^%*%$ %v");
    return formatter;
}

spdlog::details::log_msg MakeMessage(LogLevel_e level, const Time& time, const std::string& text) {
    static constexpr std::array c_levels{spdlog::level::info, spdlog::level::warn, spdlog::level::err,
                                         spdlog::level::critical};
    // A message that ends with a newline ends its last line with it: the writer's own newline would add an empty line.
    const std::size_t size = !text.empty() && text.back() == '\n' ? text.size() - 1 : text.size();
    const spdlog::log_clock::time_point at{std::chrono::microseconds(time.ToMicroseconds())};
    return {at, spdlog::source_loc(), spdlog::string_view_t(), c_levels.at(static_cast<std::size_t>(level)),
            spdlog::string_view_t(text.data(), size)};
}

/// Appends to one file and writes each message at once, whole or not at all. What cannot be written (a full disk) is
/// counted and said in the file as soon as it takes messages again.
class FileSink : public LogSink {
public:
    explicit FileSink(std::string fileName) : m_fileName(std::move(fileName)), m_formatter(MakeFormatter()) {
        if (!m_file.Open(m_fileName, false)) {
            throw Exception(fmt::format("Cannot open log file {}: {}", m_fileName, std::strerror(errno)));
        }
    }

    void Write(LogLevel_e level, const Time& time, const std::string& text) override {
        if (m_lost > 0) {
            const char* const form = m_lost == 1 ? "{} log message before this one could not be written: {}"
                                                 : "{} log messages before this one could not be written: {}";
            if (!Append(LogLevel_e::warning, time, fmt::format(fmt::runtime(form), m_lost, std::strerror(m_reason)))) {
                ++m_lost;
                return;
            }
            m_lost = 0;
        }
        if (!Append(level, time, text)) {
            ++m_lost;
        }
    }

    void Reopen() override {
        // When it cannot be opened, the file that is open goes on taking the messages under its new name.
        if (!m_file.Open(m_fileName, false)) {
            Write(LogLevel_e::warning, Time(Time::c_current),
                  fmt::format("Cannot open log file {} anew: {}. Messages go on to the file opened before.", m_fileName,
                              std::strerror(errno)));
        }
    }

private:
    bool Append(LogLevel_e level, const Time& time, const std::string& text) {
        spdlog::memory_buf_t line;
        m_formatter->format(MakeMessage(level, time, text), line);
        if (m_file.WriteHeader(std::string(line.data(), line.size()))) {
            return true;
        }
        m_reason = errno;
        return false;
    }

    std::string m_fileName;
    std::unique_ptr<spdlog::formatter> m_formatter;
    LogFile m_file;
    unsigned long long m_lost = 0;  ///< messages since the last one written
    int m_reason = 0;               ///< why the last of them was lost
};

/// Standard error, the level coloured on a terminal. A reader that does not keep up (a stopped terminal, a full pipe)
/// may hold up a message for a moment, then loses messages; it never holds up the program.
class StandardErrorSink : public LogSink {
public:
    StandardErrorSink() : m_formatter(MakeFormatter()), m_isTerminal(::isatty(STDERR_FILENO) != 0) {}

    void Write(LogLevel_e level, const Time& time, const std::string& text) override {
        if (m_lost > 0 && IsReady(0)) {
            const auto lost = std::exchange(m_lost, 0);
            Show(LogLevel_e::warning, time, fmt::format("{} log messages before this one could not be shown.", lost));
        }
        if (m_lost > 0 || !Show(level, time, text)) {
            ++m_lost;
        }
    }

private:
    static constexpr int c_patience = 100;  // milliseconds, for one message

    static bool IsReady(int timeout) {
        pollfd target{STDERR_FILENO, POLLOUT, 0};
        return ::poll(&target, 1, timeout) == 1 && (target.revents & POLLOUT) != 0;
    }

    bool Show(LogLevel_e level, const Time& time, const std::string& text) {
        const spdlog::details::log_msg message = MakeMessage(level, time, text);
        spdlog::memory_buf_t line;
        m_formatter->format(message, line);
        std::string bytes(line.data(), line.size());
        if (m_isTerminal) {
            static constexpr std::array<const char*, 4> c_colours{"\033[32m", "\033[33m", "\033[31m", "\033[1;31m"};
            bytes.insert(message.color_range_end, "\033[m");
            bytes.insert(message.color_range_start, c_colours.at(static_cast<std::size_t>(level)));
        }
        // A pipe that is ready takes this much at once without blocking.
        for (std::size_t done = 0; done < bytes.size();) {
            const std::size_t size = std::min<std::size_t>(bytes.size() - done, PIPE_BUF);
            if (!IsReady(c_patience)) {
                return false;
            }
            const ssize_t written = ::write(STDERR_FILENO, bytes.data() + done, size);
            if (written <= 0) {
                return false;
            }
            done += static_cast<std::size_t>(written);
        }
        return true;
    }

    std::unique_ptr<spdlog::formatter> m_formatter;
    bool m_isTerminal;
    unsigned long long m_lost = 0;
};

}  // namespace

std::atomic<bool> Log::m_enabled{false};

Log& Log::GetInstance() {
    static auto* const instance = new Log;
    return *instance;
}

std::shared_ptr<LogSink> Log::OpenFile(const std::string& fileName) {
    auto sink = std::make_shared<FileSink>(fileName);
    AddSink(sink);
    m_enabled = true;
    return sink;
}

std::shared_ptr<LogSink> Log::OpenStandardError() {
    auto sink = std::make_shared<StandardErrorSink>();
    AddSink(sink);
    m_enabled = true;
    return sink;
}

void Log::AddSink(const std::shared_ptr<LogSink>& sink) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_sinks.push_back(sink);
}

void Log::RemoveSink(const std::shared_ptr<LogSink>& sink) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_sinks.erase(std::remove(m_sinks.begin(), m_sinks.end(), sink), m_sinks.end());
}

void Log::Close() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_enabled = false;
    m_sinks.clear();
}

void Log::Reopen() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (const auto& sink : m_sinks) {
        sink->Reopen();
    }
}

void Log::Write(LogLevel_e level, const std::string& text) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const Time time(Time::c_current);  // one time for all sinks, taken under the lock: lines stand in its order
    for (const auto& sink : m_sinks) {
        sink->Write(level, time, text);
    }
}

}  // namespace qstd
