#pragma once

#include <sys/types.h>
#include <csignal>
#include <ctime>

#include <chrono>
#include <mutex>
#include <optional>

namespace bmc::ipmi {

/// Ends blocking calls of a foreign library, which knows no deadline or measures it by a clock that may be set.
///
/// A timer on the monotonic clock sends a signal to the thread that makes the call, at the deadline and every few
/// milliseconds from then on, until the call has come back: one that waits in poll() ends with EINTR, one that was just
/// about to wait ends with the next signal. The signal is SIGURG: nobody else uses it, its default is to be ignored and
/// debuggers do not stop at it. Its handler does nothing; it is installed at the first use in the process and stays.
/// The thread gets no other signals during a call, so that none but the guard's ends it; those to the process go to
/// other threads. When End has returned, no signal is under way any more.
///
/// Begin and End are called in turns by the thread that makes the calls; Interrupt and TakeInterruption by any.
class CallGuard {
public:
    using Time = std::chrono::steady_clock::time_point;

    CallGuard() = default;
    CallGuard(const CallGuard&) = delete;
    CallGuard& operator=(const CallGuard&) = delete;
    /// @pre no call is under way
    ~CallGuard();

    /// To be called before the guarded call, which is ended from @p deadline on; at once when that has passed.
    /// @throws qstd::Exception when the host has no timer left
    void Begin(Time deadline);

    /// To be called after the guarded call, however it came back.
    void End() noexcept;

    /// Ends the call under way, or else the next one as soon as it waits.
    void Interrupt() noexcept;

    /// Whether Interrupt was called and nobody was told of it yet. To be asked before a call, which then need not be
    /// made, and after one that failed; one that succeeded leaves the interruption to the next.
    bool TakeInterruption() noexcept;

private:
    void MakeTimer();
    void SetTimer(const timespec& first) noexcept;

    std::mutex m_mutex;              ///< guards all that follows but the mask
    std::optional<timer_t> m_timer;  ///< sends the signal to m_thread
    pid_t m_thread = 0;              ///< the one that makes the calls
    bool m_isCalling = false;        ///< between Begin and End
    bool m_isInterrupted = false;
    sigset_t m_formerMask{};  ///< signals that the thread blocked before the call; only that thread uses it
};

}  // namespace bmc::ipmi
