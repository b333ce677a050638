#include "fans_safe.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include "qstd/exception.h"
#include "tests/support/expect_text.h"
#include "tests/support/log_capture.h"
#include "tests/support/mock_boards.h"

namespace {

using bmc::FpgaReadResult;
using bmc::FpgaWriteResult;
using testing::_;
using testing::ElementsAre;
using testing::Return;
using testing::Throw;

constexpr std::uint16_t c_maximum = 297;  // 6500 RPM
constexpr std::uint16_t c_slow = 774;     // 2500 RPM

/// A fan controller that keeps what is written to its registers.
class FansSafe : public testing::Test {
protected:
    FansSafe() {
        ON_CALL(m_boards.icb, FpgaSpiWrite).WillByDefault([this](std::uint16_t address, std::uint16_t value) {
            if (m_stuck.count(address) != 0) {
                return FpgaWriteResult{1};
            }
            m_registers.at(address) = value;
            return FpgaWriteResult{};
        });
        ON_CALL(m_boards.icb, FpgaSpiRead).WillByDefault([this](std::uint16_t address) {
            return FpgaReadResult{0, m_registers.at(address)};
        });
    }

    void RaiseOnWrite(std::uint16_t address, const std::string& text) {
        ON_CALL(m_boards.icb, FpgaSpiWrite(address, _)).WillByDefault(Throw(qstd::Exception(text)));
    }

    std::vector<std::uint16_t> Registers() const {
        std::vector<std::uint16_t> values;
        for (const auto& entry : m_registers) {
            values.push_back(entry.second);
        }
        return values;
    }

    test::ThreeBoards m_boards;
    test::LogCapture m_log;
    std::map<std::uint16_t, std::uint16_t> m_registers{{0x40, c_slow}, {0x48, c_slow}, {0x50, 0},
                                                       {0x58, 645},    {0x60, 64516},  {0x68, c_slow}};
    std::set<std::uint16_t> m_stuck;  ///< writing to them fails
};

TEST_F(FansSafe, AllRegisters_HoldTheMaximumAndTheLogSaysSo) {
    SetFansSafe();
    EXPECT_THAT(Registers(), ElementsAre(c_maximum, c_maximum, c_maximum, c_maximum, c_maximum, c_maximum));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: All fans are set to 6500 RPM."));
}

TEST_F(FansSafe, WriteThatFails_NamesTheFanAndSetsTheOthers) {
    m_stuck = {0x50};
    m_registers[0x50] = c_slow;
    EXPECT_EQ(test::TextOf(SetFansSafe), "Not all fans are at 6500 RPM: left_rear reads back 2500 RPM");
    EXPECT_THAT(Registers(), ElementsAre(c_maximum, c_maximum, c_slow, c_maximum, c_maximum, c_maximum));
    EXPECT_THAT(m_log.Messages(), testing::IsEmpty());
}

TEST_F(FansSafe, WriteThatFails_IsHarmlessWhenTheRegisterHoldsTheMaximumAlready) {
    m_stuck = {0x50};
    m_registers[0x50] = c_maximum;
    SetFansSafe();
    EXPECT_EQ(m_log.Count("I: All fans are set to 6500 RPM."), 1);
}

TEST_F(FansSafe, RegisterThatReadsBackAnotherValue_IsNamedWithItsSpeed) {
    const std::vector<std::pair<std::uint16_t, std::string>> cases{
        {0, "0"}, {298, "6494"}, {296, "6538"}, {0xFFFF, "29"}, {1, "1935483"}};
    for (const auto& [value, rpm] : cases) {
        ON_CALL(m_boards.icb, FpgaSpiRead(0x68)).WillByDefault(Return(FpgaReadResult{0, value}));
        EXPECT_EQ(test::TextOf(SetFansSafe), "Not all fans are at 6500 RPM: right_rear reads back " + rpm + " RPM");
    }
}

TEST_F(FansSafe, RegisterThatCannotBeReadBack_IsNotProved) {
    ON_CALL(m_boards.icb, FpgaSpiRead(0x40)).WillByDefault(Return(FpgaReadResult{1, c_maximum}));
    ON_CALL(m_boards.icb, FpgaSpiRead(0x48)).WillByDefault(Throw(qstd::Exception("no answer")));
    EXPECT_EQ(test::TextOf(SetFansSafe),
              "Not all fans are at 6500 RPM: left_front cannot be read back; "
              "left_middle cannot be read back (no answer)");
    EXPECT_THAT(Registers(), ElementsAre(c_maximum, c_maximum, c_maximum, c_maximum, c_maximum, c_maximum));
}

TEST_F(FansSafe, AccessesThatRaise_KeepNoOtherFanSlow) {
    RaiseOnWrite(0x40, "bus");
    ON_CALL(m_boards.icb, FpgaSpiWrite(0x60, _)).WillByDefault(Throw(42));
    EXPECT_EQ(test::TextOf(SetFansSafe),
              "Not all fans are at 6500 RPM: left_front cannot be set (bus), reads back 2500 RPM; "
              "right_middle cannot be set (Unknown Exception), reads back 30 RPM");
    EXPECT_THAT(Registers(), ElementsAre(c_slow, c_maximum, c_maximum, c_maximum, 64516, c_maximum));
}

TEST_F(FansSafe, ControllerThatRaisesAlways_IsToldForEveryFan) {
    ON_CALL(m_boards.icb, FpgaSpiWrite).WillByDefault(Throw(std::runtime_error("hung")));
    ON_CALL(m_boards.icb, FpgaSpiRead).WillByDefault(Throw(std::runtime_error("hung")));
    const std::string fan = " cannot be set (hung), cannot be read back (hung)";
    EXPECT_EQ(test::TextOf(SetFansSafe), "Not all fans are at 6500 RPM: left_front" + fan + "; left_middle" + fan +
                                             "; left_rear" + fan + "; right_front" + fan + "; right_middle" + fan +
                                             "; right_rear" + fan);
}

TEST_F(FansSafe, EveryFan_IsSetBeforeTheFirstIsReadBack) {
    const testing::InSequence inOrder;
    EXPECT_CALL(m_boards.icb, FpgaSpiWrite(_, c_maximum)).Times(6);
    EXPECT_CALL(m_boards.icb, FpgaSpiRead).Times(6).WillRepeatedly(Return(FpgaReadResult{0, c_maximum}));
    SetFansSafe();
}

TEST_F(FansSafe, NoController_IsToldInWords) {
    ON_CALL(m_boards.icb, GetType).WillByDefault(Return(bmc::BoardType_e::io));
    EXPECT_EQ(test::TextOf(SetFansSafe), "The fans are not set to 6500 RPM: no chassis controller can be reached");
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Fans node: ICB board was not found."));
}

TEST_F(FansSafe, BoardsThatCannotBeAsked_AreToldInWords) {
    ON_CALL(m_boards.backend, GetAllLocalBoardUris).WillByDefault(Throw(qstd::Exception("bus")));
    EXPECT_EQ(test::TextOf(SetFansSafe), "The fans are not set to 6500 RPM: no chassis controller can be reached");
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Failed to initialise fans node: fans"));
}

}  // namespace
