// What one pass of the damage protection does.

#include <atomic>
#include <condition_variable>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>

#include "damage_protection_fixture.h"
#include "qstd/exception.h"

namespace {

using test::DamageProtectionTest;
using testing::_;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Return;
using testing::Throw;

/// A damage protection that has made its first pass, all sensors within their limits. No board may be switched off but
/// where a test says so.
class DamageProtectionPass : public DamageProtectionTest {
protected:
    void SetUp() override {
        for (test::MockBoard* const board : {&m_boards.host, &m_boards.slot2, &m_boards.icb}) {
            EXPECT_CALL(*board, PowerDown).Times(0);
            EXPECT_CALL(*board, ShutDown).Times(0);
        }
        StartAndPass("");
        m_log.Clear();
    }

    /// Another worker in place of the present one, up to its first pass.
    void Restart(const std::string& sections) {
        m_worker.reset();
        StartAndPass(sections);
    }
};

TEST_F(DamageProtectionPass, ReadingAboveTheLimit_PowersTheBoardDown) {
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("C: Value of sensor id: 5 on board SLOT_2 is higher than HNR!!! (value = 101; HNC = 100)",
                            "C: !!! Shutting down board SLOT_2 to prevent damage.",
                            "C: Sensor source board will be powered off now."));
}

TEST_F(DamageProtectionPass, FirstPass_ComesBeforeAnyWait) {
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Restart("");
    EXPECT_THAT(m_log.Messages(), Contains("C: Sensor source board will be powered off now."));
}

TEST_F(DamageProtectionPass, CriticalMessages_GoToTheTraceToo) {
    const test::TraceCapture trace(1);
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    const auto records = trace.Records();
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[1].level, 1);
    EXPECT_EQ(records[1].text, "!!! Shutting down board SLOT_2 to prevent damage.");
}

TEST_F(DamageProtectionPass, ReadingStillAbove_IsActedOnInEveryPass) {
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(2);
    Pass();
    Pass();
    EXPECT_EQ(m_log.Count("C: Sensor source board will be powered off now."), 2);
    m_boards.core.Hold(100);
    Pass();
    EXPECT_EQ(m_log.Count("C: Sensor source board will be powered off now."), 2);
}

TEST_F(DamageProtectionPass, SensorOfTheHost_ShutsTheControllerDown) {
    PoolFinds(bmc::c_localIcbUri, &m_boards.icb);
    m_boards.cpu.Hold(106);
    EXPECT_CALL(m_boards.icb, ShutDown).Times(1);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("C: Value of sensor id: 7 on board HOST_0 is higher than HNR!!! (value = 106; HNC = 105)",
                            "C: !!! Shutting down board HOST_0 to prevent damage.",
                            "C: Sensor source is OS, shut-down the ICB."));
}

TEST_F(DamageProtectionPass, SensorOfTheHostWithoutAController_AbortsTheShutDown) {
    PoolFinds(bmc::c_localIcbUri, nullptr);
    m_boards.cpu.Hold(106);
    Pass();
    EXPECT_THAT(
        m_log.Messages(),
        ElementsAre("C: Value of sensor id: 7 on board HOST_0 is higher than HNR!!! (value = 106; HNC = 105)",
                    "C: !!! Shutting down board HOST_0 to prevent damage.",
                    "C: Sensor source is OS, shut-down the ICB.", "C: !!! Cannot find ICB board. Shut down aborted."));
}

TEST_F(DamageProtectionPass, SensorOfTheController_PowersTheControllerDown) {
    m_boards.intake.Hold(96);
    EXPECT_CALL(m_boards.icb, PowerDown).Times(1);
    Pass();
    EXPECT_EQ(m_log.Count("C: Sensor source board will be powered off now."), 1);
}

TEST_F(DamageProtectionPass, TwoSensorsOfOneBoard_PowerItDownTwiceInOnePass) {
    test::MockSensor& outlet = m_boards.icb.Add(test::ThreeBoards::Temperature(20, "Outlet", 30, 75, 85, 95), 90);
    Restart("");  // which selects the new sensor too
    m_log.Clear();
    m_boards.intake.Hold(96);
    outlet.Hold(97);
    EXPECT_CALL(m_boards.icb, PowerDown).Times(2);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("C: Value of sensor id: 12 on board ICB_1 is higher than HNR!!! (value = 96; HNC = 95)",
                            "C: !!! Shutting down board ICB_1 to prevent damage.",
                            "C: Sensor source board will be powered off now.",
                            "C: Value of sensor id: 20 on board ICB_1 is higher than HNR!!! (value = 97; HNC = 95)",
                            "C: !!! Shutting down board ICB_1 to prevent damage.",
                            "C: Sensor source board will be powered off now."));
}

TEST_F(DamageProtectionPass, BoardsAndSensors_AreLookedAtInTheOrderOfTheirUrisAndIds) {
    m_boards.intake.Hold(96);
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.icb, PowerDown).Times(1);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    const auto messages = m_log.Messages();
    ASSERT_EQ(messages.size(), 6U);
    EXPECT_EQ(messages[1], "C: !!! Shutting down board ICB_1 to prevent damage.");
    EXPECT_EQ(messages[4], "C: !!! Shutting down board SLOT_2 to prevent damage.");
}

TEST_F(DamageProtectionPass, OnlyTheClassAboveUpperNonRecoverable_Acts) {
    m_boards.core.Hold(500);
    for (const int limitClass :
         {bmc::Sensor::c_notAvailable, bmc::Sensor::c_withinLimits, bmc::Sensor::c_belowLowerNonRecoverable,
          bmc::Sensor::c_aboveUpperNonCritical, bmc::Sensor::c_aboveUpperCritical, 7}) {
        EXPECT_CALL(m_boards.core, ReadingLimit).WillOnce(Return(limitClass));
        Pass();
    }
    EXPECT_THAT(m_log.Messages(), IsEmpty());
}

TEST_F(DamageProtectionPass, ClassOfTheReading_DecidesWhateverTheNumbersSay) {
    EXPECT_CALL(m_boards.core, ReadingLimit).WillOnce(Return(6));
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    EXPECT_THAT(m_log.Messages(), Contains(HasSubstr("(value = 40; HNC = 100)")));
}

TEST_F(DamageProtectionPass, ReadingThatIsNotAvailable_PassesSilently) {
    m_boards.intake.Hold(std::numeric_limits<double>::quiet_NaN());
    EXPECT_CALL(m_boards.core, Read)
        .WillOnce(Return(bmc::SensorReading()))
        .WillOnce(Return(bmc::SensorReading::NotAvailable(500)));
    Pass();
    Pass();
    EXPECT_THAT(m_log.Messages(), IsEmpty());
}

TEST_F(DamageProtectionPass, LimitThatIsNotThere_IsNeverPassed) {
    EXPECT_CALL(m_boards.core, GetUpperNonRecoverable).WillRepeatedly(Return(bmc::SensorReading::NoUpperLimit()));
    m_boards.core.Hold(1e9);
    Pass();
    EXPECT_THAT(m_log.Messages(), IsEmpty());
}

TEST_F(DamageProtectionPass, SensorOfAnotherKind_IsProtectedOnlyWhenIncluded) {
    m_boards.v12.Hold(16);
    Pass();
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    EXPECT_CALL(m_boards.icb, PowerDown).Times(1);
    Restart("<damage_protection><sensors><include>3</include></sensors></damage_protection>");
    EXPECT_THAT(m_log.Messages(),
                Contains("C: Value of sensor id: 3 on board ICB_1 is higher than HNR!!! (value = 16; HNC = 15)"));
}

TEST_F(DamageProtectionPass, Numbers_HaveSixSignificantDigits) {
    m_boards.core.Hold(1234567);
    EXPECT_CALL(m_boards.core, GetUpperNonRecoverable).WillRepeatedly(Return(bmc::SensorReading(100.123456)));
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    EXPECT_THAT(m_log.Messages(), Contains(HasSubstr("(value = 1.23457e+06; HNC = 100.123)")));
}

TEST_F(DamageProtectionPass, PowerDownThatRaises_IsToldAndThePassGoesOn) {
    m_boards.core.Hold(101);
    m_boards.cpu.Hold(106);
    PoolFinds(bmc::c_localIcbUri, &m_boards.icb);
    EXPECT_CALL(m_boards.icb, ShutDown).Times(3);
    EXPECT_CALL(m_boards.slot2, PowerDown)
        .WillOnce(Throw(qstd::Exception("x")))
        .WillOnce(Throw(std::runtime_error("y")))
        .WillOnce(Throw(42));
    for (const char* const ending : {". Exception: x", ". Exception: y", ". Unknown exception."}) {
        m_log.Clear();
        Pass();
        const auto messages = m_log.Messages();
        ASSERT_EQ(messages.size(), 7U);
        EXPECT_EQ(messages[2], "C: Sensor source board will be powered off now.");
        EXPECT_EQ(messages[3], std::string("E: Problem accessing sensor id: 5 on board SLOT_2") + ending);
        EXPECT_EQ(messages[6], "C: Sensor source is OS, shut-down the ICB.");
    }
}

TEST_F(DamageProtectionPass, ShutDownThatRaises_IsToldOfTheSensor) {
    PoolFinds(bmc::c_localIcbUri, &m_boards.icb);
    m_boards.cpu.Hold(106);
    EXPECT_CALL(m_boards.icb, ShutDown).WillOnce(Throw(qstd::Exception("x")));
    Pass();
    EXPECT_EQ(m_log.Messages().back(), "E: Problem accessing sensor id: 7 on board HOST_0. Exception: x");
}

TEST_F(DamageProtectionPass, SensorThatRaises_IsToldAndTheNextIsLookedAt) {
    EXPECT_CALL(m_boards.intake, Read).WillOnce(Throw(qstd::Exception("bus")));
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    const auto messages = m_log.Messages();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages.front(), "E: Problem accessing sensor id: 12 on board ICB_1. Exception: bus");
}

TEST_F(DamageProtectionPass, SensorThatIsGone_IsToldAndTheNextIsLookedAt) {
    EXPECT_CALL(m_boards.icb, GetSensor(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.icb, GetSensor(bmc::SensorId(12))).WillRepeatedly(Return(nullptr));
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    const auto messages = m_log.Messages();
    ASSERT_EQ(messages.size(), 4U);
    EXPECT_EQ(messages.front(), "E: Problem accessing sensor id: 12 on board ICB_1");
}

TEST_F(DamageProtectionPass, BoardThatIsGone_IsToldInEveryPass) {
    PoolFinds(m_slot2Uri, nullptr);
    Pass();
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Problem accessing board: SLOT_2", "E: Problem accessing board: SLOT_2"));
}

TEST_F(DamageProtectionPass, BoardThatComesBack_IsProtectedAgain) {
    PoolFinds(m_slot2Uri, nullptr);
    Pass();
    PoolFinds(m_slot2Uri, &m_boards.slot2);
    m_boards.core.Hold(101);
    EXPECT_CALL(m_boards.slot2, PowerDown).Times(1);
    Pass();
    EXPECT_EQ(m_log.Count("C: Sensor source board will be powered off now."), 1);
}

TEST_F(DamageProtectionPass, BoardThatRaisesInThePool_IsToldAndTheOthersGoOn) {
    EXPECT_CALL(m_boards.backend, GetBoard(_)).Times(testing::AnyNumber());
    EXPECT_CALL(m_boards.backend, GetBoard(m_slot2Uri))
        .WillOnce(Throw(qstd::Exception("bus")))
        .WillOnce(Throw(std::runtime_error("link")))
        .WillOnce(Throw(42));
    EXPECT_CALL(m_boards.cpu, Read).Times(3);
    Pass();
    Pass();
    Pass();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board SLOT_2. Exception: bus",
                                              "E: Problem accessing board SLOT_2. Exception: link",
                                              "E: Problem accessing board SLOT_2. Unknown exception."));
}

/// A log that fails: raises while the telling of a board's problem passes it. This is how a pass comes to raise, for
/// all that boards raise is caught within.
class BrokenLog {
public:
    explicit BrokenLog(std::function<void()> raise) : m_sink(std::make_shared<Sink>()) {
        m_sink->raise = std::move(raise);
        qstd::Log::GetInstance().AddSink(m_sink);
    }
    BrokenLog(const BrokenLog&) = delete;
    BrokenLog& operator=(const BrokenLog&) = delete;
    ~BrokenLog() { qstd::Log::GetInstance().RemoveSink(m_sink); }

private:
    struct Sink : qstd::LogSink {
        void Write(qstd::LogLevel_e /*level*/, const qstd::Time& /*time*/, const std::string& text) override {
            if (text.find("Problem accessing board") == 0) {
                raise();
            }
        }
        std::function<void()> raise;
    };
    std::shared_ptr<Sink> m_sink;
};

TEST_F(DamageProtectionPass, PassThatRaises_IsToldAndTheNextComesAfterThePeriod) {
    PoolFinds(m_slot2Uri, nullptr);
    const test::TraceCapture trace(1);
    const BrokenLog broken([] { throw qstd::Exception("bus"); });
    Pass();
    EXPECT_EQ(m_log.Messages().back(), "E: Problem in Damage Protection process - bus");
    const auto record = trace.Records().back();
    EXPECT_EQ(record.level, 1);
    EXPECT_EQ(record.source, "damage_protection");
    EXPECT_EQ(record.function, "void DamageProtection::operator()()");
    EXPECT_EQ(record.text, " .Error: bus");
    m_clock.Advance(std::chrono::milliseconds(59999));
    EXPECT_EQ(m_clock.CountSleeps(), 2);  // no retry before the period is over
    WorkerTest::Pass(std::chrono::seconds(1));
    EXPECT_EQ(m_log.Count("E: Problem in Damage Protection process - bus"), 2);
}

TEST_F(DamageProtectionPass, PassThatRaisesSomethingElse_IsAnUnknownException) {
    PoolFinds(m_slot2Uri, nullptr);
    const test::TraceCapture trace(1);
    const BrokenLog broken([] { throw 42; });
    Pass();
    EXPECT_EQ(m_log.Messages().back(), "E: Problem in Damage Protection process - Unknown Exception");
    EXPECT_EQ(trace.Records().back().text, "Unknown Exception");
    Pass();
    EXPECT_EQ(m_log.Count("E: Problem in Damage Protection process - Unknown Exception"), 2);
}

TEST_F(DamageProtectionPass, StopDuringAPass_WaitsForItAndNoPassFollows) {
    std::mutex mutex;
    std::condition_variable changed;
    bool isReading = false;
    bool mayGoOn = false;
    EXPECT_CALL(m_boards.core, Read).WillOnce([&] {
        std::unique_lock<std::mutex> lock(mutex);
        isReading = true;
        changed.notify_all();
        changed.wait(lock, [&] { return mayGoOn; });
        return bmc::SensorReading(40);
    });
    std::atomic<bool> isLastRead = false;  // on the board after SLOT_2: the pass is complete
    EXPECT_CALL(m_boards.cpu, Read).WillOnce([&] {
        isLastRead = true;
        return bmc::SensorReading(45);
    });
    m_clock.Advance(std::chrono::seconds(60));
    {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return isReading; });
    }
    std::thread stopper([&] {
        m_worker->StopThread();
        EXPECT_TRUE(isLastRead);
    });
    {
        const std::lock_guard<std::mutex> guard(mutex);
        mayGoOn = true;
        changed.notify_all();
    }
    stopper.join();
    EXPECT_TRUE(m_log.WaitFor("I: *Damage Protection process stopped"));
}

}  // namespace
