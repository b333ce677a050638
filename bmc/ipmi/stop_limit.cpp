#include "bmc/ipmi/stop_limit.h"

#include <algorithm>

namespace bmc::ipmi {

bool StopLimit::LetsThrough(Purpose_e purpose, std::thread::id caller) const noexcept {
    switch (purpose) {
        case Purpose_e::switching:
        case Purpose_e::verifying:
            return true;
        case Purpose_e::writing:
            return caller == stopper;
        case Purpose_e::reading:
        case Purpose_e::sweeping:
            break;
    }
    return false;
}

SteadyTime StopLimit::LastMoment(Purpose_e purpose, std::thread::id caller, SteadyTime begin) const noexcept {
    return LetsThrough(purpose, caller) ? std::max(begin, deadline) + patience : deadline;
}

}  // namespace bmc::ipmi
