// What one pass of the time synchronization does, to which boards.

#include <stdexcept>
#include <string>

#include "qstd/exception.h"
#include "time_sync_fixture.h"

namespace {

using qstd::Time;
using test::TimeSyncTest;
using testing::_;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Return;
using testing::Throw;

TEST_F(TimeSyncTest, BoardOffByTheAllowedDifference_IsSetAndOneOffByLessIsNot) {
    EXPECT_TRUE(IsSet(-2 * c_second));
    EXPECT_TRUE(IsSet(2 * c_second));
    EXPECT_FALSE(IsSet(-2 * c_second + 1));
    EXPECT_FALSE(IsSet(2 * c_second - 1));
    EXPECT_FALSE(IsSet(-1 * c_second));
    EXPECT_FALSE(IsSet(1 * c_second));
    EXPECT_FALSE(IsSet(0));
    EXPECT_TRUE(IsSet(-1000 * c_second));
    EXPECT_TRUE(IsSet(100000 * c_second));
}

TEST_F(TimeSyncTest, DifferenceOfTheSection_IsTheLimit) {
    const std::string section = "<timesync><delta>10</delta></timesync>";
    EXPECT_TRUE(IsSet(-10 * c_second, section));
    EXPECT_FALSE(IsSet(-9 * c_second, section));
    EXPECT_TRUE(IsSet(10 * c_second, section));
    EXPECT_FALSE(IsSet(9 * c_second, section));
}

TEST_F(TimeSyncTest, NoDifferenceAllowed_SetsEveryBoardInEveryPass) {
    EXPECT_CALL(m_boards.slot2, SetTime).Times(2);
    EXPECT_CALL(m_boards.icb, SetTime).Times(2);
    StartAndPass("<timesync><frequency>60</frequency><delta>0</delta></timesync>");
    EXPECT_THAT(m_log.Messages(), Contains(SetText("ICB_1", "0", 1000 * c_second, 1000 * c_second)));
    Pass(std::chrono::seconds(60));
    EXPECT_THAT(m_log.Messages(), Contains(SetText("ICB_1", "0", 1060 * c_second, 1060 * c_second)));
}

TEST_F(TimeSyncTest, NegativeDifference_SetsEveryBoardInEveryPass) {
    EXPECT_TRUE(IsSet(0, "<timesync><delta>-5</delta></timesync>"));
}

TEST_F(TimeSyncTest, LargestDifference_LeavesEveryBoardAlone) {
    EXPECT_FALSE(IsSet(-1000 * c_second, "<timesync><delta>2147483647</delta></timesync>"));
}

TEST_F(TimeSyncTest, BoardBehind_IsSetToTheHostsTime) {
    SetBoard(m_boards.slot2, 990 * c_second);
    EXPECT_CALL(m_boards.slot2, SetTime(Time(1000, 0))).Times(1);
    EXPECT_CALL(m_boards.icb, SetTime).Times(0);
    StartAndPass("");
    EXPECT_EQ(m_log.Messages().back(), SetText("SLOT_2", "10", 990 * c_second, 1000 * c_second));
}

TEST_F(TimeSyncTest, BoardAhead_IsSetAndShowsADifferenceThatWraps) {
    SetBoard(m_boards.slot2, 1005 * c_second);
    EXPECT_CALL(m_boards.slot2, SetTime(Time(1000, 0))).Times(1);
    StartAndPass("");
    EXPECT_EQ(m_log.Messages().back(), SetText("SLOT_2", "4294967291", 1005 * c_second, 1000 * c_second));
}

TEST_F(TimeSyncTest, DifferenceShown_IsThatOfTheWholeSeconds) {
    SetHost(1000 * c_second + 100000);
    SetBoard(m_boards.slot2, 996 * c_second + 900000);
    EXPECT_CALL(m_boards.slot2, SetTime(Time(1000, 100000))).Times(1);
    StartAndPass("");
    EXPECT_EQ(m_log.Messages().back(), SetText("SLOT_2", "4", 996 * c_second + 900000, 1000 * c_second + 100000));
}

TEST_F(TimeSyncTest, DifferenceOfMoreThanACentury_Wraps) {
    SetHost(4294967296 * c_second + 5 * c_second);
    SetBoard(m_boards.slot2, 0);
    StartAndPass("");
    EXPECT_EQ(m_log.Messages().back(), SetText("SLOT_2", "5", 0, 4294967301 * c_second));
}

TEST_F(TimeSyncTest, HostsTime_IsTakenAfterTheBoardAnswered) {
    EXPECT_CALL(m_boards.slot2, GetTime).WillOnce([this] {
        m_clock.Advance(std::chrono::seconds(7));  // a slow board
        return Time(1000, 0);
    });
    EXPECT_CALL(m_boards.slot2, SetTime(Time(1007, 0))).Times(1);
    StartAndPass("");
    EXPECT_EQ(m_log.Messages().back(), SetText("SLOT_2", "7", 1000 * c_second, 1007 * c_second));
}

TEST_F(TimeSyncTest, NoBoardOfTheHost_TheLastBoardIsNeverSet) {
    EXPECT_CALL(m_boards.host, GetType).WillRepeatedly(Return(bmc::BoardType_e::power_supply));
    for (test::MockBoard* const board : {&m_boards.host, &m_boards.slot2, &m_boards.icb}) {
        SetBoard(*board, 0);
    }
    EXPECT_CALL(m_boards.host, SetTime).Times(1);
    EXPECT_CALL(m_boards.slot2, SetTime).Times(1);
    EXPECT_CALL(m_boards.icb, SetTime).Times(0);
    StartAndPass("");
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre(_, _, _, "I: *Time synchronization process started.", "I: Board HOST_0 will be synchronized.",
                    "I: Board SLOT_2 will be synchronized.", "I: Board ICB_1 will be synchronized.",
                    HasSubstr("time on board HOST_0 -"), HasSubstr("time on board SLOT_2 -")));
}

TEST_F(TimeSyncTest, TwoBoardsOfTheHost_OnlyTheLastIsTheReference) {
    EXPECT_CALL(m_boards.icb, GetType).WillRepeatedly(Return(bmc::BoardType_e::os));
    SetBoard(m_boards.host, 0);
    SetBoard(m_boards.icb, 0);
    EXPECT_CALL(m_boards.host, SetTime).Times(1);
    EXPECT_CALL(m_boards.icb, SetTime).Times(0);
    StartAndPass("");
    EXPECT_THAT(m_log.Messages(), Contains("I: Reference for time synchronization is board HOST_0."));
    EXPECT_THAT(m_log.Messages(), Contains("I: Reference for time synchronization is board ICB_1."));
}

TEST_F(TimeSyncTest, ReferenceInTheMiddle_TheOthersKeepTheirOrder) {
    EXPECT_CALL(m_boards.host, GetType).WillRepeatedly(Return(bmc::BoardType_e::power_supply));
    EXPECT_CALL(m_boards.slot2, GetType).WillRepeatedly(Return(bmc::BoardType_e::os));
    EXPECT_CALL(m_boards.host, SetTime).Times(1);
    EXPECT_CALL(m_boards.slot2, SetTime).Times(0);
    EXPECT_CALL(m_boards.icb, SetTime).Times(1);
    SetBoard(m_boards.host, 0);
    SetBoard(m_boards.icb, 0);
    StartAndPass("");
    const auto messages = m_log.Messages();
    EXPECT_THAT(messages[messages.size() - 2], HasSubstr("time on board HOST_0 -"));
    EXPECT_THAT(messages.back(), HasSubstr("time on board ICB_1 -"));
}

TEST_F(TimeSyncTest, BoardThatIsGone_IsToldAtTheStartAndInEveryPassUntilItIsBack) {
    PoolFinds(m_slot2Uri, nullptr);
    SetBoard(m_boards.icb, 0);
    EXPECT_CALL(m_boards.icb, SetTime).Times(3);
    StartAndPass("<timesync><frequency>60</frequency></timesync>");
    EXPECT_EQ(m_log.Count("E: Problem accessing board: SLOT_2"), 2);
    Pass(std::chrono::seconds(60));
    EXPECT_EQ(m_log.Count("E: Problem accessing board: SLOT_2"), 3);

    PoolFinds(m_slot2Uri, &m_boards.slot2);
    SetBoard(m_boards.slot2, 0);
    EXPECT_CALL(m_boards.slot2, SetTime).Times(1);
    Pass(std::chrono::seconds(60));
    EXPECT_EQ(m_log.Count("E: Problem accessing board: SLOT_2"), 3);
}

TEST_F(TimeSyncTest, BoardThatAppearsLater_IsNotSet) {
    StartAndPass("<timesync><frequency>60</frequency></timesync>");
    test::MockBoard& late = m_boards.backend.Add(bmc::Uri("u:d", "SLOT", "3"), "slot3", bmc::BoardType_e::power_supply);
    EXPECT_CALL(late, SetTime).Times(0);
    Pass(std::chrono::seconds(60));
    EXPECT_THAT(m_log.Messages(), Each(Not(HasSubstr("SLOT_3"))));
}

TEST_F(TimeSyncTest, BoardThatRaises_EndsThePassAndTheNextComesAfterThePeriod) {
    const test::TraceCapture trace(1);
    EXPECT_CALL(m_boards.slot2, GetTime).WillOnce(Throw(qstd::Exception("bus"))).WillRepeatedly(Return(Time(1000, 0)));
    EXPECT_CALL(m_boards.icb, GetTime).Times(0);
    StartAndPass("<timesync><frequency>1</frequency></timesync>");
    EXPECT_EQ(m_log.Messages().back(), "E: Problem in time synchronization process - bus");
    const auto record = trace.Records().back();
    EXPECT_EQ(record.level, 1);
    EXPECT_EQ(record.source, "time_sync");
    EXPECT_EQ(record.function, "void TimeSync::operator()()");
    EXPECT_EQ(record.text, " .Error: bus");

    m_clock.Advance(std::chrono::milliseconds(999));
    EXPECT_EQ(m_clock.CountSleeps(), 1);  // no retry before the period is over
    EXPECT_CALL(m_boards.icb, GetTime).Times(1);
    m_clock.Advance(std::chrono::milliseconds(1));
    m_clock.WaitForSleeps(2);
    EXPECT_EQ(m_log.Count("E: Problem in time synchronization process - bus"), 1);
}

TEST_F(TimeSyncTest, BoardThatRaisesAnythingElse_IsAnUnknownExceptionOfThePass) {
    const test::TraceCapture trace(1);
    EXPECT_CALL(m_boards.slot2, GetTime).WillOnce(Throw(42)).WillOnce(Throw(std::runtime_error("link")));
    StartAndPass("<timesync><frequency>60</frequency></timesync>");
    EXPECT_EQ(m_log.Messages().back(), "E: Problem in time synchronization process - Unknown Exception");
    Pass(std::chrono::seconds(60));
    EXPECT_EQ(m_log.Count("E: Problem in time synchronization process - Unknown Exception"), 2);
    const auto record = trace.Records().back();
    EXPECT_EQ(record.level, 1);
    EXPECT_EQ(record.source, "time_sync");
    EXPECT_EQ(record.function, "void TimeSync::operator()()");
    EXPECT_EQ(record.text, "Unknown Exception");
}

TEST_F(TimeSyncTest, SetTimeThatRaises_IsNotToldAsASetClock) {
    SetBoard(m_boards.slot2, 0);
    EXPECT_CALL(m_boards.slot2, SetTime).WillOnce(Throw(qstd::Exception("refused")));
    EXPECT_CALL(m_boards.icb, GetTime).Times(0);
    StartAndPass("");
    EXPECT_EQ(m_log.Messages().back(), "E: Problem in time synchronization process - refused");
    EXPECT_THAT(m_log.Messages(), Each(Not(HasSubstr("Synchronizing time"))));
}

}  // namespace
