#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "bmc/enums.h"
#include "bmc/uri.h"

/// What a chassis description says, as plain data, and how it is read. See docs/simulation.md for the format.
namespace bmc::sim {

/// The seven limits of a sensor, in the order of bmc::Sensor's getters.
enum class Limit_e : std::uint8_t {
    nominal,
    lowerNonCritical,
    lowerCritical,
    lowerNonRecoverable,
    upperNonCritical,
    upperCritical,
    upperNonRecoverable,
};
constexpr std::size_t c_limitCount = 7;
/// How descriptions and control commands call the limits, indexed by Limit_e.
constexpr std::array<const char*, c_limitCount> c_limitNames = {"nominal", "lnc", "lc", "lnr", "unc", "uc", "unr"};

/// Heated by power, cooled by the fans.
struct ThermalDescription {
    double power = 0;       ///< watts, not negative
    double resistance = 0;  ///< kelvins per watt at FanBank::c_ratedRpm, not negative
    double tau = 0;         ///< time constant in seconds
};

/// A sine with noise.
struct WaveDescription {
    double mean = 0;
    double amplitude = 0;
    double period = 0;  ///< seconds
    double noise = 0;   ///< largest deviation, not negative
};

/// The measured speed of one fan in RPM.
struct TachometerDescription {
    int fan = 0;  ///< 0 to 5
};

/// Where a sensor's readings come from: nowhere (not available), a fixed value, or a model.
using SensorSource = std::variant<std::monostate, double, ThermalDescription, WaveDescription, TachometerDescription>;

struct SensorDescription {
    int id = 0;
    std::string name;
    SensorType_e type = SensorType_e::other;
    std::string units;
    std::array<std::optional<double>, c_limitCount> limits{};  ///< indexed by Limit_e
    SensorSource source;
};

struct BoardDescription {
    Uri uri;
    BoardType_e type = BoardType_e::unspecified;
    std::string name;
    std::string prefix;
    BoardStatus_e status = BoardStatus_e::ok;
    BoardPowerStatus_e power = BoardPowerStatus_e::on;
    RedLedStatus_e redLight = RedLedStatus_e::off;
    FirmwareType_e firmwareType = FirmwareType_e::active;
    int fwRevision = 0;
    int fpgaRevision = 0;
    int ipmiVersion = 2;
    double clock = 0;            ///< offset of the controller's clock to the host's in seconds
    std::optional<double> fans;  ///< when the board carries the fan controller: the speed they start with, RPM
    std::vector<SensorDescription> sensors;
};

struct ChassisDescription {
    double ambient = 25;     ///< degrees Celsius
    std::uint64_t seed = 1;  ///< of the noise
    double speed = 1;        ///< model seconds per second
    std::vector<BoardDescription> boards;
};

/// Reads a description. May be called from any thread.
/// @throws qstd::Exception "FILE:LINE: text" when anything in it is wrong, "FILE: text" when it cannot be read.
ChassisDescription ReadChassisFile(const std::string& fileName);

/// The same from a text in memory. @param name stands for FILE in messages
ChassisDescription ReadChassisText(const std::string& text, const std::string& name);

}  // namespace bmc::sim
