#include "bmc/ipmi/link_state.h"

#include <algorithm>
#include <utility>

namespace bmc::ipmi {

namespace {

std::minstd_rand SeededRandom(const std::string& seed) {
    std::seed_seq sequence(seed.begin(), seed.end());
    return std::minstd_rand(sequence);
}

const char* SilenceWords(TransportFailure_e failure) {
    switch (failure) {
        case TransportFailure_e::refused:
            return "refused";
        case TransportFailure_e::broken:
            return "wrong answers";
        case TransportFailure_e::system:
            return "not reachable";
        case TransportFailure_e::noAnswer:
        case TransportFailure_e::interrupted:
            break;
    }
    return "no answer";
}

}  // namespace

BackOff::BackOff(std::chrono::milliseconds least, std::chrono::milliseconds most, const std::string& seed)
    : m_least(least), m_most(most), m_next(least), m_random(SeededRandom(seed)) {}

std::chrono::milliseconds BackOff::Next() {
    constexpr unsigned long c_leastPercent = 90;
    constexpr unsigned long c_spreadPercent = 20;
    const std::chrono::milliseconds wait = m_next;
    m_next = std::min(m_next * 2, m_most);
    return wait * static_cast<long>(c_leastPercent + m_random() % (c_spreadPercent + 1)) / 100;
}

std::string SilenceText(const Silence& silence) {
    return std::string(SilenceWords(silence.failure)) + " since " + silence.since.ToString() + ": " + silence.reason;
}

LinkState::Change_e LinkState::Answered() {
    const State_e before = std::exchange(m_state, State_e::answering);
    if (before == State_e::answering) {
        return Change_e::none;
    }
    m_backOff.StartAnew();
    if (before == State_e::unknown) {
        return Change_e::first;
    }
    ++m_returns;
    return Change_e::returned;
}

LinkState::Change_e LinkState::Failed(TransportFailure_e failure, const std::string& reason, SteadyTime now,
                                      const qstd::Time& calendar) {
    const State_e before = std::exchange(m_state, State_e::silent);
    if (before != State_e::silent) {
        m_silence.since = calendar;
        m_silence.begin = now;
    }
    const bool wasRefused = before == State_e::silent && m_silence.failure == TransportFailure_e::refused;
    m_silence.failure = failure;
    m_silence.reason = reason;
    if (failure == TransportFailure_e::refused && wasRefused) {
        // A controller may lock an account that is refused often. One refusal alone may be a damaged packet, a
        // controller that starts, or one whose slots are taken: its boards are not left alone that long for it.
        m_backOff.GoToMost();
    }
    m_nextProbe = now + m_backOff.Next();
    return before == State_e::silent ? Change_e::none : Change_e::fellSilent;
}

}  // namespace bmc::ipmi
