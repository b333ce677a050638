#include "fans_safe.h"

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "fan_node.h"
#include "fans_node.h"
#include "qnode/factory.h"
#include "qstd/exception.h"
#include "qstd/log.h"
#include "qstd/source_name.h"
#include "temperature_control.h"

static_assert(qstd::SourceName(__FILE__) == "fans_safe", "trace records name sources of the daemon bare");

namespace {

/// Runs @p access to a fan. @return why it failed; empty when it did not.
template <class Access>
std::string ReasonOf(const Access& access) {
    try {
        access();
        return {};
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "Unknown Exception";
    }
}

/// Why it is not proved that the fan is told to run at maximum speed; empty when it is. What counts is what the
/// register holds, whether or not the write before it succeeded.
std::string DoubtAbout(const FanNode& fan, const std::string& writeReason) {
    double rpm = 0.0;
    bool isRead = false;
    const std::string readReason = ReasonOf([&] { isRead = fan.GetReferenceSpeed(rpm); });
    if (isRead && IsMaximumSpeed(rpm)) {
        return {};
    }
    std::string doubt = writeReason.empty() ? "" : "cannot be set (" + writeReason + "), ";
    if (isRead) {
        doubt += "reads back " + std::to_string(static_cast<std::uint32_t>(rpm)) + " RPM";
    } else {
        doubt += "cannot be read back" + (readReason.empty() ? "" : " (" + readReason + ")");
    }
    return doubt;
}

}  // namespace

bool IsMaximumSpeed(double rpm) {
    return rpm >= TemperatureControl::c_maxSpeed &&
           TemperatureControl::IsRpmEqual(static_cast<std::uint32_t>(rpm), TemperatureControl::c_maxSpeed);
}

void SetFansSafe() {
    const std::string speed = std::to_string(TemperatureControl::c_maxSpeed) + " RPM";
    const auto node = qnode::factory::Create<qnode::LocalNodeStructure, FansNode>();
    const auto fans = node->GetChildren();
    if (fans.size() != FansNode::c_fans) {
        throw qstd::Exception("The fans are not set to " + speed + ": no chassis controller can be reached");
    }
    // All fans are set before the first is read back: on a slow board no fan waits for a proof.
    std::vector<std::string> writeReasons;
    writeReasons.reserve(fans.size());
    for (const auto& fan : fans) {
        writeReasons.push_back(ReasonOf(
            [&fan] { dynamic_cast<qreg::RegNode&>(*fan).Set(static_cast<double>(TemperatureControl::c_maxSpeed)); }));
    }
    std::string doubts;
    for (std::size_t i = 0; i < fans.size(); ++i) {
        const std::string doubt = DoubtAbout(dynamic_cast<const FanNode&>(*fans[i]), writeReasons[i]);
        if (!doubt.empty()) {
            doubts += (doubts.empty() ? "" : "; ") + fans[i]->GetName() + " " + doubt;
        }
    }
    if (!doubts.empty()) {
        throw qstd::Exception("Not all fans are at " + speed + ": " + doubts);
    }
    qstd::LogInfo("All fans are set to " + speed + ".");
}
