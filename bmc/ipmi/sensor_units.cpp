#include "bmc/ipmi/sensor_units.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <freeipmi/spec/ipmi-sensor-units-spec.h>

namespace bmc::ipmi {

namespace {

/// What the library spells in its own way, and how the IPMI v2.0 specification and other clients do.
struct Spelling {
    std::string_view ofLibrary;
    std::string_view usual;
};
constexpr std::array c_spellings{
    Spelling{"Lumen", "lumen"},
    Spelling{"Lux", "lux"},
    Spelling{"kPA", "kPa"},
    Spelling{"fluid Ounce", "fluid ounce"},
    Spelling{"overrun / overflow", "overflow"},
    Spelling{"correctable Error", "correctable error"},
    Spelling{"uncorrectable Error", "uncorrectable error"},
    Spelling{"fatal Error", "fatal error"},
};

constexpr std::array<std::string_view, 7> c_rates{
    "", "per microsecond", "per millisecond", "per second", "per minute", "per hour", "per day",
};

/// Empty for "unspecified" and for a code that does not exist.
std::string_view UnitName(std::uint8_t code) {
    if (code == IPMI_SENSOR_UNIT_UNSPECIFIED || !IPMI_SENSOR_UNIT_VALID(code)) {
        return {};
    }
    const std::string_view name = ipmi_sensor_units[code];
    const auto* const found = std::find_if(c_spellings.begin(), c_spellings.end(),
                                           [&](const Spelling& spelling) { return spelling.ofLibrary == name; });
    return found == c_spellings.end() ? name : found->usual;
}

}  // namespace

std::string UnitsText(const UnitCodes& codes) {
    const std::string base(UnitName(codes.base));
    if (base.empty()) {
        return codes.isPercentage ? "percent" : "";
    }
    std::string text = codes.isPercentage ? "% " + base : base;
    const std::string modifier(UnitName(codes.modifier));
    if (!modifier.empty() && codes.relation == 1) {
        text += "/" + modifier;
    } else if (!modifier.empty() && codes.relation == 2) {
        text += " * " + modifier;
    }
    // Revolutions per minute that say it a second time are still "RPM".
    const bool isSaidTwice = codes.base == IPMI_SENSOR_UNIT_RPM && codes.rate == IPMI_SENSOR_RATE_UNIT_PER_MINUTE;
    if (codes.rate != 0 && codes.rate < c_rates.size() && !isSaidTwice) {
        text += " " + std::string(c_rates.at(codes.rate));
    }
    return text;
}

}  // namespace bmc::ipmi
