#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "bmc/board.h"
#include "bmc/sweep.h"
#include "bmc/uri.h"

namespace bmc {

/// A way to reach boards: the simulated chassis, or real controllers. The boards it hands out live as long as it does.
/// All operations may be called from any thread.
class Backend {
public:
    Backend() = default;
    Backend(const Backend&) = delete;
    Backend& operator=(const Backend&) = delete;
    virtual ~Backend() = default;

    /// The boards of the local chassis, always in the same order.
    virtual std::vector<Uri> GetAllLocalBoardUris() const = 0;

    /// The board, null when there is no such board (any more).
    virtual Board* GetBoard(const Uri& uri) = 0;

    /// Starts to read @p sensors, the boards side by side, and waits for none of them. A board or sensor that is
    /// missing or does not answer raises nothing here, nor does the stop of the service (BrokenOff): it shows when the
    /// sensor's reading is asked for. Nothing refers to @p sensors after the return.
    ///
    /// By default each sensor is read when its reading is asked for: right for boards that answer at once.
    /// @return never null
    virtual std::unique_ptr<Sweep> StartSweep(const SensorIds& /*sensors*/) { return std::make_unique<Sweep>(); }

    /// How long an access that LimitAccesses lets through may last. Twice that is within a service manager's patience.
    static constexpr std::chrono::seconds c_lastAccessMayTake{20};

    /// For the stop of the service, which must not last as long as slow boards do. From @p deadline to the end of the
    /// process every access to a board raises BrokenOff, also one that is under way at that moment, before it had an
    /// effect. Let through are what the calling thread writes, because it has to leave the chassis safe, and PowerDown
    /// and ShutDown of any thread, because a board past its limit is switched off all the same. They too are given up,
    /// with another qstd::Exception, when they last longer than c_lastAccessMayTake, counted from the deadline at the
    /// earliest.
    ///
    /// By default there is no limit: a backend whose boards cannot be slow needs none.
    virtual void LimitAccesses(std::chrono::steady_clock::time_point /*deadline*/) {}
};

}  // namespace bmc
