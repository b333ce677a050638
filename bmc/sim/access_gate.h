#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "bmc/sim/injected_failure.h"

namespace bmc::sim {

/// What an access is for, which decides what becomes of it when the service stops.
enum class Access_e {
    reading,   ///< changes nothing
    writing,   ///< changes a register or the clock
    switching  ///< switches the board off, or shuts it down
};

/// The one way to a board's controller: lets one access through at a time, as slow as it is told to be, raises the
/// injected failure, and gives up what comes too late for a stop of the service. What is injected is behind a lock of
/// its own, so setting it never waits for an access, and ends a delay that is running. All operations may be called
/// from any thread.
class AccessGate {
public:
    /// @param board the uri's text, for messages
    explicit AccessGate(std::string board) : m_board(std::move(board)) {}
    AccessGate(const AccessGate&) = delete;
    AccessGate& operator=(const AccessGate&) = delete;
    ~AccessGate() = default;

    /// Waits for its turn and for the injected delay. The access lasts as long as the lock that is returned.
    /// @throws qstd::Exception the injected failure, if one is set after the delay
    /// @throws BrokenOff, qstd::Exception when it is too late, as Backend::LimitAccesses says
    [[nodiscard]] std::unique_lock<std::mutex> Enter(Access_e access = Access_e::reading);

    /// How long each access takes from now on; the one that is waiting starts its delay anew.
    void SetDelay(std::chrono::milliseconds delay);
    std::chrono::milliseconds GetDelay() const;

    /// Gives accesses up from @p deadline on, as Backend::LimitAccesses says, the calling thread being the one that
    /// stops the service. @param patience how long those may last that are let through
    void LimitAccesses(std::chrono::steady_clock::time_point deadline, std::chrono::milliseconds patience);

    InjectedFailure& Failure() noexcept { return m_failure; }
    const InjectedFailure& Failure() const noexcept { return m_failure; }

private:
    using TimePoint = std::chrono::steady_clock::time_point;

    struct Limit {
        TimePoint deadline;
        std::chrono::milliseconds patience;
        std::thread::id stopper;  ///< the thread that stops the service
    };

    void WaitDelay(Access_e access, TimePoint begin);
    void CheckInTime(Access_e access, TimePoint begin) const;
    // Under m_mutex:
    bool IsLetThrough(Access_e access) const;
    TimePoint LastMoment(Access_e access, TimePoint begin) const;
    void UpdateHindered();

    const std::string m_board;
    std::mutex m_access;  ///< held while an access has its effect, never during a delay
    InjectedFailure m_failure;
    std::atomic<bool> m_isHindered{false};  ///< by a delay, or by a limit
    mutable std::mutex m_mutex;             ///< guards all below
    std::condition_variable m_changed;
    std::chrono::milliseconds m_delay{0};
    bool m_isDelaying = false;  ///< an access is in its delay: the next one waits until it is over
    std::optional<Limit> m_limit;
};

}  // namespace bmc::sim
