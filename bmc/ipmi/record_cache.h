#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/record_source.h"

namespace bmc::ipmi {

/// The bytes of a cache file: a magic and a version, the place, the records and what they depend on, a CRC-32.
std::string EncodeCacheFile(const std::string& place, const BoardRecords& records);

/// The records of a cache file; nothing when it is none, is damaged, or is of another place. Any bytes are safe.
std::optional<BoardRecords> DecodeCacheFile(std::string_view bytes, const std::string& place);

/// The folder in which the sensor records of boards are kept over restarts of the service: a file for each board, named
/// after it ("io_1.sdr"), for the service's account only. What is read from it is not trusted. A file that cannot be
/// read is as good as none; one that cannot be written is logged once. Any thread; files of different boards.
class RecordCache {
public:
    /// @param folder made when it is not there (its parent has to be); empty: nothing is kept
    /// @param isReadOnly what is kept is given, and nothing is made, written or logged
    RecordCache(std::string folder, LogFunction log, bool isReadOnly = false);

    /// What is kept of a board. @param place how it was reached: records of another place are not given
    std::optional<BoardRecords> Load(const std::string& label, const std::string& place) const;

    /// Keeps @p records in place of what was kept.
    void Store(const std::string& label, const std::string& place, const BoardRecords& records);

private:
    std::string PathOf(const std::string& label) const;

    const std::string m_folder;
    const LogFunction m_log;
    const bool m_isReadOnly;
    std::atomic<bool> m_isProblemTold{false};
};

}  // namespace bmc::ipmi
