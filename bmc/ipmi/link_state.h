#pragma once

#include <chrono>
#include <optional>
#include <random>
#include <string>

#include "bmc/ipmi/transport.h"
#include "qstd/time.h"

namespace bmc::ipmi {

/// How long to wait from one probe to the next: doubles from @p least to @p most, each 10% longer or shorter at random,
/// so that controllers that fell silent together are not probed together for ever. Used by one thread.
class BackOff {
public:
    /// @param seed decides the random part: the same seed gives the same waits
    BackOff(std::chrono::milliseconds least, std::chrono::milliseconds most, const std::string& seed);

    std::chrono::milliseconds Next();
    void StartAnew() { m_next = m_least; }
    void GoToMost() { m_next = m_most; }

private:
    const std::chrono::milliseconds m_least;
    const std::chrono::milliseconds m_most;
    std::chrono::milliseconds m_next;
    std::minstd_rand m_random;
};

/// Why something does not answer, and since when.
struct Silence {
    TransportFailure_e failure = TransportFailure_e::noAnswer;  ///< of the last try
    std::string reason;                                         ///< of the last try
    qstd::Time since{qstd::Time::c_zero};                       ///< calendar time, for people
    SteadyTime begin{};                                         ///< the same moment, for durations
};

/// "no answer since 2026/11/21 14:03:07.512: REASON"; "refused since", "not reachable since", "wrong answers since".
std::string SilenceText(const Silence& silence);

/// What is known of somebody who is asked over a session: a state machine without clock, lock or I/O.
///
///     unknown --Answered--> answering     first
///     unknown, answering --Failed--> silent     fellSilent; a probe is due after the least back-off
///     silent --Failed--> silent     none; the next probe is due after twice the back-off
///     silent --Answered--> answering     returned
class LinkState {
public:
    enum class State_e {
        unknown,    ///< not asked yet
        answering,  ///< the last that was heard of it is an answer
        silent,     ///< it did not answer; it is asked by probes only
    };
    enum class Change_e { none, first, returned, fellSilent };

    explicit LinkState(BackOff backOff) : m_backOff(std::move(backOff)) {}

    Change_e Answered();

    /// @param now, calendar the present moment
    Change_e Failed(TransportFailure_e failure, const std::string& reason, SteadyTime now, const qstd::Time& calendar);

    State_e Get() const noexcept { return m_state; }
    bool IsSilent() const noexcept { return m_state == State_e::silent; }

    /// When the next probe is due. @pre IsSilent()
    SteadyTime NextProbe() const noexcept { return m_nextProbe; }

    /// The silence that lasts, or else the last one.
    const Silence& GetSilence() const noexcept { return m_silence; }

    /// How often it came back.
    unsigned long GetReturns() const noexcept { return m_returns; }

private:
    BackOff m_backOff;
    State_e m_state = State_e::unknown;
    Silence m_silence{};
    SteadyTime m_nextProbe{};
    unsigned long m_returns = 0;
};

}  // namespace bmc::ipmi
