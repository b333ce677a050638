#pragma once

#include <cstddef>
#include <string>

#include "bmc/board.h"
#include "qreg/reg_node.h"
#include "qstd/bi_map.h"
#include "qstd/enum_map.h"

/// Registry leaf that shows one item of a board's identity or state. It holds no copy: every read asks the board. The
/// host operating system has no management controller: of it only device and type are known, its revisions are 0 and
/// its states have no value. Any thread may call any operation.
class BmcBoardInfoNode : public qreg::RegNode {
public:
    /// What a leaf shows. The names in the table below are those of the leaves.
    enum class BoardInfoData_e {
        device = 0,         ///< device prefix
        type = 1,           ///< name of the board type
        firmware_type = 2,  ///< which firmware image runs
        status = 3,         ///< whether the board works
        power_status = 4,   ///< whether the board has power
        fpga_revision = 5,
        red_light = 6,   ///< the red light on the front
        fw_version = 7,  ///< reserved: nothing serves it, every read raises
        fw_revision = 8,
        fw_flash_id = 9,  ///< reserved: nothing serves it, every read raises
        ipmi_version = 10,
    };

    /// The leaf's name, "invalid value" for a number that is no datum.
    static std::string BoardInfoDataTypeToStr(const BoardInfoData_e& data);

    /// @param board not null; lives longer than the node
    BmcBoardInfoNode(BoardInfoData_e type, bmc::Board* board);

    /// Text or integer; empty for a number that is no datum.
    qnode::enums::ValueType_e OnGetValueType(const std::string& path) const override;
    /// One value.
    std::size_t OnGetSize(const std::string& path) const override;

    using RegNode::OnGet;
    /// The data that are text. @return false for a state of the host operating system.
    /// @throws qstd::Exception for another datum, for a state without a name, and what the board throws.
    bool OnGet(std::string* out, std::size_t position, std::size_t count) const override;
    /// The revisions. @throws qstd::Exception for another datum, and what the board throws.
    bool OnGet(int* out, std::size_t position, std::size_t count) const override;

private:
    bmc::Board* const m_board;
    const BoardInfoData_e m_data;
};

namespace qstd {

template <>
const BiMap<BmcBoardInfoNode::BoardInfoData_e> EnumMap<BmcBoardInfoNode::BoardInfoData_e>::items;

}  // namespace qstd
