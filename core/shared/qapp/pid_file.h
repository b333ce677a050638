#pragma once

#include <string>

namespace qapp {

/// Holds the process id of the running program in a file that is locked while the object lives and removed at its end.
/// For one thread.
class PidFile {
public:
    PidFile() = default;
    PidFile(const PidFile&) = delete;
    PidFile& operator=(const PidFile&) = delete;
    ~PidFile();

    /// Creates the file, locks it and writes the process id.
    /// @throws qstd::Exception naming the file and the reason, or the process that holds the lock. A file that holds
    ///         something else than a process id is refused and stays as it is.
    void Create(const std::string& fileName);

private:
    std::string m_fileName;
    int m_descriptor = -1;
};

}  // namespace qapp
