#include "qreg/write_turns.h"

#include <tuple>

namespace qreg {

WriteTurns::Turn::Turn(WriteTurns& turns, const std::string& node) : m_turns(turns) {
    std::unique_lock<std::mutex> lock(m_turns.m_mutex);
    bool isFree = false;
    while (!isFree) {
        std::tie(m_own, isFree) = m_turns.m_written.insert(node);
        if (!isFree) {
            m_turns.m_ended.wait(lock);
        }
    }
}

WriteTurns::Turn::~Turn() {
    {
        const std::lock_guard<std::mutex> guard(m_turns.m_mutex);
        m_turns.m_written.erase(m_own);
    }
    m_turns.m_ended.notify_all();
}

}  // namespace qreg
