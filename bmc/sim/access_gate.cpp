#include "bmc/sim/access_gate.h"

#include <algorithm>

#include "bmc/broken_off.h"
#include "qstd/exception.h"

namespace bmc::sim {

std::unique_lock<std::mutex> AccessGate::Enter(Access_e access) {
    std::unique_lock<std::mutex> entered(m_access);
    if (m_isHindered.load(std::memory_order_acquire)) {
        entered.unlock();
        const TimePoint begin = std::chrono::steady_clock::now();
        WaitDelay(access, begin);
        entered.lock();
        // With the access in hand: whoever enters later comes after the effect of this one, or this one has none.
        CheckInTime(access, begin);
    }
    m_failure.Check();
    return entered;
}

void AccessGate::WaitDelay(Access_e access, TimePoint begin) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto now = std::chrono::steady_clock::now;
    while (m_isDelaying && now() < LastMoment(access, begin)) {
        m_changed.wait_until(lock, LastMoment(access, begin));
    }
    if (m_isDelaying) {
        return;
    }
    m_isDelaying = true;
    std::chrono::milliseconds delay = m_delay;
    TimePoint end = now() + delay;
    while (now() < std::min(end, LastMoment(access, begin))) {
        m_changed.wait_until(lock, std::min(end, LastMoment(access, begin)));
        if (m_delay != delay) {
            delay = m_delay;
            end = now() + delay;
        }
    }
    m_isDelaying = false;
    m_changed.notify_all();
}

void AccessGate::CheckInTime(Access_e access, TimePoint begin) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (std::chrono::steady_clock::now() < LastMoment(access, begin)) {
        return;
    }
    if (!IsLetThrough(access)) {
        throw BrokenOff(m_board);
    }
    throw qstd::Exception("Board " + m_board + " did not answer within " + std::to_string(m_limit->patience.count()) +
                              " ms: the access was given up",
                          true);
}

bool AccessGate::IsLetThrough(Access_e access) const {
    return access == Access_e::switching ||
           (access == Access_e::writing && m_limit->stopper == std::this_thread::get_id());
}

AccessGate::TimePoint AccessGate::LastMoment(Access_e access, TimePoint begin) const {
    if (!m_limit) {
        return TimePoint::max();
    }
    return IsLetThrough(access) ? std::max(begin, m_limit->deadline) + m_limit->patience : m_limit->deadline;
}

void AccessGate::SetDelay(std::chrono::milliseconds delay) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_delay = delay;
    UpdateHindered();
}

std::chrono::milliseconds AccessGate::GetDelay() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_delay;
}

void AccessGate::LimitAccesses(TimePoint deadline, std::chrono::milliseconds patience) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_limit = Limit{deadline, patience, std::this_thread::get_id()};
    UpdateHindered();
}

void AccessGate::UpdateHindered() {
    m_isHindered.store(m_delay.count() > 0 || m_limit, std::memory_order_release);
    m_changed.notify_all();
}

}  // namespace bmc::sim
