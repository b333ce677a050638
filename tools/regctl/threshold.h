#pragma once

#include <map>
#include <optional>
#include <string>

namespace regctl {

/// The thresholds of a sensor by the names of their nodes; one that is missing is not there.
using Thresholds = std::map<std::string, double>;

/// A threshold that a reading is beyond.
struct Crossing {
    std::string name;  ///< of the threshold's node
    double limit = 0;
    bool isAbove = false;
    bool isCritical = false;  ///< more than a warning
};

/// The names of the nodes that hold thresholds.
bool IsThreshold(const std::string& name);

/// The most severe threshold that @p reading is beyond, nothing when it is within all of them or not a number.
/// Reaching a threshold is not yet beyond it.
std::optional<Crossing> FindCrossing(double reading, const Thresholds& thresholds);

/// "above hnr 90".
std::string CrossingText(const Crossing& crossing);

}  // namespace regctl
