#include "bmc/ipmi/message.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>
#include "qstd/exception.h"

namespace bmc::ipmi {

namespace {

struct CodeText {
    std::uint8_t code;
    const char* text;
};

/// Table 5-2 of the IPMI v2.0 specification, and 0x80.. as Send Message uses them.
constexpr std::array c_codeTexts{
    CodeText{0x00, "completed"},
    CodeText{c_lostArbitration, "lost arbitration on the bus"},
    CodeText{c_busError, "bus error"},
    CodeText{c_noAcknowledge, "nobody acknowledges that address on the bus"},
    CodeText{c_nodeBusy, "busy"},
    CodeText{c_invalidCommand, "invalid command"},
    CodeText{0xc2, "command invalid for this logical unit"},
    CodeText{c_timeout, "time-out while processing the command"},
    CodeText{0xc4, "out of space"},
    CodeText{c_reservationLost, "reservation cancelled"},
    CodeText{0xc6, "request data truncated"},
    CodeText{0xc7, "request data length invalid"},
    CodeText{0xc8, "request data too long"},
    CodeText{0xc9, "parameter out of range"},
    CodeText{c_cannotReturnBytes, "cannot return so many bytes"},
    CodeText{c_notPresent, "no such sensor, data or record"},
    CodeText{0xcc, "invalid data field in the request"},
    CodeText{0xcd, "command illegal for that sensor or record"},
    CodeText{0xce, "no response could be provided"},
    CodeText{0xcf, "duplicated request"},
    CodeText{0xd0, "sensor records are being updated"},
    CodeText{0xd1, "firmware is being updated"},
    CodeText{c_initializing, "controller is initialising"},
    CodeText{0xd3, "destination unavailable"},
    CodeText{c_insufficientPrivilege, "insufficient privilege level"},
    CodeText{c_notInThisState, "not supported in the present state"},
    CodeText{0xd6, "command disabled"},
    CodeText{0xff, "unspecified error"},
};

struct Command {
    NetFn_e netFn;
    std::uint8_t code;
    const char* name;
};

/// The commands that are used here.
constexpr std::array c_commands{
    Command{NetFn_e::chassis, 0x01, "Get Chassis Status"},
    Command{NetFn_e::chassis, 0x02, "Chassis Control"},
    Command{NetFn_e::sensor, 0x20, "Get Device SDR Info"},
    Command{NetFn_e::sensor, 0x21, "Get Device SDR"},
    Command{NetFn_e::sensor, 0x22, "Reserve Device SDR Repository"},
    Command{NetFn_e::sensor, 0x23, "Get Sensor Reading Factors"},
    Command{NetFn_e::sensor, 0x27, "Get Sensor Thresholds"},
    Command{NetFn_e::sensor, 0x2d, "Get Sensor Reading"},
    Command{NetFn_e::app, 0x01, "Get Device ID"},
    Command{NetFn_e::app, 0x04, "Get Self Test Results"},
    Command{NetFn_e::app, 0x08, "Get Device GUID"},
    Command{NetFn_e::storage, 0x20, "Get SDR Repository Info"},
    Command{NetFn_e::storage, 0x22, "Reserve SDR Repository"},
    Command{NetFn_e::storage, 0x23, "Get SDR"},
    Command{NetFn_e::storage, 0x48, "Get SEL Time"},
    Command{NetFn_e::storage, 0x49, "Set SEL Time"},
};

}  // namespace

std::string CompletionText(std::uint8_t completionCode) {
    const auto* const found = std::find_if(c_codeTexts.begin(), c_codeTexts.end(),
                                           [&](const CodeText& known) { return known.code == completionCode; });
    const std::string number = fmt::format("0x{:02X}", completionCode);
    return found == c_codeTexts.end() ? number : number + " (" + found->text + ")";
}

std::string CommandName(const Request& request) {
    const auto* const found = std::find_if(c_commands.begin(), c_commands.end(), [&](const Command& known) {
        return static_cast<std::uint8_t>(known.netFn) == request.netFn && known.code == request.command;
    });
    return found == c_commands.end() ? fmt::format("command 0x{:02x}/0x{:02x}", request.netFn, request.command)
                                     : std::string(found->name);
}

const std::vector<std::uint8_t>& ExpectData(const Response& response, std::size_t leastSize, const std::string& what) {
    if (response.completionCode != c_completed) {
        throw qstd::Exception(what + ": " + CompletionText(response.completionCode));
    }
    if (response.data.size() < leastSize) {
        throw qstd::Exception(
            fmt::format("{}: the reply has {} bytes instead of {}", what, response.data.size(), leastSize));
    }
    return response.data;
}

}  // namespace bmc::ipmi
