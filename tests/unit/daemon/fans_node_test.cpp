#include "fans_node.h"

#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <memory>
#include <vector>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/mock_boards.h"
#include "tests/support/trace_capture.h"

namespace {

using bmc::FpgaReadResult;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Return;
using testing::Throw;

constexpr std::uint16_t c_addresses[] = {0x40, 0x48, 0x50, 0x58, 0x60, 0x68};

class FansNodeTest : public testing::Test {
protected:
    /// Makes the node on the present boards, which initialises it.
    FansNode& Create() {
        m_node = qnode::factory::Create<qnode::LocalNodeStructure, FansNode>();
        return dynamic_cast<FansNode&>(*m_node);
    }

    /// The fans' registers at @p offset hold these values; a negative one cannot be read.
    void Hold(std::uint16_t offset, const std::vector<int>& raws) {
        for (std::size_t fan = 0; fan < raws.size(); ++fan) {
            const FpgaReadResult result =
                raws[fan] < 0 ? FpgaReadResult{1, 0xFFFF} : FpgaReadResult{0, static_cast<std::uint16_t>(raws[fan])};
            ON_CALL(m_boards.icb, FpgaSpiRead(static_cast<std::uint16_t>(c_addresses[fan] + offset)))
                .WillByDefault(Return(result));
        }
    }
    void Measure(const std::vector<int>& raws) { Hold(2, raws); }
    void Refer(const std::vector<int>& raws) { Hold(0, raws); }

    void ExpectWrites(test::MockBoard& board, std::uint16_t raw) {
        const testing::InSequence inOrder;
        for (const std::uint16_t address : c_addresses) {
            EXPECT_CALL(board, FpgaSpiWrite(address, raw));
        }
    }

    std::vector<std::string> ChildNames() const {
        std::vector<std::string> names;
        for (const auto& child : m_node->GetChildren()) {
            names.push_back(child->GetName());
        }
        return names;
    }

    void RemoveController() {
        ON_CALL(m_boards.backend, GetAllLocalBoardUris)
            .WillByDefault(Return(std::vector<bmc::Uri>{m_boards.host.GetUri(), m_boards.slot2.GetUri()}));
    }

    test::ThreeBoards m_boards;
    test::LogCapture m_log;
    std::shared_ptr<qnode::TreeNode> m_node;
};

TEST_F(FansNodeTest, HasTheSixFansOfTheControllerInTheirOrder) {
    Create();
    EXPECT_EQ(m_node->GetName(), "fans");
    EXPECT_THAT(ChildNames(),
                ElementsAre("left_front", "left_middle", "left_rear", "right_front", "right_middle", "right_rear"));
    EXPECT_THAT(m_log.Messages(), IsEmpty());
}

TEST_F(FansNodeTest, IsOneRealNumberThatCanBeReadAndWritten) {
    const FansNode& fans = Create();
    EXPECT_EQ(fans.OnGetValueType({}), qnode::enums::ValueType_e::real);
    EXPECT_EQ(fans.OnGetSize({}), 1U);
    EXPECT_EQ(fans.OnGetFlags(), 6U);
}

TEST_F(FansNodeTest, Set_GoesToEveryFanInOrder) {
    FansNode& fans = Create();
    ExpectWrites(m_boards.icb, 645);
    fans.Set(3000.0);
    ExpectWrites(m_boards.icb, 967);
    fans.Set(std::string("2000"));
    ExpectWrites(m_boards.icb, 645);
    const double rpm = 3000.0;
    fans.OnSet(&rpm, 5, 9);
}

TEST_F(FansNodeTest, Value_IsTheMeanOfTheFansThatCanBeRead) {
    const FansNode& fans = Create();
    Measure({967, 967, -1, -1, 645, 645});
    double rpm = -1;
    EXPECT_TRUE(fans.OnGet(&rpm, 0, 1));
    EXPECT_EQ(rpm, 2500.5);
    std::string text;
    EXPECT_TRUE(fans.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "2500.5");
}

TEST_F(FansNodeTest, MeanThatNeedsThem_IsWrittenWith17Digits) {
    const FansNode& fans = Create();
    Measure({967, 967, 645, -1, -1, -1});
    std::string text;
    EXPECT_TRUE(fans.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "2334");
    Measure({967, 645, 645, -1, -1, -1});
    EXPECT_TRUE(fans.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "2667");
    Measure({967, 645, 483, 483, 483, 297});
    EXPECT_TRUE(fans.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "3923");
    Measure({967, 645, 483, 483, 297, 297});
    EXPECT_TRUE(fans.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "4341.166666666667");
}

TEST_F(FansNodeTest, NoFanCanBeRead_ValueIsZero) {
    const FansNode& fans = Create();
    Measure({-1, -1, -1, -1, -1, -1});
    double rpm = -1;
    EXPECT_TRUE(fans.OnGet(&rpm, 0, 1));
    EXPECT_EQ(rpm, 0.0);
    std::string text;
    EXPECT_TRUE(fans.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "0");
}

TEST_F(FansNodeTest, NoController_HasNoFansAndNoValue) {
    RemoveController();
    FansNode& fans = Create();
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Fans node: ICB board was not found."));
    EXPECT_FALSE(fans.Init());
    EXPECT_THAT(ChildNames(), IsEmpty());
    double rpm = -1;
    std::string text;
    EXPECT_THROW(fans.OnGet(&rpm, 0, 1), std::bad_weak_ptr);
    EXPECT_THROW(fans.OnGet(&text, 0, 1), std::bad_weak_ptr);
    EXPECT_THROW(fans.Set(3000.0), std::bad_weak_ptr);
    EXPECT_THROW(fans.Set(std::string("3000")), std::bad_weak_ptr);
    EXPECT_THAT(fans.GetReferenceFansSpeed(), IsEmpty());
}

TEST_F(FansNodeTest, EmptyPool_HasNoFans) {
    ON_CALL(m_boards.backend, GetAllLocalBoardUris).WillByDefault(Return(std::vector<bmc::Uri>{}));
    Create();
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Fans node: ICB board was not found."));
}

TEST_F(FansNodeTest, BoardThatIsGone_IsTracedAndPassedOver) {
    ON_CALL(m_boards.backend, GetBoard(m_boards.host.GetUri())).WillByDefault(Return(nullptr));
    const test::TraceCapture trace(1);
    Create();
    const auto records = trace.Records();
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].level, 1);
    EXPECT_EQ(records[0].source, "fans_node");
    EXPECT_EQ(records[0].text, "Problem accessing board: u:c");
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    EXPECT_EQ(ChildNames().size(), 6U);
}

TEST_F(FansNodeTest, TwoControllers_TheFirstInThePoolHasTheFans) {
    ON_CALL(m_boards.slot2, GetType).WillByDefault(Return(bmc::BoardType_e::icb));
    FansNode& fans = Create();
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite).Times(0);
    ExpectWrites(m_boards.slot2, 645);
    fans.Set(3000.0);
}

TEST_F(FansNodeTest, WhateverIsRaisedDuringInit_IsAWarning) {
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillOnce(Throw(qstd::Exception("bus")));
    Create();
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Failed to initialise fans node: fans"));
    EXPECT_THAT(ChildNames(), IsEmpty());

    m_log.Clear();
    EXPECT_CALL(m_boards.backend, GetAllLocalBoardUris).WillRepeatedly(Return(std::vector{m_boards.icb.GetUri()}));
    EXPECT_CALL(m_boards.icb, GetType).WillOnce(Throw(42));
    FansNode fans;
    EXPECT_FALSE(fans.Init());
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Failed to initialise fans node: fans"));
}

TEST_F(FansNodeTest, FailureHalfWayThroughInit_KeepsTheFansThatAreThere) {
    FansNode& fans = Create();
    EXPECT_FALSE(fans.Init());  // the fans are there already
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Failed to initialise fans node: fans"));
    EXPECT_EQ(ChildNames().size(), 6U);
    ExpectWrites(m_boards.icb, 645);
    fans.Set(3000.0);
}

TEST_F(FansNodeTest, SpeedThatIsRefused_ChangesNoFan) {
    FansNode& fans = Create();
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite).Times(0);
    EXPECT_EQ(test::TextOf([&] { fans.Set(20.0); }), "Too high rpm value: 20");
    EXPECT_EQ(test::TextOf([&] { fans.Set(std::string("20")); }), "Too high rpm value: 20");
    EXPECT_THROW(fans.Set(std::string("abc")), boost::bad_lexical_cast);
}

TEST_F(FansNodeTest, Set_IsOneBatchInTheOrderOfTheFans) {
    FansNode& fans = Create();
    EXPECT_CALL(m_boards.icb, FpgaSpiWriteAll).WillOnce([](const std::vector<bmc::FpgaRegisterValue>& values) {
        std::vector<std::uint16_t> addresses;
        for (const bmc::FpgaRegisterValue& each : values) {
            addresses.push_back(each.address);
            EXPECT_EQ(each.value, 645);
        }
        EXPECT_THAT(addresses, testing::ElementsAreArray(c_addresses));
        return std::vector<bmc::FpgaWriteResult>(values.size());
    });
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite).Times(0);
    fans.Set(3000.0);
}

TEST_F(FansNodeTest, WriteThatFails_KeepsNoFanFromBeingWrittenAndRaisesNothing) {
    FansNode& fans = Create();
    ON_CALL(m_boards.icb, FpgaSpiWrite).WillByDefault(Return(bmc::FpgaWriteResult{1}));
    ExpectWrites(m_boards.icb, 645);
    fans.Set(3000.0);
}

TEST_F(FansNodeTest, FanThatRaisesDuringASet_StopsItThere) {
    FansNode& fans = Create();
    const testing::InSequence inOrder;
    for (std::size_t fan = 0; fan < 3; ++fan) {
        EXPECT_CALL(m_boards.icb, FpgaSpiWrite(c_addresses[fan], 645));
    }
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(0x58, 645)).WillOnce(Throw(qstd::Exception("bus")));
    EXPECT_EQ(test::TextOf([&] { fans.Set(3000.0); }), "bus");
}

TEST_F(FansNodeTest, ReferenceSpeeds_LeaveOutTheFanThatCannotBeRead) {
    const FansNode& fans = Create();
    Refer({967, 645, 483, 297, 774, 64516});
    EXPECT_THAT(fans.GetReferenceFansSpeed(), ElementsAre(2001, 3000, 4007, 6516, 2500, 30));
    Refer({967, 645, -1, 297, 774, 64516});
    EXPECT_THAT(fans.GetReferenceFansSpeed(), ElementsAre(2001, 3000, 6516, 2500, 30));
}

TEST_F(FansNodeTest, Fans_CanBeSetOneByOne) {
    Create();
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(0x68, 967));
    dynamic_cast<qreg::RegNode&>(*m_node).Set(2000.0, 0, "right_rear");
}

TEST_F(FansNodeTest, EveryOperation_IsTracedWithItsSignature) {
    const FansNode& fans = Create();
    const test::TraceCapture trace(4);
    fans.GetReferenceFansSpeed();
    const auto records = trace.Records();
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.front().text, "entry");
    EXPECT_EQ(records.front().source, "fans_node");
    EXPECT_EQ(records.front().function, "std::vector<double> FansNode::GetReferenceFansSpeed() const");
    EXPECT_EQ(records.back().text, "exit");
}

}  // namespace
