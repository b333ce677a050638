#include "bmc_board_info_node.h"

#include "bmc/enums.h"
#include "qstd/exception.h"
#include "qstd/trace_fnc.h"

namespace qstd {

using BoardDatum = BmcBoardInfoNode::BoardInfoData_e;

template <>
const BiMap<BoardDatum> EnumMap<BoardDatum>::items{{BoardDatum::device, "device"},
                                                   {BoardDatum::type, "type"},
                                                   {BoardDatum::firmware_type, "firmware_type"},
                                                   {BoardDatum::status, "status"},
                                                   {BoardDatum::power_status, "power_status"},
                                                   {BoardDatum::fpga_revision, "fpga_revision"},
                                                   {BoardDatum::red_light, "red_light"},
                                                   {BoardDatum::fw_version, "fw_version"},
                                                   {BoardDatum::fw_revision, "fw_revision"},
                                                   {BoardDatum::fw_flash_id, "fw_flash_id"},
                                                   {BoardDatum::ipmi_version, "ipmi_version"}};

}  // namespace qstd

namespace {

/// The name of a state. @throws qstd::Exception "invalid value" when its table does not hold it.
template <class E>
std::string NameOf(E state) {
    return qstd::EnumMap<E>::items.GetName(state);
}

}  // namespace

std::string BmcBoardInfoNode::BoardInfoDataTypeToStr(const BoardInfoData_e& data) {
    const char* const name = qstd::EnumMap<BoardInfoData_e>::items.FindName(data);
    return name == nullptr ? "invalid value" : name;
}

BmcBoardInfoNode::BmcBoardInfoNode(BoardInfoData_e type, bmc::Board* board)
    : RegNode(BoardInfoDataTypeToStr(type), c_readable), m_board(board), m_data(type) {}

qnode::enums::ValueType_e BmcBoardInfoNode::OnGetValueType(const std::string& /*path*/) const {
    using qnode::enums::ValueType_e;
    switch (m_data) {
        case BoardInfoData_e::device:
        case BoardInfoData_e::type:
        case BoardInfoData_e::firmware_type:
        case BoardInfoData_e::status:
        case BoardInfoData_e::power_status:
        case BoardInfoData_e::red_light:
            return ValueType_e::text;
        case BoardInfoData_e::fpga_revision:
        case BoardInfoData_e::fw_version:
        case BoardInfoData_e::fw_revision:
        case BoardInfoData_e::fw_flash_id:
        case BoardInfoData_e::ipmi_version:
            return ValueType_e::integer;
    }
    return ValueType_e::empty;
}

std::size_t BmcBoardInfoNode::OnGetSize(const std::string& /*path*/) const {
    return 1;
}

bool BmcBoardInfoNode::OnGet(std::string* out, std::size_t /*position*/, std::size_t /*count*/) const {
    const bmc::BoardType_e type = m_board->GetType();
    const bool hasController = type != bmc::BoardType_e::os;
    switch (m_data) {
        case BoardInfoData_e::device:
            *out = m_board->GetDevicePrefix();
            return true;
        case BoardInfoData_e::type:
            *out = NameOf(type);
            return true;
        case BoardInfoData_e::firmware_type:
            if (hasController) {
                *out = NameOf(m_board->GetFirmwareType());
            }
            return hasController;
        case BoardInfoData_e::status:
            if (hasController) {
                *out = NameOf(m_board->GetStatus());
            }
            return hasController;
        case BoardInfoData_e::power_status:
            if (hasController) {
                *out = NameOf(m_board->GetPowerStatus());
            }
            return hasController;
        case BoardInfoData_e::red_light:
            if (hasController) {
                *out = NameOf(m_board->GetRedLighStatus());
            }
            return hasController;
        default:
            throw qstd::Exception("Unsupported type: " + GetName() + " in method " + qstd::ThisFncName());
    }
}

bool BmcBoardInfoNode::OnGet(int* out, std::size_t /*position*/, std::size_t /*count*/) const {
    const bool hasController = m_board->GetType() != bmc::BoardType_e::os;
    switch (m_data) {
        case BoardInfoData_e::fpga_revision:
            *out = hasController ? m_board->GetFpgaRevision() : 0;
            return true;
        case BoardInfoData_e::fw_revision:
            *out = hasController ? m_board->GetFwRevision() : 0;
            return true;
        case BoardInfoData_e::ipmi_version:
            *out = hasController ? m_board->GetIpmiVersion() : 0;
            return true;
        default:
            throw qstd::Exception("Unsupported type: " + GetName() + " in method " + qstd::ThisFncName());
    }
}
