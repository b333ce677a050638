#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "qstd/source_name.h"
#include "qstd/time.h"
#include "qstd/trace_file.h"

namespace qstd {

/// How much a log message matters.
enum class LogLevel_e {
    info,      ///< the ordinary course of things
    warning,   ///< something to look at; the system does its whole work
    error,     ///< part of the work is not done
    critical,  ///< hardware is in danger
};

/// Takes the messages of the log. Called from any thread, one message at a time. Must not throw and must not log.
class LogSink {
public:
    virtual ~LogSink() = default;
    /// Takes one message, which may hold several lines, of the given time.
    virtual void Write(LogLevel_e level, const Time& time, const std::string& text) = 0;
    /// Opens a file behind the sink anew under its name, after a log rotation renamed it.
    virtual void Reopen() {}
};

/// The program's log. One object for the whole process, never destroyed: the log stays open to the very end of the
/// process. All operations may be called from any thread.
class Log {
public:
    /// Whether the log helpers below pass messages on to the log.
    static std::atomic<bool> m_enabled;
    static Log& GetInstance();

    /// Appends messages to @p fileName from now on, which is created when needed, and enables the log. Messages that
    /// the file does not take (a full disk) disturb nobody; the file says how many they were once it takes more.
    /// @return what RemoveSink() takes. @throws Exception naming the file and the reason.
    std::shared_ptr<LogSink> OpenFile(const std::string& fileName);

    /// The same for standard error.
    std::shared_ptr<LogSink> OpenStandardError();

    void AddSink(const std::shared_ptr<LogSink>& sink);
    void RemoveSink(const std::shared_ptr<LogSink>& sink);
    void Close();  ///< Lets go of every sink and disables the log. A service never does.

    /// Opens the files anew under their names (SIGHUP). One that cannot be stays open and says so in a message.
    void Reopen();

    void Info(const std::string& text) { Write(LogLevel_e::info, text); }
    void Warning(const std::string& text) { Write(LogLevel_e::warning, text); }
    void Error(const std::string& text) { Write(LogLevel_e::error, text); }
    void Critical(const std::string& text) { Write(LogLevel_e::critical, text); }

private:
    Log() = default;
    void Write(LogLevel_e level, const std::string& text);

    std::mutex m_mutex;  ///< guards m_sinks and serialises the sinks
    std::vector<std::shared_ptr<LogSink>> m_sinks;
};

// The log helpers. Each first writes the message to the trace, at level 3 (info), 2 (warning) or 1 (error, critical),
// when the trace admits that level, and then passes it to the log when the log is enabled.

/// The ordinary course of things.
inline void LogInfo(const std::string& text) {
    if (TraceActiveLevel() > 2) {
        constexpr int c_line = __LINE__;
        static_assert(c_line == 75, "trace records of info messages are known by this line number");
        TraceWrite(3, __PRETTY_FUNCTION__, SourceName(__FILE__), c_line, text);
    }
    if (Log::m_enabled) {
        Log::GetInstance().Info(text);
    }
}

/// Something to look at; the system does its whole work.
inline void LogWarning(const std::string& text) {
    if (TraceActiveLevel() > 1) {
        TraceWrite(2, __PRETTY_FUNCTION__, SourceName(__FILE__), __LINE__, text);
    }
    if (Log::m_enabled) {
        Log::GetInstance().Warning(text);
    }
}

/// Part of the work is not done.
inline void LogError(const std::string& text) {
    if (TraceActiveLevel() > 0) {
        TraceWrite(1, __PRETTY_FUNCTION__, SourceName(__FILE__), __LINE__, text);
    }
    if (Log::m_enabled) {
        Log::GetInstance().Error(text);
    }
}

/// Hardware is in danger.
inline void LogCritical(const std::string& text) {
    if (TraceActiveLevel() > 0) {
        TraceWrite(1, __PRETTY_FUNCTION__, SourceName(__FILE__), __LINE__, text);
    }
    if (Log::m_enabled) {
        Log::GetInstance().Critical(text);
    }
}

}  // namespace qstd
