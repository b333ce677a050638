// An access that is broken off because the service stops: the pass, or the reading of the settings, ends at once, and
// so does the thread. Nothing is reported.

#include "bmc/broken_off.h"

#include "damage_protection_fixture.h"
#include "monitor_fixture.h"
#include "temperature_control_fixture.h"
#include "time_sync_fixture.h"

namespace {

using test::DamageProtectionTest;
using test::MonitorTest;
using test::TemperatureControlTest;
using test::TimeSyncTest;
using testing::_;
using testing::ElementsAre;
using testing::Throw;

const bmc::BrokenOff c_brokenOff("icb/0");
constexpr std::chrono::seconds c_period{60};

/// A worker that has made one pass and sleeps.
template <class Fixture>
class BrokenOffPass : public Fixture {
protected:
    BrokenOffPass() {
        this->StartAndPass("");
        this->m_log.Clear();
    }

    /// The next pass ends the thread, and that is all that is said.
    void ExpectQuietEnd() {
        this->m_clock.Advance(c_period);
        ASSERT_TRUE(this->m_log.WaitFor(this->m_stopped));
        EXPECT_THAT(this->m_log.Messages(), ElementsAre(this->m_stopped));
    }
};

using BrokenOffMonitor = BrokenOffPass<MonitorTest>;

TEST_F(BrokenOffMonitor, Reading_EndsThePass) {
    EXPECT_CALL(m_boards.core, Read).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    ExpectQuietEnd();
}

TEST_F(BrokenOffMonitor, Threshold_EndsThePass) {
    EXPECT_CALL(m_boards.core, GetUpperCritical).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    ExpectQuietEnd();
}

TEST_F(BrokenOffMonitor, Board_EndsThePass) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    ExpectQuietEnd();
}

TEST_F(MonitorTest, SettingsBrokenOff_EndTheThreadQuietly) {
    EXPECT_CALL(m_boards.slot2, GetSensorsIds).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.icb, GetSensorsIds).Times(0);
    StartAndEnd("<monitor><frequency>60</frequency></monitor>");
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Monitor process started.", m_stopped));
}

using BrokenOffDamageProtection = BrokenOffPass<DamageProtectionTest>;

TEST_F(BrokenOffDamageProtection, Reading_EndsThePass) {
    EXPECT_CALL(m_boards.core, Read).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    ExpectQuietEnd();
}

TEST_F(BrokenOffDamageProtection, Board_EndsThePass) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    ExpectQuietEnd();
}

TEST_F(BrokenOffDamageProtection, BoardPastItsLimit_IsSwitchedOffBeforeThePassEnds) {
    m_boards.intake.Hold(120);
    EXPECT_CALL(m_boards.icb, PowerDown);
    EXPECT_CALL(m_boards.core, Read).WillOnce(Throw(c_brokenOff));
    m_clock.Advance(c_period);
    ASSERT_TRUE(m_log.WaitFor(m_stopped));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("C: Value of sensor id: 12 on board ICB_1 is higher than HNR!!! (value = 120; HNC = 95)",
                            "C: !!! Shutting down board ICB_1 to prevent damage.",
                            "C: Sensor source board will be powered off now.", m_stopped));
}

using BrokenOffTimeSync = BrokenOffPass<TimeSyncTest>;

TEST_F(BrokenOffTimeSync, ReadingTheClock_EndsThePass) {
    EXPECT_CALL(m_boards.slot2, GetTime).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.icb, GetTime).Times(0);
    m_clock.Advance(std::chrono::hours(1));
    ASSERT_TRUE(m_log.WaitFor(m_stopped));
    EXPECT_THAT(m_log.Messages(), ElementsAre(m_stopped));
}

TEST_F(TemperatureControlTest, ReadingBrokenOff_EndsTheCycleBeforeTheFansAreSet) {
    StartAndCycle(Section(c_threeBands));
    m_fans.TakeWrites();
    m_log.Clear();
    EXPECT_CALL(m_boards.intake, Read).WillOnce(Throw(c_brokenOff));
    m_clock.Advance(c_period);
    ASSERT_TRUE(m_log.WaitFor("I: *Temperature Control process stopped"));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Temperature Control process stopped"));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(TemperatureControlTest, FanRegisterBrokenOff_EndsTheCycle) {
    StartAndCycle(Section(c_threeBands));
    m_fans.TakeWrites();
    m_log.Clear();
    EXPECT_CALL(m_boards.icb, FpgaSpiRead).WillOnce(Throw(c_brokenOff));
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    m_clock.Advance(c_period);
    ASSERT_TRUE(m_log.WaitFor("I: *Temperature Control process stopped"));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Temperature Control process stopped"));
}

TEST_F(TemperatureControlTest, SettingTheFansBrokenOff_IsNotToldAsAChange) {
    StartAndCycle(Section(c_threeBands));
    m_log.Clear();
    m_fans.Hold({967, 645, 483, 297, 774, 600});
    EXPECT_CALL(m_boards.icb, FpgaSpiWriteAll).WillOnce(Throw(c_brokenOff));
    m_clock.Advance(c_period);
    ASSERT_TRUE(m_log.WaitFor("I: *Temperature Control process stopped"));
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: *Temperature Control process stopped"));
}

TEST_F(TemperatureControlTest, ReportBrokenOff_EndsTheThread) {
    EXPECT_CALL(m_boards.intake, GetName).WillOnce(Throw(c_brokenOff));
    StartAndEnd(Section(c_threeBands));
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("I: *Temperature Control process started.", "I: *Temperature Control process stopped"));
}

}  // namespace
