#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Requests and responses of the IPMI v2.0 specification, as bytes; no transport is told apart here.

namespace bmc::ipmi {

/// Network functions of requests (table 5-1 of the IPMI v2.0 specification).
enum class NetFn_e : std::uint8_t {
    chassis = 0x00,
    sensor = 0x04,
    app = 0x06,
    storage = 0x0a,
};

/// The controller that a session reaches directly.
constexpr std::uint8_t c_controllerAddress = 0x20;

/// Which management controller a request is for.
struct Target {
    std::uint8_t address = c_controllerAddress;  ///< slave address on the IPMB, even; 0x20: the session's own
    std::uint8_t channel = 0;                    ///< the IPMB's channel; 0: the primary one

    bool IsBridged() const noexcept { return address != c_controllerAddress; }
    friend bool operator==(const Target&, const Target&) = default;
};

/// A request to a management controller.
struct Request {
    std::uint8_t netFn = 0;  ///< even, 0x00..0x3e
    std::uint8_t command = 0;
    std::vector<std::uint8_t> data{};
    std::uint8_t lun = 0;  ///< logical unit, 0..3

    Request() = default;
    Request(NetFn_e function, std::uint8_t code, std::vector<std::uint8_t> bytes = {}, std::uint8_t unit = 0)
        : netFn(static_cast<std::uint8_t>(function)), command(code), data(std::move(bytes)), lun(unit) {}
    Request(std::uint8_t function, std::uint8_t code, std::vector<std::uint8_t> bytes = {}, std::uint8_t unit = 0)
        : netFn(function), command(code), data(std::move(bytes)), lun(unit) {}
};

/// What the controller said to a request. That it said anything does not mean that it did it.
struct Response {
    std::uint8_t completionCode = 0;   ///< 0: done
    std::vector<std::uint8_t> data{};  ///< what follows the completion code
    /// The code is the controller's on the way, which could not pass the request on or get an answer to it, and not
    /// that of the board that it was for.
    bool isOfBridge = false;
};

// Completion codes that decide something here (table 5-2).
constexpr std::uint8_t c_completed = 0x00;
constexpr std::uint8_t c_lostArbitration = 0x81;  ///< of a bridged request
constexpr std::uint8_t c_busError = 0x82;         ///< of a bridged request
constexpr std::uint8_t c_noAcknowledge = 0x83;    ///< of a bridged request: nobody has that address
constexpr std::uint8_t c_nodeBusy = 0xc0;
constexpr std::uint8_t c_invalidCommand = 0xc1;
constexpr std::uint8_t c_timeout = 0xc3;
constexpr std::uint8_t c_reservationLost = 0xc5;
constexpr std::uint8_t c_cannotReturnBytes = 0xca;
constexpr std::uint8_t c_notPresent = 0xcb;
constexpr std::uint8_t c_initializing = 0xd2;
constexpr std::uint8_t c_insufficientPrivilege = 0xd4;
constexpr std::uint8_t c_notInThisState = 0xd5;

/// The code as "0xD4 (insufficient privilege level)"; one that the IPMI v2.0 specification does not
/// name as "0x8F".
std::string CompletionText(std::uint8_t completionCode);

/// "Get SEL Time"; a command without a name here as "command 0x30/0x10".
std::string CommandName(const Request& request);

/// The data of @p response if it is completed and at least @p leastSize bytes long.
/// @param what who asked for what, for example "io/1: Get SEL Time"
/// @throws qstd::Exception "WHAT: 0xD4 (insufficient privilege level)", "WHAT: the reply has 2 bytes instead of 4"
const std::vector<std::uint8_t>& ExpectData(const Response& response, std::size_t leastSize, const std::string& what);

}  // namespace bmc::ipmi
