#include "bmc/sim/journal.h"

#include <algorithm>
#include <utility>

namespace bmc::sim {

void Journal::Add(const std::string& uri, std::vector<std::string> action) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_entries.push_back(Entry{m_clock.HostSeconds(), uri, std::move(action)});
    if (m_entries.size() > c_maxEntries) {
        m_entries.pop_front();
        ++m_dropped;
    }
    if (m_listener) {
        m_listener();
    }
}

Journal::Extract Journal::Get(std::uint64_t first, std::size_t most) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    const std::uint64_t end = m_dropped + m_entries.size();
    const std::uint64_t begin = std::clamp(first, m_dropped, end);
    const std::uint64_t stop = begin + std::min<std::uint64_t>(most, end - begin);
    Extract extract;
    extract.dropped = first < begin ? begin - first : 0;
    extract.next = stop;
    for (std::uint64_t i = begin; i < stop; ++i) {
        extract.entries.push_back(m_entries.at(static_cast<std::size_t>(i - m_dropped)));
    }
    return extract;
}

void Journal::SetListener(std::function<void()> listener) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_listener = std::move(listener);
}

}  // namespace bmc::sim
