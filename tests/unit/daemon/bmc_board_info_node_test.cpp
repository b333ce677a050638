#include "bmc_board_info_node.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/mock_boards.h"

namespace {

using BoardDatum = BmcBoardInfoNode::BoardInfoData_e;
using qnode::enums::ValueType_e;
using testing::Return;
using testing::Throw;

constexpr const char* c_textMethod =
    " in method virtual bool BmcBoardInfoNode::OnGet(std::string*, std::size_t, std::size_t) const";
constexpr const char* c_integerMethod =
    " in method virtual bool BmcBoardInfoNode::OnGet(int*, std::size_t, std::size_t) const";

class BoardLeaf : public testing::Test {
protected:
    BoardLeaf() {
        for (test::MockBoard* const board : {&m_boards.slot2, &m_boards.host}) {
            ON_CALL(*board, GetDevicePrefix).WillByDefault(Return("PSU"));
            ON_CALL(*board, GetFirmwareType).WillByDefault(Return(bmc::FirmwareType_e::backup));
            ON_CALL(*board, GetStatus).WillByDefault(Return(bmc::BoardStatus_e::degraded));
            ON_CALL(*board, GetPowerStatus).WillByDefault(Return(bmc::BoardPowerStatus_e::on));
            ON_CALL(*board, GetRedLighStatus).WillByDefault(Return(bmc::RedLedStatus_e::blinking));
            ON_CALL(*board, GetFpgaRevision).WillByDefault(Return(21));
            ON_CALL(*board, GetFwRevision).WillByDefault(Return(3));
            ON_CALL(*board, GetIpmiVersion).WillByDefault(Return(2));
        }
    }

    static qnode::Node Leaf(bmc::Board& board, BoardDatum data) {
        return qnode::Node(qnode::factory::Create<qnode::LocalNodeStructure, BmcBoardInfoNode>(data, &board));
    }
    static std::string Text(bmc::Board& board, BoardDatum data) {
        std::string value;
        EXPECT_TRUE(Leaf(board, data).GetValue(value));
        return value;
    }
    static int Integer(bmc::Board& board, BoardDatum data) {
        int value = -1;
        EXPECT_TRUE(Leaf(board, data).GetValue(value));
        return value;
    }

    test::ThreeBoards m_boards;
};

TEST_F(BoardLeaf, IdentityAndStates_AreTexts) {
    const std::map<BoardDatum, std::string> expected{
        {BoardDatum::device, "PSU"},      {BoardDatum::type, "power_supply"}, {BoardDatum::firmware_type, "backup"},
        {BoardDatum::status, "degraded"}, {BoardDatum::power_status, "on"},   {BoardDatum::red_light, "blinking"}};
    for (const auto& [data, text] : expected) {
        EXPECT_EQ(Text(m_boards.slot2, data), text);
        EXPECT_EQ(Leaf(m_boards.slot2, data).Get()->OnGetValueType({}), ValueType_e::text);
    }
}

TEST_F(BoardLeaf, Revisions_AreIntegers) {
    const std::map<BoardDatum, int> expected{
        {BoardDatum::fpga_revision, 21}, {BoardDatum::fw_revision, 3}, {BoardDatum::ipmi_version, 2}};
    for (const auto& [data, number] : expected) {
        EXPECT_EQ(Integer(m_boards.slot2, data), number);
        EXPECT_EQ(Leaf(m_boards.slot2, data).Get()->OnGetValueType({}), ValueType_e::integer);
    }
}

TEST_F(BoardLeaf, EveryLeaf_IsOneReadableValueUnderTheNameOfItsDatum) {
    const std::vector<std::string> names{"device",       "type",          "firmware_type", "status",
                                         "power_status", "fpga_revision", "red_light",     "fw_version",
                                         "fw_revision",  "fw_flash_id",   "ipmi_version"};
    for (std::size_t number = 0; number < names.size(); ++number) {
        const auto leaf = Leaf(m_boards.slot2, static_cast<BoardDatum>(number)).Get();
        EXPECT_EQ(leaf->GetName(), names[number]);
        EXPECT_EQ(leaf->OnGetSize({}), 1U);
        EXPECT_EQ(leaf->OnGetFlags(), 2U);
    }
}

TEST_F(BoardLeaf, OperatingSystem_HasIdentityNoStatesAndZeroRevisions) {
    EXPECT_EQ(Text(m_boards.host, BoardDatum::device), "PSU");
    EXPECT_EQ(Text(m_boards.host, BoardDatum::type), "os");
    for (const BoardDatum data :
         {BoardDatum::firmware_type, BoardDatum::status, BoardDatum::power_status, BoardDatum::red_light}) {
        std::string value = "untouched";
        EXPECT_FALSE(Leaf(m_boards.host, data).GetValue(value));
        EXPECT_EQ(value, "untouched");
    }
    for (const BoardDatum data : {BoardDatum::fpga_revision, BoardDatum::fw_revision, BoardDatum::ipmi_version}) {
        EXPECT_EQ(Integer(m_boards.host, data), 0);
    }
}

TEST_F(BoardLeaf, ReservedData_AreIntegersThatNeverAnswer) {
    for (const BoardDatum data : {BoardDatum::fw_version, BoardDatum::fw_flash_id}) {
        const qnode::Node leaf = Leaf(m_boards.slot2, data);
        EXPECT_EQ(leaf.Get()->OnGetValueType({}), ValueType_e::integer);
        int integer = 0;
        EXPECT_EQ(test::TextOf([&] { leaf.GetValue(integer); }),
                  "Unsupported type: " + leaf.Get()->GetName() + c_integerMethod);
        std::string text;
        EXPECT_EQ(test::TextOf([&] { leaf.GetValue(text); }),
                  "Unsupported type: " + leaf.Get()->GetName() + c_textMethod);
    }
}

TEST_F(BoardLeaf, DatumReadAsAnotherType_RaisesWithItsNameAndTheMethod) {
    std::string text;
    for (const BoardDatum data : {BoardDatum::fpga_revision, BoardDatum::fw_revision, BoardDatum::ipmi_version}) {
        EXPECT_EQ(test::TextOf([&] { Leaf(m_boards.slot2, data).GetValue(text); }),
                  "Unsupported type: " + BmcBoardInfoNode::BoardInfoDataTypeToStr(data) + c_textMethod);
    }
    int integer = 0;
    for (const BoardDatum data : {BoardDatum::device, BoardDatum::type, BoardDatum::firmware_type, BoardDatum::status,
                                  BoardDatum::power_status, BoardDatum::red_light}) {
        for (bmc::Board* const board :
             {static_cast<bmc::Board*>(&m_boards.slot2), static_cast<bmc::Board*>(&m_boards.host)}) {
            EXPECT_EQ(test::TextOf([&] { Leaf(*board, data).GetValue(integer); }),
                      "Unsupported type: " + BmcBoardInfoNode::BoardInfoDataTypeToStr(data) + c_integerMethod);
        }
    }
    double number = 0.0;
    EXPECT_THROW(Leaf(m_boards.slot2, BoardDatum::fw_revision).GetValue(number), qstd::Exception);
}

TEST_F(BoardLeaf, StateWithoutAName_Raises) {
    ON_CALL(m_boards.slot2, GetType).WillByDefault(Return(static_cast<bmc::BoardType_e>(4711)));
    ON_CALL(m_boards.slot2, GetFirmwareType).WillByDefault(Return(static_cast<bmc::FirmwareType_e>(4711)));
    ON_CALL(m_boards.slot2, GetStatus).WillByDefault(Return(static_cast<bmc::BoardStatus_e>(4711)));
    ON_CALL(m_boards.slot2, GetPowerStatus).WillByDefault(Return(static_cast<bmc::BoardPowerStatus_e>(4711)));
    ON_CALL(m_boards.slot2, GetRedLighStatus).WillByDefault(Return(static_cast<bmc::RedLedStatus_e>(4711)));
    for (const BoardDatum data : {BoardDatum::type, BoardDatum::firmware_type, BoardDatum::status,
                                  BoardDatum::power_status, BoardDatum::red_light}) {
        std::string value = "untouched";
        EXPECT_EQ(test::TextOf([&] { Leaf(m_boards.slot2, data).GetValue(value); }), "invalid value");
        EXPECT_EQ(value, "untouched");
    }
}

TEST_F(BoardLeaf, BoardThatCannotTellItsType_RaisesForEveryDatum) {
    ON_CALL(m_boards.slot2, GetType).WillByDefault(Throw(qstd::Exception("bus")));
    for (int number = 0; number <= 10; ++number) {
        const qnode::Node leaf = Leaf(m_boards.slot2, static_cast<BoardDatum>(number));
        std::string text;
        int integer = 0;
        EXPECT_EQ(test::TextOf([&] { leaf.GetValue(text); }), "bus") << number;
        EXPECT_EQ(test::TextOf([&] { leaf.GetValue(integer); }), "bus") << number;
    }
}

TEST_F(BoardLeaf, NumberThatIsNoDatum_HasNoNameAndNoType) {
    EXPECT_EQ(BmcBoardInfoNode::BoardInfoDataTypeToStr(static_cast<BoardDatum>(6)), "red_light");
    EXPECT_EQ(BmcBoardInfoNode::BoardInfoDataTypeToStr(static_cast<BoardDatum>(11)), "invalid value");
    const qnode::Node leaf = Leaf(m_boards.slot2, static_cast<BoardDatum>(11));
    EXPECT_EQ(leaf.Get()->OnGetValueType({}), ValueType_e::empty);
    int integer = 0;
    EXPECT_EQ(test::TextOf([&] { leaf.GetValue(integer); }),
              std::string("Unsupported type: invalid value") + c_integerMethod);
}

TEST_F(BoardLeaf, Names_AreATwoWayTable) {
    const auto& items = qstd::EnumMap<BoardDatum>::items;
    EXPECT_EQ(items.FindValue("fw_flash_id"), BoardDatum::fw_flash_id);
    EXPECT_EQ(items.FindNumber(6), BoardDatum::red_light);
    EXPECT_EQ(items.GetNames().size(), 11U);
}

}  // namespace
