#pragma once

#include <chrono>
#include <thread>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// From which moment on accesses are given up because the service stops, see bmc::Backend::LimitAccesses. A value.
struct StopLimit {
    SteadyTime deadline;
    std::chrono::milliseconds patience;  ///< for what is let through
    std::thread::id stopper;             ///< the thread that stops the service

    bool HasPassed(SteadyTime now) const noexcept { return now >= deadline; }

    /// Whether requests of @p purpose that @p caller makes are executed after the deadline: what switches power, what
    /// the stopper writes, and what tells whether something written before has been done.
    bool LetsThrough(Purpose_e purpose, std::thread::id caller) const noexcept;

    /// When a request made at @p begin is given up.
    SteadyTime LastMoment(Purpose_e purpose, std::thread::id caller, SteadyTime begin) const noexcept;
};

}  // namespace bmc::ipmi
