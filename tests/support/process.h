#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

/// How long tests wait for what has to come: as long as a machine that has much else to do may need for it, and below
/// the time that one test may take.
inline constexpr std::chrono::seconds c_waitLimit{100};

/// A program that a test runs from outside. It is killed at the latest when the object ends.
class Process {
public:
    /// Starts @p command, whose first word is the program's path. Its output goes to the two files; its input is the
    /// descriptor @p input, or nothing (/dev/null).
    Process(const std::vector<std::string>& command, const std::string& outputFile, const std::string& errorFile,
            const std::map<std::string, std::string>& environment = {}, std::optional<int> input = std::nullopt);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    int GetPid() const noexcept { return m_pid; }
    void Signal(int signal) const;

    /// Waits for the end. @return the exit status, minus the signal's number when a signal ended it; nothing when it
    /// still runs after @p limit.
    std::optional<int> Wait(std::chrono::milliseconds limit = c_waitLimit);

private:
    int m_pid;
    std::optional<int> m_status;
};

/// What a program that has ended left.
struct Result {
    std::optional<int> status;
    std::string output;
    std::string error;
};

/// Runs a program to its end.
Result RunProgram(const std::vector<std::string>& command, const std::map<std::string, std::string>& environment = {});

}  // namespace test
