#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "bmc/sim/model_clock.h"

namespace bmc::sim {

/// What was done to the hardware, oldest first, the latest c_maxEntries of it. All operations may be called from any
/// thread.
class Journal {
public:
    static constexpr std::size_t c_maxEntries = 65536;

    struct Entry {
        double seconds = 0;               ///< since the start, host time
        std::string uri;                  ///< of the board
        std::vector<std::string> action;  ///< its name, then its arguments
    };

    /// Entries from one sequence number on.
    struct Extract {
        std::uint64_t dropped = 0;  ///< so many were asked for and are no longer there
        std::uint64_t next = 0;     ///< sequence number after the last entry of the extract
        std::vector<Entry> entries;
    };

    /// @param clock outlives the journal
    explicit Journal(const ModelClock& clock) : m_clock(clock) {}

    void Add(const std::string& uri, std::vector<std::string> action);

    /// At most @p most entries from sequence number @p first on; the first entry ever has the number 0.
    Extract Get(std::uint64_t first, std::size_t most) const;

    /// Called after each new entry, on the thread that adds it; it may not call back. After the listener was replaced
    /// (null: nobody), the old one is not called any more.
    void SetListener(std::function<void()> listener);

private:
    const ModelClock& m_clock;
    mutable std::mutex m_mutex;  ///< guards all below
    std::deque<Entry> m_entries;
    std::uint64_t m_dropped = 0;  ///< also the sequence number of the oldest entry
    std::function<void()> m_listener;
};

}  // namespace bmc::sim
