// The temperature control's cycle: from the sensors' readings to the fans' registers.

#include <limits>
#include <memory>
#include <stdexcept>

#include "qreg/reg_node.h"
#include "qstd/exception.h"
#include "temperature_control_fixture.h"
#include "tests/support/expect_text.h"
#include "tests/support/trace_capture.h"

namespace {

using test::TemperatureControlTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::Return;
using testing::Throw;

constexpr std::uint32_t c_noNode = 0xFFFFFFFF;

const char* const c_stopped = "I: *Temperature Control process stopped";
const char* const c_noReadingWarning = "W: Can not read value from any temperature sensor.";
const char* const c_noTableWarning = "W: User did not specify valid temperature ranges.";

class TemperatureControlCycle : public TemperatureControlTest {
protected:
    void StartAt(double temperature) {
        m_boards.intake.Hold(temperature);
        StartAndCycle(Section(c_threeBands));
    }

    /// For calls of single operations: the thread has ended, the table and the sensors are there.
    void StartDisabled() {
        StartAndEnd("<temperature_control enabled='false'>" + std::string(c_threeBands) + "</temperature_control>");
        m_log.Clear();
    }

    /// As a client of the registry sets a fan, or "fans" itself for an empty name.
    void SetAsClient(const std::string& fan, double rpm) {
        dynamic_cast<qreg::RegNode&>(*m_fansNode).Set(rpm, 0, fan);
        m_fans.TakeWrites();
    }

    std::string LastChange() const {
        const auto messages = m_log.Messages();
        return messages.empty() ? "" : messages.back();
    }
};

TEST_F(TemperatureControlCycle, Readings_LeadOneBandACycleUpAndDownTheTable) {
    StartAt(48);
    EXPECT_EQ(LastChange(), "I: Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)");
    EXPECT_EQ(m_fans.TakeWrites(), "483");

    EXPECT_THAT(CycleAt(48), IsEmpty());
    EXPECT_EQ(m_fans.TakeWrites(), "-");

    EXPECT_THAT(CycleAt(42), ElementsAre("I: Fans changed from 4007 RPM to 3000 RPM. (Max temperature is 42)"));
    EXPECT_EQ(m_fans.TakeWrites(), "645");

    EXPECT_THAT(CycleAt(42), IsEmpty());
    EXPECT_EQ(m_fans.TakeWrites(), "-");

    EXPECT_THAT(CycleAt(30), ElementsAre("W: Temperature: 30 is below min fan speed range: 3000.",
                                         "I: Fans changed from 3000 RPM to 2500 RPM. (Max temperature is 30)"));
    EXPECT_EQ(m_fans.TakeWrites(), "774");

    EXPECT_THAT(CycleAt(80), ElementsAre("I: Fans changed from 2500 RPM to 4000 RPM. (Max temperature is 80)"));
    EXPECT_EQ(m_fans.TakeWrites(), "483");

    EXPECT_THAT(CycleAt(80), ElementsAre("I: Fans changed from 4007 RPM to 6500 RPM. (Max temperature is 80)"));
    EXPECT_EQ(m_fans.TakeWrites(), "297");

    for (int cycle = 0; cycle < 2; ++cycle) {
        EXPECT_THAT(CycleAt(80), ElementsAre("W: Temperature: 80 is above max fan speed range: 6500. Will be set to "
                                             "max speed: 6500"));
        EXPECT_EQ(m_fans.TakeWrites(), "-");
    }
}

TEST_F(TemperatureControlCycle, SteadyInTheLowestBand_ComesDownTwiceAndStays) {
    StartAt(42);
    EXPECT_EQ(m_fans.TakeWrites(), "483");
    CycleAt(42);
    EXPECT_EQ(m_fans.TakeWrites(), "645");
    EXPECT_THAT(CycleAt(42), IsEmpty());
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(TemperatureControlCycle, Overlap_KeepsTheBandFromEitherSide) {
    StartAt(42);
    CycleAt(42);
    EXPECT_THAT(CycleAt(52), ElementsAre("I: Fans changed from 3000 RPM to 4000 RPM. (Max temperature is 52)"));
    EXPECT_THAT(CycleAt(47), IsEmpty());
    EXPECT_THAT(CycleAt(44), ElementsAre("I: Fans changed from 4007 RPM to 3000 RPM. (Max temperature is 44)"));
    EXPECT_THAT(CycleAt(47), IsEmpty());
}

TEST_F(TemperatureControlCycle, HottestSensor_Decides) {
    m_boards.cpu.Hold(65);
    StartAt(30);
    EXPECT_EQ(LastChange(), "I: Fans changed from 0 RPM to 6500 RPM. (Max temperature is 65)");
}

TEST_F(TemperatureControlCycle, SensorsOfOtherTypes_AreNotRead) {
    EXPECT_CALL(m_boards.v12, Read).Times(0);
    StartAt(48);
}

TEST_F(TemperatureControlCycle, NoReadableSensor_WarnsEveryCycleAndFansGoToMaximumOnce) {
    for (test::MockSensor* const sensor : {&m_boards.cpu, &m_boards.core, &m_boards.intake}) {
        EXPECT_CALL(*sensor, Read).WillRepeatedly(Return(bmc::SensorReading()));
    }
    StartAt(48);
    EXPECT_THAT(m_log.Messages(), Contains(c_noReadingWarning));
    EXPECT_EQ(LastChange(), "I: Fans changed from 0 RPM to 6500 RPM. (Max temperature is -1)");
    EXPECT_EQ(m_fans.TakeWrites(), "297");
    for (int cycle = 0; cycle < 2; ++cycle) {
        EXPECT_THAT(CycleAt(48), ElementsAre(c_noReadingWarning));
        EXPECT_EQ(m_fans.TakeWrites(), "-");
    }
}

TEST_F(TemperatureControlCycle, NoReadableSensorAndNoTable_OnlyTheSensorsAreTold) {
    for (test::MockSensor* const sensor : {&m_boards.cpu, &m_boards.core, &m_boards.intake}) {
        EXPECT_CALL(*sensor, Read).WillRepeatedly(Return(bmc::SensorReading()));
    }
    StartAndCycle("");
    EXPECT_THAT(m_log.Messages(), Contains(c_noReadingWarning));
    EXPECT_THAT(m_log.Messages(), Not(Contains(c_noTableWarning)));
    EXPECT_EQ(m_fans.TakeWrites(), "297");
}

TEST_F(TemperatureControlCycle, SensorsBackFromUnreadable_TheBandIsStillTheOneBefore) {
    StartAt(48);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    m_boards.cpu.Hold(nan);
    m_boards.core.Hold(nan);
    EXPECT_THAT(CycleAt(nan),
                ElementsAre(c_noReadingWarning, "I: Fans changed from 4007 RPM to 6500 RPM. (Max temperature is -1)"));
    EXPECT_THAT(CycleAt(48), ElementsAre("I: Fans changed from 6516 RPM to 4000 RPM. (Max temperature is 48)"));
}

TEST_F(TemperatureControlCycle, NoTable_WarnsEveryCycleAndFansGoToMaximumOnce) {
    StartAndCycle("");
    EXPECT_THAT(m_log.Messages(), Contains(c_noTableWarning));
    EXPECT_EQ(LastChange(), "I: Fans changed from 0 RPM to 6500 RPM. (Max temperature is 48)");
    EXPECT_EQ(m_fans.TakeWrites(), "297");
    for (int cycle = 0; cycle < 2; ++cycle) {
        EXPECT_THAT(CycleAt(48), ElementsAre(c_noTableWarning));
        EXPECT_EQ(m_fans.TakeWrites(), "-");
    }
}

TEST_F(TemperatureControlCycle, TableWithErrors_IsAsNone) {
    StartAndCycle(Section("<fans><set lower='40' upper='50' rpm='2000'/></fans>"));
    EXPECT_THAT(m_log.Messages(), Contains(c_noTableWarning));
    EXPECT_EQ(m_fans.TakeWrites(), "297");
}

TEST_F(TemperatureControlCycle, FanSetByAClient_AllGetTheSpeedOfTheBandAgain) {
    StartAt(48);
    SetAsClient("right_rear", 2000);
    EXPECT_THAT(CycleAt(48), ElementsAre("I: Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)"));
    EXPECT_EQ(m_fans.TakeWrites(), "483");
    SetAsClient("", 5000);
    EXPECT_THAT(CycleAt(48), ElementsAre("I: Fans changed from 5001 RPM to 4000 RPM. (Max temperature is 48)"));
    EXPECT_EQ(m_fans.TakeWrites(), "483");
}

TEST_F(TemperatureControlCycle, SpeedsThatCannotBeRead_AreSetAgainEveryCycle) {
    m_fans.Hold({-1, -1, -1, -1, -1, -1});
    StartAt(48);
    EXPECT_EQ(m_fans.TakeWrites(), "483");
    for (int cycle = 0; cycle < 2; ++cycle) {
        EXPECT_THAT(CycleAt(48), ElementsAre("I: Fans changed from 0 RPM to 4000 RPM. (Max temperature is 48)"));
        EXPECT_EQ(m_fans.TakeWrites(), "483");
    }
}

TEST_F(TemperatureControlCycle, NoController_EndsTheWorkerInItsFirstCycle) {
    RemoveController();
    const test::TraceCapture trace(1);
    StartAndEnd(Section(c_threeBands));
    const std::string text = std::bad_weak_ptr().what();
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem in Temperature Control process - " + text));
    EXPECT_EQ(m_log.Messages().back(), c_stopped);
    EXPECT_THAT(trace.Texts(), Contains("Error: " + text));
}

TEST_F(TemperatureControlCycle, RegisterAccessThatRaises_EndsTheWorkerForGood) {
    StartAt(48);
    m_log.Clear();
    EXPECT_CALL(m_boards.icb, FpgaSpiRead).WillOnce(Throw(42));
    m_clock.Advance(std::chrono::seconds(60));
    ASSERT_TRUE(m_log.WaitFor(c_stopped));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Problem in Temperature Control process - Unknown Exception", c_stopped));
    m_clock.Advance(std::chrono::seconds(60));
    EXPECT_EQ(m_clock.CountSleeps(), 1);
}

TEST_F(TemperatureControlCycle, SpeedThatNoRegisterValueStandsFor_EndsTheWorker) {
    m_fans.Hold({65535, 65535, 65535, 65535, 65535, 65535});
    StartAndEnd(Section(c_threeBands));
    EXPECT_THAT(m_log.Messages(), Contains("E: Problem in Temperature Control process - Too high rpm value: 29"));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(TemperatureControlCycle, NodeGone_WarnsTwiceACycleAndGoesOn) {
    StartAt(48);
    m_fansNode.reset();
    for (int cycle = 0; cycle < 2; ++cycle) {
        EXPECT_THAT(CycleAt(48), ElementsAre("W: Fans node not valid. Returning maximum.",
                                             "W: Fans node not valid. Can't set fan speed."));
    }
}

TEST_F(TemperatureControlCycle, MaxTemp_IsTheHighestValidReading) {
    StartDisabled();
    EXPECT_EQ(m_control->GetMaxTemp(), 48);
    m_boards.core.Hold(48.5);
    EXPECT_EQ(m_control->GetMaxTemp(), 48.5);
    EXPECT_CALL(m_boards.core, Read).WillRepeatedly(Return(bmc::SensorReading::NotAvailable(90)));
    EXPECT_EQ(m_control->GetMaxTemp(), 48);
    m_boards.intake.Hold(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(m_control->GetMaxTemp(), 20);
}

TEST_F(TemperatureControlCycle, MaxTemp_ReadingsBelowMinusOneAreAsNone) {
    StartDisabled();
    m_boards.cpu.Hold(-20);
    m_boards.core.Hold(-1);
    m_boards.intake.Hold(-1.5);
    EXPECT_EQ(m_control->GetMaxTemp(), -1);
    m_boards.core.Hold(-0.5);
    EXPECT_EQ(m_control->GetMaxTemp(), -0.5);
}

TEST_F(TemperatureControlCycle, SensorsThatCannotBeRead_AreToldByTheUriAndTheOthersCount) {
    StartDisabled();
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(m_boards.slot2.GetUri())).WillRepeatedly(Return(nullptr));
    EXPECT_CALL(m_boards.icb, GetSensor(_)).WillRepeatedly(Return(nullptr));
    EXPECT_EQ(m_control->GetMaxTemp(), 20);
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Problem accessing sensor id: 12 on board u:a", "E: Problem accessing board: u:b"));
}

TEST_F(TemperatureControlCycle, BoardThatRaises_IsToldByTheUriAndTheOthersCount) {
    StartDisabled();
    EXPECT_CALL(m_boards.intake, Read).WillOnce(Throw(qstd::Exception("bus"))).WillRepeatedly(Throw(42));
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(m_boards.slot2.GetUri())).WillRepeatedly(Throw(std::runtime_error("link")));
    EXPECT_EQ(m_control->GetMaxTemp(), 20);
    EXPECT_EQ(m_control->GetMaxTemp(), 20);
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board u:a. Exception: bus",
                                              "E: Problem accessing board u:b. Exception: link",
                                              "E: Problem accessing board u:a. Unknown exception.",
                                              "E: Problem accessing board u:b. Exception: link"));
}

TEST_F(TemperatureControlCycle, ReferenceSpeed_IsTheOneThatTheFansHaveInCommon) {
    StartDisabled();
    const auto speedOf = [this](const std::vector<int>& raws) {
        m_fans.Hold(raws);
        return m_control->GetReferenceFanSpeed();
    };
    EXPECT_EQ(speedOf({0, 0, 0, 0, 0, 0}), 0U);
    EXPECT_EQ(speedOf({483, 483, 483, 483, 483, 483}), 4007U);
    EXPECT_EQ(speedOf({0, 0, 645, -1, -1, -1}), 3000U);
    EXPECT_EQ(speedOf({645, 0, -1, -1, -1, -1}), 0U);
    EXPECT_EQ(speedOf({645, 483, -1, -1, -1, -1}), 0U);
    EXPECT_EQ(speedOf({-1, 645, -1, 645, -1, -1}), 3000U);
    EXPECT_EQ(speedOf({-1, -1, -1, -1, -1, -1}), 0U);
    EXPECT_THAT(m_log.Messages(), IsEmpty());
}

TEST_F(TemperatureControlCycle, ReferenceSpeedWithoutNode_IsTheHighestNumber) {
    StartDisabled();
    m_fansNode.reset();
    EXPECT_EQ(m_control->GetReferenceFanSpeed(), c_noNode);
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Fans node not valid. Returning maximum."));
}

TEST_F(TemperatureControlCycle, ReferenceSpeedOfAnotherNode_IsTheHighestNumber) {
    m_fansNode = qnode::factory::Create<qreg::RegNode>("fans");
    StartDisabled();
    EXPECT_EQ(m_control->GetReferenceFanSpeed(), c_noNode);
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Fans node not valid. Returning maximum."));
}

TEST_F(TemperatureControlCycle, SetFansSpeed_WritesAndTellsChangesOnly) {
    StartDisabled();
    m_control->SetFansSpeed(4000, 4007, nullptr);
    EXPECT_EQ(m_fans.TakeWrites(), "-");
    m_control->SetFansSpeed(4000, 0, nullptr);
    EXPECT_EQ(m_fans.TakeWrites(), "483");
    double temperature = 48.1234567;
    m_control->SetFansSpeed(2500, 4007, &temperature);
    EXPECT_EQ(m_fans.TakeWrites(), "774");
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Fans changed from 0 RPM to 4000 RPM.",
                                              "I: Fans changed from 4007 RPM to 2500 RPM. (Max temperature is "
                                              "48.1235)"));
}

TEST_F(TemperatureControlCycle, SetFansSpeedWithoutNode_Warns) {
    StartDisabled();
    m_fansNode.reset();
    m_control->SetFansSpeed(4000, 4007, nullptr);
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    m_control->SetFansSpeed(4000, c_noNode, nullptr);
    EXPECT_THAT(m_log.Messages(), ElementsAre("W: Fans node not valid. Can't set fan speed."));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST(TemperatureControl, RpmEqual_ByTheRegisterValue) {
    EXPECT_TRUE(TemperatureControl::IsRpmEqual(6495, 6500));
    EXPECT_TRUE(TemperatureControl::IsRpmEqual(6500, 6516));
    EXPECT_TRUE(TemperatureControl::IsRpmEqual(4000, 4007));
    EXPECT_TRUE(TemperatureControl::IsRpmEqual(0, c_noNode));
    EXPECT_FALSE(TemperatureControl::IsRpmEqual(6490, 6500));
    EXPECT_FALSE(TemperatureControl::IsRpmEqual(2500, 0));
    EXPECT_FALSE(TemperatureControl::IsRpmEqual(6500, c_noNode));
    EXPECT_EQ(test::TextOf([] { TemperatureControl::IsRpmEqual(2500, 29); }), "Too high rpm value: 29");
}

TEST(TemperatureControl, MaximumSpeed_Is6500) {
    EXPECT_EQ(TemperatureControl::c_maxSpeed, 6500U);
}

}  // namespace
