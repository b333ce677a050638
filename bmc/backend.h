#pragma once

#include <vector>

#include "bmc/board.h"
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
};

}  // namespace bmc
