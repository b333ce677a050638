#include "bmc/sim/access_gate.h"

#include <algorithm>

#include "bmc/broken_off.h"

namespace bmc::sim {

std::unique_lock<std::mutex> AccessGate::Enter(Access_e access) {
    std::unique_lock<std::mutex> entered = TryEnter(access);
    if (!entered.owns_lock()) {
        throw TooLate(access);
    }
    return entered;
}

std::unique_lock<std::mutex> AccessGate::TryEnter(Access_e access) {
    std::unique_lock<std::mutex> entered(m_access);
    if (m_isHindered.load(std::memory_order_acquire)) {
        entered.unlock();
        const TimePoint begin = std::chrono::steady_clock::now();
        WaitDelay(access, begin);
        entered.lock();
        // Decided with the access in hand: what comes before it in time has had its effect, and nothing that was
        // given up has one after it.
        if (IsTooLate(access, begin)) {
            if (access != Access_e::switching && !IsStopper()) {
                throw BrokenOff(m_board);
            }
            return {};
        }
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

qstd::Exception AccessGate::TooLate(Access_e access) const {
    if (access == Access_e::reading) {
        return qstd::Exception(BrokenOff(m_board).what(), true);
    }
    const std::lock_guard<std::mutex> guard(m_mutex);
    return qstd::Exception("Board " + m_board + " did not answer within " + std::to_string(m_limit->patience.count()) +
                               " ms: the access was given up",
                           true);
}

bool AccessGate::IsTooLate(Access_e access, TimePoint begin) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return std::chrono::steady_clock::now() >= LastMoment(access, begin);
}

bool AccessGate::IsStopper() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_limit && m_limit->stopper == std::this_thread::get_id();
}

AccessGate::TimePoint AccessGate::LastMoment(Access_e access, TimePoint begin) const {
    if (!m_limit) {
        return TimePoint::max();
    }
    const bool isStopper = m_limit->stopper == std::this_thread::get_id();
    const bool isLetThrough = access == Access_e::switching || (access == Access_e::writing && isStopper);
    return isLetThrough ? std::max(begin, m_limit->deadline) + m_limit->patience : m_limit->deadline;
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
