#pragma once

#include <string>

#include "qstd/exception.h"

namespace bmc {

/// An access to a board that did not come about because the service stops (see Backend::LimitAccesses). It tells
/// nothing about the board: whoever works through boards and sensors lets it pass, ends, and reports no problem.
class BrokenOff : public qstd::Exception {
public:
    /// @param board the uri's text
    explicit BrokenOff(const std::string& board)
        : Exception("Access to board " + board + " was broken off: the service stops", true) {}
};

}  // namespace bmc
