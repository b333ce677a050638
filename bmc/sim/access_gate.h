#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "bmc/sim/injected_failure.h"

namespace bmc::sim {

/// The one way to a board's controller: lets one access through at a time, as slow as it is told to be, and raises the
/// injected failure. What is injected is behind a lock of its own, so setting it never waits for an access, and ends a
/// delay that is running. All operations may be called from any thread.
class AccessGate {
public:
    AccessGate() = default;
    AccessGate(const AccessGate&) = delete;
    AccessGate& operator=(const AccessGate&) = delete;
    ~AccessGate() = default;

    /// Waits for its turn and for the injected delay. The access lasts as long as the lock that is returned.
    /// @throws qstd::Exception the injected failure, if one is set after the delay
    [[nodiscard]] std::unique_lock<std::mutex> Enter();

    /// How long each access takes from now on; the one that is waiting starts its delay anew.
    void SetDelay(std::chrono::milliseconds delay);
    std::chrono::milliseconds GetDelay() const;

    InjectedFailure& Failure() noexcept { return m_failure; }
    const InjectedFailure& Failure() const noexcept { return m_failure; }

private:
    void WaitDelay();

    std::mutex m_access;  ///< held for the whole of an access
    InjectedFailure m_failure;
    std::atomic<bool> m_isSlow{false};
    mutable std::mutex m_mutex;  ///< guards the two below
    std::condition_variable m_delayChanged;
    std::chrono::milliseconds m_delay{0};
};

}  // namespace bmc::sim
