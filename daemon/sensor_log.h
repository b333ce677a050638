#pragma once

#include <string>

#include "qstd/log_file.h"
#include "qstd/time.h"

/// The sensor log of one board: a text file to which a record of all the board's sensors is appended at a time. The
/// file is opened and closed for every record, so it may be moved or deleted in between. A header with the column names
/// goes before the first record that the object writes. For one thread.
class SensorLog : public qstd::LogFile {
public:
    /// Checks that the file can be written; a file that cannot costs a warning, and is tried again with every record.
    /// @param fileName path of the file; folders that are missing are made
    /// @param boardId the board's label
    /// @param columns the line of column names
    SensorLog(const std::string& fileName, const std::string& boardId, const std::string& columns);

    /// The header's nine lines.
    std::string Header();

    /// Appends one record, the header before it when it is the first. A record that cannot be written costs one
    /// warning.
    void WriteMessage(const std::string& line);

protected:
    std::string FileHeader() const override;
    std::string LineHeader() const override;

private:
    bool TryWrite(const std::string& line);

    std::string m_fileName;
    std::string m_boardId;
    std::string m_columns;
    qstd::Time m_time;
    bool m_headerPending;
};
