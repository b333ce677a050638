#pragma once

#include <cstddef>
#include <string>

namespace qstd {

/// A text file of lines with headers and trailers, for example one record a line. Appends: what an earlier run wrote is
/// never cut. Nothing here throws but for want of memory, and nothing waits for a reader. Not for use from several
/// threads at once; a copy shares nothing with its original and starts closed.
class LogFile {
public:
    LogFile() = default;
    LogFile(const LogFile&) noexcept {}
    LogFile& operator=(const LogFile&) noexcept { return *this; }
    /// Closes the file without FileTrailer(), which only Close() writes.
    virtual ~LogFile();

    /// Opens @p fileName for appending; creates it, and the folders above it, when needed. Writes FileHeader() when
    /// the file is new and empty, AppendBanner() when it holds something.
    /// @param truncate cut the file to nothing first
    /// A file that is open already is closed as by Close().
    /// @return false, with nothing changed and the reason in `errno`, when the file cannot be opened; false, with the
    ///         object closed, when the header or banner cannot be written.
    bool Open(const std::string& fileName, bool truncate);

    bool IsOpen() const noexcept { return m_descriptor >= 0; }

    /// Writes @p text as it stands, without header and trailer, in one piece. @return whether all of it is in the
    /// file; a text that could be written only in part is taken back.
    bool WriteHeader(const std::string& text);

    /// Writes one line: LineHeader(), @p size bytes of @p text, LineTrailer(), a newline, in one piece.
    /// @return whether all of it is in the file; a line that could be written only in part is taken back.
    bool Write(const char* text, std::size_t size);

    /// Writes FileTrailer() and closes the file. No effect when it is closed.
    void Close();

protected:
    virtual std::string FileHeader() const { return {}; }
    virtual std::string FileTrailer() const { return {}; }
    virtual std::string LineHeader() const { return {}; }
    virtual std::string LineTrailer() const { return {}; }
    virtual std::string AppendBanner() const { return {}; }

private:
    bool Append(const std::string& bytes) const;

    int m_descriptor = -1;
};

}  // namespace qstd
