#include "fan_node.h"

#include <boost/lexical_cast.hpp>
#include <cmath>
#include <limits>

#include "qstd/convert.h"
#include "qstd/exception.h"
#include "qstd/source_name.h"
#include "qstd/trace_fnc.h"

static_assert(qstd::SourceName(__FILE__) == "fan_node", "trace records name sources of the daemon bare");

namespace {

/// Register value times RPM.
constexpr std::int32_t c_rawTimesRpm = 1935483;
constexpr std::uint16_t c_measuredSpeedOffset = 2;

}  // namespace

FanNode::FanNode(bmc::Board* board, std::uint16_t address)
    : RegNode(FanName(address), c_readable | c_writable), m_address(address), m_board(board) {
    const qstd::TraceFnc trace;
    if (GetName().empty()) {
        throw qstd::Exception("Internal error: fan is not properly instantiated", true);
    }
}

std::string FanNode::FanName(std::uint16_t address) {
    const qstd::TraceFnc trace;
    switch (address) {
        case 0x40:
            return "left_front";
        case 0x48:
            return "left_middle";
        case 0x50:
            return "left_rear";
        case 0x58:
            return "right_front";
        case 0x60:
            return "right_middle";
        case 0x68:
            return "right_rear";
        default:
            return {};
    }
}

std::uint16_t FanNode::RpmToRaw(const double& rpm) {
    const qstd::TraceFnc trace;
    static_assert(std::numeric_limits<double>::is_iec559, "0 RPM must give an infinite quotient");
    constexpr double c_wordRange = 4294967296.0;  // 2^32
    const double raw = std::trunc(static_cast<double>(c_rawTimesRpm) / rpm);
    if (raw >= c_wordRange) {
        return 0;  // what a 32-bit word keeps of it, infinity included
    }
    if (!(raw >= 0.0 && raw <= std::numeric_limits<std::uint16_t>::max())) {
        throw qstd::Exception("Too high rpm value: " + qstd::NumberText(rpm), true);
    }
    return static_cast<std::uint16_t>(raw);
}

bool FanNode::ReadRPM(std::uint16_t address, double& rpm) const {
    const qstd::TraceFnc trace;
    const bmc::FpgaReadResult result = m_board->FpgaSpiRead(address);
    if (result.failed != 0) {
        return false;
    }
    const std::int32_t wholeRpm = result.value == 0 ? 0 : c_rawTimesRpm / result.value;
    rpm = wholeRpm;
    return true;
}

bool FanNode::GetReferenceSpeed(double& rpm) const {
    const qstd::TraceFnc trace;
    return ReadRPM(m_address, rpm);
}

bmc::FpgaRegisterValue FanNode::GetReferenceFor(const double& rpm) const {
    const qstd::TraceFnc trace;
    return {m_address, RpmToRaw(rpm)};
}

qnode::enums::ValueType_e FanNode::OnGetValueType(const std::string& /*path*/) const {
    const qstd::TraceFnc trace;
    return qnode::enums::ValueType_e::real;
}

std::size_t FanNode::OnGetSize(const std::string& /*path*/) const {
    const qstd::TraceFnc trace;
    return 1;
}

bool FanNode::OnGet(std::string* value, std::size_t position, std::size_t count) const {
    const qstd::TraceFnc trace;
    double rpm = 0.0;
    OnGet(&rpm, position, count);
    *value = boost::lexical_cast<std::string>(rpm);
    return true;
}

bool FanNode::OnGet(double* value, std::size_t /*position*/, std::size_t /*count*/) const {
    const qstd::TraceFnc trace;
    return ReadRPM(static_cast<std::uint16_t>(m_address + c_measuredSpeedOffset), *value);
}

void FanNode::OnSet(const std::string* value, std::size_t position, std::size_t count) {
    const qstd::TraceFnc trace;
    const auto rpm = boost::lexical_cast<double>(*value);
    OnSet(&rpm, position, count);
}

void FanNode::OnSet(const double* value, std::size_t /*position*/, std::size_t /*count*/) {
    const qstd::TraceFnc trace;
    m_board->FpgaSpiWrite(m_address, RpmToRaw(*value));
}
