#include "bmc/sweep.h"

#include <gmock/gmock.h>

#include <memory>

#include "bmc/broken_off.h"
#include "qstd/exception.h"
#include "tests/support/mock_boards.h"

namespace {

using testing::Return;
using testing::Throw;

/// The sweep that a backend has by default, of two sensors.
class DefaultSweep : public testing::Test {
protected:
    void Start() {
        m_sweep = m_boards.backend.StartSweep(
            {{m_boards.icb.GetUri(), {m_boards.intake.GetId()}}, {m_boards.slot2.GetUri(), {m_boards.core.GetId()}}});
    }

    test::ThreeBoards m_boards;
    std::unique_ptr<bmc::Sweep> m_sweep;
};

TEST_F(DefaultSweep, Start_ReadsNothing) {
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    EXPECT_CALL(m_boards.core, Read).Times(0);
    Start();
    m_sweep.reset();
}

TEST_F(DefaultSweep, Read_IsTheSensorsReadingAtThatMoment) {
    Start();
    m_boards.intake.Hold(51.5);
    EXPECT_EQ(m_sweep->Read(m_boards.intake).Converted(), 51.5);
    EXPECT_EQ(m_sweep->Read(m_boards.core).Converted(), 40);
    EXPECT_CALL(m_boards.core, Read).WillOnce(Return(bmc::SensorReading()));
    EXPECT_FALSE(m_sweep->Read(m_boards.core).IsValid());
}

TEST_F(DefaultSweep, ReadAgain_ReadsAgain) {
    Start();
    EXPECT_EQ(m_sweep->Read(m_boards.intake).Converted(), 48);
    m_boards.intake.Hold(49);
    EXPECT_EQ(m_sweep->Read(m_boards.intake).Converted(), 49);
}

TEST_F(DefaultSweep, SensorThatIsNotOfTheSweep_IsRead) {
    Start();
    EXPECT_EQ(m_sweep->Read(m_boards.cpu).Converted(), 45);
}

TEST_F(DefaultSweep, FailureOfOneSensor_IsRaisedByItsReadAndLeavesTheOthers) {
    EXPECT_CALL(m_boards.intake, Read).WillOnce(Throw(qstd::Exception("no answer")));
    EXPECT_CALL(m_boards.v12, Read).WillOnce(Throw(bmc::BrokenOff("u:a")));
    Start();
    EXPECT_THROW(m_sweep->Read(m_boards.intake), qstd::Exception);
    EXPECT_THROW(m_sweep->Read(m_boards.v12), bmc::BrokenOff);
    EXPECT_EQ(m_sweep->Read(m_boards.core).Converted(), 40);
}

TEST_F(DefaultSweep, BoardThatIsNotThere_RaisesNothing) {
    EXPECT_NE(m_boards.backend.StartSweep({{bmc::Uri("u:z", "SLOT", "9"), {bmc::SensorId(1)}}}), nullptr);
}

}  // namespace
