#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "qstd/log_file.h"

namespace qstd {

/// The program's trace: a file of records for those who look for a fault, off unless asked for. One object for the
/// whole process, never destroyed. All operations may be called from any thread.
class TraceFile {
public:
    /// The most detailed level.
    static constexpr int c_maxLevel = 4;

    /// What one record holds.
    struct Record {
        int level;                  ///< 1 (errors) .. 4 (everything)
        std::string_view function;  ///< signature of the function
        std::string_view source;    ///< name of the source, see SourceName
        int line;
        std::string_view text;
    };

    static TraceFile& GetInstance();

    /// Opens @p fileName for appending in place of the file that was open, and admits records up to @p level (1..4).
    /// @throws Exception naming the file and the reason; nothing is then changed.
    void Open(const std::string& fileName, int level);

    /// Opens the file anew under its name, after it was renamed by a log rotation. No effect when there is no file; one
    /// that cannot be opened anew stays open.
    void Reopen();

    /// Ends tracing and closes the file.
    void Close();

    /// Hands records up to @p level to @p listener too, from the tracing thread (null: no longer), whatever the file
    /// admits. The listener must not trace nor log. For tests and tools.
    void Listen(std::function<void(const Record&)> listener, int level);

    /// Whether a file or a listener takes records.
    bool IsEnabled() const noexcept { return GetLevel() > 0; }

    /// The most detailed level that the file or the listener admits; 0 when tracing is off.
    int GetLevel() const noexcept { return m_level.load(std::memory_order_relaxed); }

    /// Writes one record where its level is admitted. A record that cannot be written is lost without a word: the
    /// trace must never disturb the program.
    void Trace(int level, std::string_view function, std::string_view source, int line, std::string_view text);

private:
    TraceFile() = default;

    /// Works out m_level anew; m_mutex is held.
    void UpdateLevel();

    std::atomic<int> m_level{0};  ///< written under m_mutex
    std::mutex m_mutex;           ///< guards all below
    std::string m_fileName;
    LogFile m_file;
    int m_fileLevel = 0;
    std::function<void(const Record&)> m_listener;
    int m_listenerLevel = 0;
};

/// The trace's present level; 0 when tracing is off.
inline int TraceActiveLevel() noexcept {
    return TraceFile::GetInstance().GetLevel();
}

/// Writes one trace record. To be called only when TraceActiveLevel() admits @p level.
void TraceWrite(int level, std::string_view function, std::string_view source, int line, std::string_view text);

}  // namespace qstd
