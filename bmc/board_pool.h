#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "bmc/backend.h"
#include "bmc/board.h"
#include "bmc/sweep.h"
#include "bmc/uri.h"

namespace bmc {

/// The process-wide registry of boards, in front of one backend. Apart from Open, all operations may be called from any
/// thread.
class BoardPool {
public:
    /// The one pool. Constructed at the first call; to outlive a worker it must be called before that is constructed.
    static BoardPool& Instance();

    BoardPool(const BoardPool&) = delete;
    BoardPool& operator=(const BoardPool&) = delete;

    /// Puts @p backend behind the pool; null: no boards. Boards and sweeps handed out before are gone with their
    /// backend, so nobody may hold one. To be called while no other thread uses the pool. @return the backend before.
    std::unique_ptr<Backend> Open(std::unique_ptr<Backend> backend);

    /// The uris of all boards of the local chassis, in the backend's order.
    std::vector<Uri> GetAllLocalBoardUris() const;

    /// The board, null when there is none.
    Board* GetBoard(const Uri& uri) const;

    /// Starts to read @p sensors, see Backend::StartSweep. @return never null
    std::unique_ptr<Sweep> StartSweep(const SensorIds& sensors) const;

    /// Has the backend give up accesses from @p deadline on, see Backend::LimitAccesses.
    void LimitAccesses(std::chrono::steady_clock::time_point deadline) const;

private:
    BoardPool() = default;
    ~BoardPool() = default;

    std::unique_ptr<Backend> m_backend;
};

}  // namespace bmc
