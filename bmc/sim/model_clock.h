#pragma once

#include <chrono>

#include "qstd/clock.h"

namespace bmc::sim {

/// The time since the simulation began, on the steady clock. Immutable, so any thread may use it.
class ModelClock {
public:
    /// @param speed model seconds per second
    explicit ModelClock(double speed) : m_begin(qstd::Clock::Get().SteadyNow()), m_speed(speed) {}

    /// Seconds of the host since the start.
    double HostSeconds() const {
        return std::chrono::duration<double>(qstd::Clock::Get().SteadyNow() - m_begin).count();
    }

    /// Seconds of the model since the start.
    double ModelSeconds() const { return HostSeconds() * m_speed; }

private:
    std::chrono::steady_clock::time_point m_begin;
    double m_speed;
};

}  // namespace bmc::sim
