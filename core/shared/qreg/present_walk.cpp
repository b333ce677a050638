#include "qreg/present_walk.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "qreg/path_pattern.h"
#include "qreg/reg_node.h"
#include "qstd/clock.h"

namespace qreg {

bool WantsPath(const Filter& filter, std::string_view path) noexcept {
    return filter.patterns.empty() ||
           std::any_of(filter.patterns.begin(), filter.patterns.end(),
                       [path](const std::string& pattern) { return Matches(pattern, path); });
}

std::vector<std::shared_ptr<Event>> PresentWalk::Next(std::size_t max, std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    std::vector<std::shared_ptr<Event>> events;
    const auto visit = [&](const Access::Step& step) {
        m_last = step.path.empty() ? "/" : step.path;
        if (WantsPath(m_filter, step.path)) {
            Outcome outcome = Access::Read(step.node);
            if (outcome.code != ErrorCode_e::not_readable) {
                events.push_back(std::make_shared<Event>(Event{0, c_presentType, qstd::Clock::Get().SystemNow(),
                                                               std::string(step.path), std::move(outcome.value)}));
            }
        }
        return events.size() < max && std::chrono::steady_clock::now() < end;
    };
    // A visit writes m_last, which the walk reads only before the first one.
    const std::string after = m_last;
    m_isAtEnd = m_access.Walk({}, std::numeric_limits<std::size_t>::max(), after, visit);
    return events;
}

}  // namespace qreg
