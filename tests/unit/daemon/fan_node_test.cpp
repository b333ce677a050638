#include "fan_node.h"

#include <gtest/gtest.h>

#include <boost/lexical_cast.hpp>
#include <limits>
#include <memory>
#include <vector>

#include "qnode/factory.h"
#include "qnode/node.h"
#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/mock_boards.h"
#include "tests/support/special_numbers.h"
#include "tests/support/trace_capture.h"

namespace {

using bmc::FpgaReadResult;
using testing::_;
using testing::Return;

/// The fan left_front of the chassis controller.
class FanNodeTest : public testing::Test {
protected:
    static std::shared_ptr<qnode::TreeNode> Create(bmc::Board* board, std::uint16_t address) {
        return qnode::factory::Create<qnode::LocalNodeStructure, FanNode>(board, address);
    }
    void Measure(std::uint16_t raw) {
        ON_CALL(m_boards.icb, FpgaSpiRead(0x42)).WillByDefault(Return(FpgaReadResult{0, raw}));
    }
    double Read() {
        double rpm = c_untouched;
        EXPECT_TRUE(m_fan.OnGet(&rpm, 0, 1));
        return rpm;
    }

    test::ThreeBoards m_boards;
    const std::shared_ptr<qnode::TreeNode> m_node = Create(&m_boards.icb, 0x40);
    FanNode& m_fan = dynamic_cast<FanNode&>(*m_node);
};

TEST_F(FanNodeTest, Fans_AreNamedByTheirAddress) {
    EXPECT_EQ(FanNode::FanName(0x40), "left_front");
    EXPECT_EQ(FanNode::FanName(0x48), "left_middle");
    EXPECT_EQ(FanNode::FanName(0x50), "left_rear");
    EXPECT_EQ(FanNode::FanName(0x58), "right_front");
    EXPECT_EQ(FanNode::FanName(0x60), "right_middle");
    EXPECT_EQ(FanNode::FanName(0x68), "right_rear");
    EXPECT_EQ(FanNode::FanName(0x42), "");
    EXPECT_EQ(FanNode::FanName(0x44), "");
    EXPECT_EQ(m_fan.GetName(), "left_front");
}

TEST_F(FanNodeTest, AddressOfNoFan_CannotBeMade) {
    try {
        Create(&m_boards.icb, 0x44);
        FAIL() << "made";
    } catch (const qstd::Exception& error) {
        EXPECT_STREQ(error.what(), "Internal error: fan is not properly instantiated");
        EXPECT_TRUE(error.GetFlag());
    }
}

TEST_F(FanNodeTest, IsOneRealNumberThatCanBeReadAndWritten) {
    EXPECT_EQ(m_fan.OnGetValueType({}), qnode::enums::ValueType_e::real);
    EXPECT_EQ(static_cast<int>(m_fan.OnGetValueType({})), 6);
    EXPECT_EQ(m_fan.OnGetSize({}), 1U);
    EXPECT_EQ(m_fan.OnGetFlags(), 6U);
}

TEST_F(FanNodeTest, RegisterValueToSpeed_IsTheIntegerQuotient) {
    const std::vector<std::pair<std::uint16_t, double>> expected{{0, 0.0},      {1, 1935483.0}, {297, 6516.0},
                                                                 {483, 4007.0}, {645, 3000.0},  {774, 2500.0},
                                                                 {967, 2001.0}, {64516, 30.0},  {65535, 29.0}};
    for (const auto& [raw, rpm] : expected) {
        Measure(raw);
        EXPECT_EQ(Read(), rpm) << raw;
    }
}

TEST_F(FanNodeTest, SpeedToRegisterValue_IsTruncated) {
    const std::vector<std::pair<double, int>> expected{{2000, 967},  {2500, 774},  {3000, 645},       {4000, 483},
                                                       {6500, 297},  {30, 64516},  {29.54, 65520},    {0, 0},
                                                       {1935483, 1}, {1935484, 0}, {4294967295.0, 0}, {c_infinity, 0}};
    for (const auto& [rpm, raw] : expected) {
        EXPECT_EQ(FanNode::RpmToRaw(rpm), raw) << rpm;
    }
}

TEST_F(FanNodeTest, SpeedToRegisterValue_KeepsWhatA32BitWordKeepsOfAHugeQuotient) {
    EXPECT_EQ(FanNode::RpmToRaw(1e-300), 0);                                                   // beyond 2^32
    EXPECT_EQ(FanNode::RpmToRaw(1935483.0 / 4294967296.0), 0);                                 // 2^32
    EXPECT_EQ(test::TextOf([] { FanNode::RpmToRaw(0.001); }), "Too high rpm value: 0.001");    // below 2^31
    EXPECT_EQ(test::TextOf([] { FanNode::RpmToRaw(0.0005); }), "Too high rpm value: 0.0005");  // above 2^31
    EXPECT_EQ(FanNode::RpmToRaw(-1e9), 0);                                                     // truncates to zero
}

TEST_F(FanNodeTest, SpeedThatNoRegisterValueStandsFor_IsRefusedAndNothingIsWritten) {
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite).Times(0);
    const std::vector<std::pair<double, std::string>> refused{
        {29.5, "29.5"}, {20, "20"},
        {-100, "-100"}, {-1935483, "-1.93548e+06"},
        {-0.0, "-0"},   {std::numeric_limits<double>::quiet_NaN(), "nan"}};
    for (const auto& [rpm, text] : refused) {
        const double value = rpm;
        try {
            m_fan.OnSet(&value, 0, 1);
            ADD_FAILURE() << text << " was taken";
        } catch (const qstd::Exception& error) {
            EXPECT_EQ(error.what(), "Too high rpm value: " + text);
            EXPECT_TRUE(error.GetFlag());
        }
    }
}

TEST_F(FanNodeTest, FirstSpeedThatIsRefused_IsWhereTheRegisterIsFull) {
    EXPECT_EQ(FanNode::RpmToRaw(1935483.0 / 65535.5), 65535);
    EXPECT_THROW(FanNode::RpmToRaw(1935483.0 / 65536.5), qstd::Exception);
}

TEST_F(FanNodeTest, Value_IsTheMeasuredSpeedAndTheReferenceStandsBesideIt) {
    EXPECT_CALL(m_boards.icb, FpgaSpiRead(0x42)).WillOnce(Return(FpgaReadResult{0, 967}));
    EXPECT_EQ(Read(), 2001.0);
    EXPECT_CALL(m_boards.icb, FpgaSpiRead(0x40)).WillOnce(Return(FpgaReadResult{0, 483}));
    double rpm = c_untouched;
    EXPECT_TRUE(m_fan.GetReferenceSpeed(rpm));
    EXPECT_EQ(rpm, 4007.0);
}

TEST_F(FanNodeTest, TransferThatFails_GivesNoValue) {
    ON_CALL(m_boards.icb, FpgaSpiRead(_)).WillByDefault(Return(FpgaReadResult{1, 967}));
    double rpm = c_untouched;
    EXPECT_FALSE(m_fan.OnGet(&rpm, 0, 1));
    EXPECT_FALSE(m_fan.GetReferenceSpeed(rpm));
    EXPECT_FALSE(m_fan.ReadRPM(0x40, rpm));
    EXPECT_EQ(rpm, c_untouched);
    std::string text = "untouched";
    EXPECT_TRUE(m_fan.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "0");
}

TEST_F(FanNodeTest, WriteThatFails_RaisesNothing) {
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(0x40, 645)).WillOnce(Return(bmc::FpgaWriteResult{1}));
    m_fan.Set(3000.0);
}

TEST_F(FanNodeTest, BoardThatRaises_RaisesToTheClient) {
    ON_CALL(m_boards.icb, FpgaSpiRead(_)).WillByDefault(testing::Throw(qstd::Exception("bus")));
    ON_CALL(m_boards.icb, FpgaSpiWrite(_, _)).WillByDefault(testing::Throw(qstd::Exception("bus")));
    double rpm = 3000.0;
    EXPECT_EQ(test::TextOf([&] { m_fan.OnGet(&rpm, 0, 1); }), "bus");
    EXPECT_EQ(test::TextOf([&] { m_fan.OnSet(&rpm, 0, 1); }), "bus");
}

TEST_F(FanNodeTest, Set_WritesTheReferenceWhateverThePosition) {
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(0x40, 967)).Times(2);
    const double rpm = 2000;
    m_fan.OnSet(&rpm, 0, 1);
    m_fan.OnSet(&rpm, 5, 9);
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(0x40, 0));
    m_fan.Set(0.0);
}

TEST_F(FanNodeTest, Text_IsConvertedBothWays) {
    Measure(967);
    std::string text;
    EXPECT_TRUE(m_fan.OnGet(&text, 0, 1));
    EXPECT_EQ(text, "2001");
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(0x40, 65520));
    m_fan.Set(std::string("29.54"));
}

TEST_F(FanNodeTest, TextThatIsNoNumber_RaisesAndNothingIsWritten) {
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite).Times(0);
    for (const std::string text : {"abc", "", "3000 ", "3000rpm"}) {
        EXPECT_THROW(m_fan.Set(text), boost::bad_lexical_cast) << text;
    }
    EXPECT_EQ(test::TextOf([&] { m_fan.Set(std::string("20")); }), "Too high rpm value: 20");
}

TEST_F(FanNodeTest, AnotherType_IsRefused) {
    EXPECT_THROW(m_fan.Set(3000), qstd::Exception);
    int value = 0;
    EXPECT_THROW(qnode::Node(m_node).GetValue(value), qstd::Exception);
}

TEST_F(FanNodeTest, EveryOperation_IsTracedWithItsSignature) {
    const test::TraceCapture trace(4);
    double rpm = 0.0;
    m_fan.OnGet(&rpm, 0, 1);
    std::vector<std::string> seen;
    for (const auto& record : trace.Records()) {
        EXPECT_EQ(record.source, "fan_node");
        EXPECT_EQ(record.level, 4);
        seen.push_back(record.text + " " + record.function);
    }
    EXPECT_THAT(seen,
                testing::ElementsAre("entry virtual bool FanNode::OnGet(double*, std::size_t, std::size_t) const",
                                     "entry bool FanNode::ReadRPM(uint16_t, double&) const",
                                     "exit bool FanNode::ReadRPM(uint16_t, double&) const",
                                     "exit virtual bool FanNode::OnGet(double*, std::size_t, std::size_t) const"));
}

}  // namespace
