#include "tools/regctl/threshold.h"

#include <algorithm>
#include <array>

#include "qnode/value.h"

namespace regctl {

namespace {

struct Kind {
    const char* name;
    bool isUpper;
    bool isCritical;
};

/// The most severe first.
constexpr std::array<Kind, 6> c_kinds{{{"hnr", true, true},
                                       {"lnr", false, true},
                                       {"hc", true, true},
                                       {"lc", false, true},
                                       {"hnc", true, false},
                                       {"lnc", false, false}}};

}  // namespace

bool IsThreshold(const std::string& name) {
    return std::any_of(c_kinds.begin(), c_kinds.end(), [&](const Kind& kind) { return name == kind.name; });
}

std::optional<Crossing> FindCrossing(double reading, const Thresholds& thresholds) {
    for (const Kind& kind : c_kinds) {
        const auto found = thresholds.find(kind.name);
        if (found == thresholds.end()) {
            continue;
        }
        const double limit = found->second;
        if (kind.isUpper ? reading > limit : reading < limit) {
            return Crossing{kind.name, limit, kind.isUpper, kind.isCritical};
        }
    }
    return std::nullopt;
}

std::string CrossingText(const Crossing& crossing) {
    return (crossing.isAbove ? "above " : "below ") + crossing.name + " " + qnode::ToText(crossing.limit);
}

}  // namespace regctl
