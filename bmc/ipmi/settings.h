#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "bmc/enums.h"
#include "bmc/ipmi/fpga_template.h"
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/password.h"
#include "bmc/uri.h"
#include "qcfg/element.h"
#include "qstd/enum_map.h"

namespace bmc::ipmi {

/// What an account may do (IPMI v2.0 specification, 6.8). The numbers are those on the wire.
enum class Privilege_e : std::uint8_t { user = 2, operator_ = 3, administrator = 4 };

/// How a controller is reached: over the LAN, or by the local system interface. Boards with the same way share one
/// session.
struct ControllerSettings {
    std::string host{};  ///< IPv4 or IPv6 address as inet_ntop writes it; empty: by the device
    std::uint16_t port = 623;
    std::string user{};
    PasswordSource password{};  ///< proved to be there when the settings were read
    Privilege_e privilege = Privilege_e::operator_;
    std::uint8_t cipherSuite = 17;
    std::string device{};  ///< path of the system interface, for example "/dev/ipmi0"; empty: over the LAN

    std::chrono::milliseconds timeout{1000};  ///< how long a try waits for its answer
    unsigned int retries = 2;                 ///< how often a request that changes nothing is sent again

    /// "10.0.0.11:623", "[fe80::1]:623" or the device, for messages.
    std::string Name() const;
    friend bool operator==(const ControllerSettings&, const ControllerSettings&) = default;
};

/// One board.
struct BoardSettings {
    Uri uri{};
    BoardType_e type = BoardType_e::unspecified;
    std::string name{};
    std::string prefix{};
    std::size_t controller = 0;  ///< index in Settings::controllers
    Target target{};
    std::optional<FpgaTemplate> fpga{};
};

/// The section <boards backend="ipmi">, proved.
struct Settings {
    std::vector<ControllerSettings> controllers;  ///< each once
    std::vector<BoardSettings> boards;            ///< in the file's order
    std::string cacheFolder;                      ///< where sensor records are kept over restarts; empty: nowhere
    bool isCacheReadOnly = false;                 ///< nothing is kept that was not; no setting of the file
};

/// Whether the files with the passwords are read with the section. A password is read anew for each session anyhow.
enum class Passwords_e { proved, leftForSessions };

/// Reads and proves the section, by default the files with the passwords included; relative paths are relative to the
/// folder of @p configFile. Asks no controller. Reads the environment (CACHE_DIRECTORY, CREDENTIALS_DIRECTORY);
/// otherwise any thread may call it.
/// @throws qstd::Exception "FILE:LINE: text"
Settings ReadSettings(const qcfg::Element& section, const std::string& configFile,
                      Passwords_e passwords = Passwords_e::proved);

}  // namespace bmc::ipmi

namespace qstd {

template <>
const BiMap<bmc::ipmi::Privilege_e> EnumMap<bmc::ipmi::Privilege_e>::items;

}  // namespace qstd
