#pragma once

#include <condition_variable>
#include <mutex>
#include <set>
#include <string>

namespace qreg {

/// Lets the writes of one node through one after the other, those of different nodes side by side. Any thread.
class WriteTurns {
public:
    /// The right to write one node, for as long as it lives.
    class Turn {
    public:
        /// Waits until nobody else writes @p node. @param turns outlives this object
        Turn(WriteTurns& turns, const std::string& node);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        WriteTurns& m_turns;
        std::set<std::string>::iterator m_own;
    };

private:
    std::mutex m_mutex;  ///< guards m_written
    std::condition_variable m_ended;
    std::set<std::string> m_written;  ///< nodes that somebody writes
};

}  // namespace qreg
