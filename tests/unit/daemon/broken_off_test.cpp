// An access that is broken off because the service stops: the pass, or the reading of the settings, ends at once, and
// the thread ends when it is told to. Nothing is reported.

#include "bmc/broken_off.h"

#include <future>

#include "damage_protection_fixture.h"
#include "monitor_fixture.h"
#include "temperature_control_fixture.h"
#include "time_sync_fixture.h"

namespace {

using testing::_;
using testing::ElementsAre;

constexpr std::chrono::seconds c_patience{100};

/// A worker's fixture with an access that is broken off.
template <class Fixture>
class BrokenOffIn : public Fixture {
protected:
    /// The action of the access.
    auto BreakOff() {
        return testing::DoAll(testing::InvokeWithoutArgs([this] { m_isBrokenOff.set_value(); }),
                              testing::Throw(bmc::BrokenOff("icb/0")));
    }

    /// Waits for that access, stops the worker, and takes what it has logged until its thread ended.
    template <class Worker>
    std::vector<std::string> StopAfterIt(Worker& worker, const std::string& stopped) {
        EXPECT_EQ(m_isBrokenOff.get_future().wait_for(c_patience), std::future_status::ready);
        worker.StopThread();
        EXPECT_TRUE(this->m_log.WaitFor(stopped));
        return this->m_log.Messages();
    }

private:
    std::promise<void> m_isBrokenOff;
};

/// A worker that has made one pass, and whose next one is broken off.
template <class Fixture>
class BrokenOffPass : public BrokenOffIn<Fixture> {
protected:
    BrokenOffPass() {
        this->StartAndPass("");
        this->m_log.Clear();
    }

    std::vector<std::string> MessagesOfThePass() {
        this->m_clock.Advance(std::chrono::hours(1));
        return this->StopAfterIt(*this->m_worker, this->m_stopped);
    }
};

using BrokenOffMonitor = BrokenOffPass<test::MonitorTest>;

TEST_F(BrokenOffMonitor, Reading_EndsThePass) {
    EXPECT_CALL(m_boards.core, Read).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

TEST_F(BrokenOffMonitor, Threshold_EndsThePass) {
    EXPECT_CALL(m_boards.core, GetUpperCritical).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

TEST_F(BrokenOffMonitor, Board_EndsThePass) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

TEST_F(BrokenOffMonitor, StartOfTheSweep_EndsThePass) {
    EXPECT_CALL(m_boards.backend, StartSweep).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.v12, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

using BrokenOffMonitorSettings = BrokenOffIn<test::MonitorTest>;

TEST_F(BrokenOffMonitorSettings, Selection_EndsThere) {
    EXPECT_CALL(m_boards.slot2, GetSensorsIds).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.icb, GetSensorsIds).Times(0);
    Start("<monitor><frequency>60</frequency></monitor>");
    EXPECT_THAT(StopAfterIt(*m_worker, m_stopped), ElementsAre("I: *Monitor process started.", m_stopped));
}

using BrokenOffDamageProtection = BrokenOffPass<test::DamageProtectionTest>;

TEST_F(BrokenOffDamageProtection, Reading_EndsThePass) {
    EXPECT_CALL(m_boards.core, Read).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

TEST_F(BrokenOffDamageProtection, Board_EndsThePass) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.cpu, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

TEST_F(BrokenOffDamageProtection, StartOfTheSweep_EndsThePass) {
    EXPECT_CALL(m_boards.backend, StartSweep).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

TEST_F(BrokenOffDamageProtection, BoardPastItsLimit_IsSwitchedOffBeforeThePassEnds) {
    m_boards.intake.Hold(120);
    EXPECT_CALL(m_boards.icb, PowerDown);
    EXPECT_CALL(m_boards.core, Read).WillOnce(BreakOff());
    EXPECT_THAT(MessagesOfThePass(),
                ElementsAre("C: Value of sensor id: 12 on board ICB_1 is higher than HNR!!! (value = 120; HNC = 95)",
                            "C: !!! Shutting down board ICB_1 to prevent damage.",
                            "C: Sensor source board will be powered off now.", m_stopped));
}

using BrokenOffTimeSync = BrokenOffPass<test::TimeSyncTest>;

TEST_F(BrokenOffTimeSync, ReadingTheClock_EndsThePass) {
    EXPECT_CALL(m_boards.slot2, GetTime).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.icb, GetTime).Times(0);
    EXPECT_THAT(MessagesOfThePass(), ElementsAre(m_stopped));
}

/// A temperature control that has made one cycle, and whose next one is broken off.
class BrokenOffTemperatureControl : public BrokenOffIn<test::TemperatureControlTest> {
protected:
    static constexpr const char* c_stopped = "I: *Temperature Control process stopped";

    BrokenOffTemperatureControl() {
        StartAndCycle(Section(c_threeBands));
        m_fans.TakeWrites();
        m_log.Clear();
    }

    std::vector<std::string> MessagesOfTheCycle() {
        m_clock.Advance(std::chrono::hours(1));
        return StopAfterIt(*m_control, c_stopped);
    }
};

TEST_F(BrokenOffTemperatureControl, Reading_EndsTheCycleBeforeTheFansAreSet) {
    EXPECT_CALL(m_boards.intake, Read).WillOnce(BreakOff());
    EXPECT_THAT(MessagesOfTheCycle(), ElementsAre(c_stopped));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(BrokenOffTemperatureControl, StartOfTheSweep_EndsTheCycleBeforeTheFansAreSet) {
    EXPECT_CALL(m_boards.backend, StartSweep).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    EXPECT_THAT(MessagesOfTheCycle(), ElementsAre(c_stopped));
    EXPECT_EQ(m_fans.TakeWrites(), "-");
}

TEST_F(BrokenOffTemperatureControl, FanRegister_EndsTheCycle) {
    EXPECT_CALL(m_boards.icb, FpgaSpiRead).WillOnce(BreakOff());
    EXPECT_CALL(m_boards.intake, Read).Times(0);
    EXPECT_THAT(MessagesOfTheCycle(), ElementsAre(c_stopped));
}

TEST_F(BrokenOffTemperatureControl, SettingTheFans_IsNotToldAsAChange) {
    m_fans.Hold({967, 645, 483, 297, 774, 600});
    EXPECT_CALL(m_boards.icb, FpgaSpiWriteAll).WillOnce(BreakOff());
    EXPECT_THAT(MessagesOfTheCycle(), ElementsAre(c_stopped));
}

using BrokenOffTemperatureSettings = BrokenOffIn<test::TemperatureControlTest>;

TEST_F(BrokenOffTemperatureSettings, Report_EndsThere) {
    EXPECT_CALL(m_boards.intake, GetName).WillOnce(BreakOff());
    Start(Section(c_threeBands));
    EXPECT_THAT(StopAfterIt(*m_control, "I: *Temperature Control process stopped"),
                ElementsAre("I: *Temperature Control process started.", "I: *Temperature Control process stopped"));
}

}  // namespace
