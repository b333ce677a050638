#include "bmc/sim/access_gate.h"

namespace bmc::sim {

std::unique_lock<std::mutex> AccessGate::Enter() {
    std::unique_lock<std::mutex> access(m_access);
    if (m_isSlow.load(std::memory_order_acquire)) {
        WaitDelay();
    }
    m_failure.Check();
    return access;
}

void AccessGate::WaitDelay() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        const std::chrono::milliseconds delay = m_delay;
        const auto deadline = std::chrono::steady_clock::now() + delay;
        if (!m_delayChanged.wait_until(lock, deadline, [this, delay] { return m_delay != delay; })) {
            return;
        }
    }
}

void AccessGate::SetDelay(std::chrono::milliseconds delay) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_delay = delay;
    m_isSlow.store(delay.count() > 0, std::memory_order_release);
    m_delayChanged.notify_all();
}

std::chrono::milliseconds AccessGate::GetDelay() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_delay;
}

}  // namespace bmc::sim
