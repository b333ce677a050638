// The passes of the workers read through sweeps: one a pass, of the worker's selection, and nothing beside it.

#include <gmock/gmock.h>

#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bmc/broken_off.h"
#include "bmc/sweep.h"
#include "damage_protection_fixture.h"
#include "monitor_fixture.h"
#include "qstd/exception.h"
#include "temperature_control_fixture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

/// The sweeps of a backend: their readings are not those of the sensors, and what is asked of them is kept.
class Sweeps {
public:
    explicit Sweeps(test::MockBackend& backend) {
        ON_CALL(backend, StartSweep).WillByDefault([this](const bmc::SensorIds& sensors) {
            std::string text = "start";
            for (const auto& [uri, ids] : sensors) {
                text += " " + uri.ToString();
                for (const bmc::SensorId& id : ids) {
                    text += " " + bmc::ToString(id);
                }
            }
            Add(text);
            return std::make_unique<Recorded>(*this);
        });
    }

    /// What sweeps answer for that sensor from now on; 20 by default.
    void Answer(const bmc::Sensor& sensor, const std::function<bmc::SensorReading()>& answer) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_answers[&sensor] = answer;
    }
    void Hold(const bmc::Sensor& sensor, double value) {
        Answer(sensor, [value] { return bmc::SensorReading(value); });
    }
    template <class Error>
    void Raise(const bmc::Sensor& sensor, const Error& error) {
        Answer(sensor, [error]() -> bmc::SensorReading { throw error; });
    }

    /// What was done since the last call: "start u:a 3 12 u:b 5" with the selection, "read NAME", "end".
    std::vector<std::string> Take() {
        const std::lock_guard<std::mutex> guard(m_mutex);
        return std::exchange(m_events, {});
    }

private:
    class Recorded : public bmc::Sweep {
    public:
        explicit Recorded(Sweeps& all) : m_all(all) {}
        ~Recorded() override { m_all.Add("end"); }
        bmc::SensorReading Read(const bmc::Sensor& sensor) override { return m_all.Read(sensor); }

    private:
        Sweeps& m_all;
    };

    void Add(const std::string& event) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_events.push_back(event);
    }

    bmc::SensorReading Read(const bmc::Sensor& sensor) {
        const std::lock_guard<std::mutex> guard(m_mutex);
        m_events.push_back("read " + sensor.GetName());
        const auto found = m_answers.find(&sensor);
        return found == m_answers.end() ? bmc::SensorReading(20) : found->second();
    }

    std::mutex m_mutex;
    std::map<const bmc::Sensor*, std::function<bmc::SensorReading()>> m_answers;
    std::vector<std::string> m_events;
};

/// A worker's fixture whose boards can only be read through sweeps.
template <class Fixture>
class SweptBy : public Fixture {
protected:
    SweptBy() {
        for (test::MockSensor* const sensor :
             {&this->m_boards.cpu, &this->m_boards.core, &this->m_boards.v12, &this->m_boards.intake}) {
            EXPECT_CALL(*sensor, Read).Times(0);
        }
    }

    Sweeps m_sweeps{this->m_boards.backend};
};

using SweptByMonitor = SweptBy<test::MonitorTest>;

TEST_F(SweptByMonitor, EveryPass_IsOneSweepOfTheSelection) {
    StartAndPass("<monitor><sensors><exclude board='u:b'>all</exclude></sensors></monitor>");
    const auto pass = ElementsAre("start u:a 3 12 u:c 7", "read V12", "read Intake", "read CPU", "end");
    EXPECT_THAT(m_sweeps.Take(), pass);
    Pass();
    EXPECT_THAT(m_sweeps.Take(), pass);
}

TEST_F(SweptByMonitor, WithoutSection_SweepsAllSensors) {
    StartAndPass("");
    EXPECT_EQ(m_sweeps.Take().at(0), "start u:a 3 12 u:b 5 u:c 7");
}

TEST_F(SweptByMonitor, Disabled_SweepsNothing) {
    StartAndEnd("<monitor enabled='false'/>");
    EXPECT_THAT(m_sweeps.Take(), IsEmpty());
}

TEST_F(SweptByMonitor, Readings_ComeFromTheSweep) {
    m_sweeps.Hold(m_boards.v12, 12);
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Hold(m_boards.intake, 80);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("W: Sensor value is above HNC (id = ICB_1[12]:Intake; value = 80 C; HNC = 75)"));
}

TEST_F(SweptByMonitor, FailedReading_IsToldOfTheSensorAndCostsNoOther) {
    m_sweeps.Hold(m_boards.v12, 12);
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Take();
    m_sweeps.Raise(m_boards.v12, qstd::Exception("no answer"));
    m_sweeps.Raise(m_boards.core, 42);
    Pass();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing sensor id: 3 on board ICB_1. Exception: no answer",
                                              "E: Problem accessing sensor id: 5 on board SLOT_2. Unknown exception."));
    EXPECT_THAT(m_sweeps.Take(),
                ElementsAre("start u:a 3 12 u:b 5 u:c 7", "read V12", "read Intake", "read Core", "read CPU", "end"));
}

TEST_F(SweptByMonitor, BoardThatVanished_IsToldAsSuchAndNotCollected) {
    m_sweeps.Hold(m_boards.v12, 12);
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Take();
    PoolFinds(m_boards.slot2.GetUri(), nullptr);
    Pass();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board: SLOT_2"));
    EXPECT_THAT(m_sweeps.Take(),
                ElementsAre("start u:a 3 12 u:b 5 u:c 7", "read V12", "read Intake", "read CPU", "end"));
}

TEST_F(SweptByMonitor, ReadingThatIsBrokenOff_EndsThePassAndItsSweep) {
    m_sweeps.Hold(m_boards.v12, 12);
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Take();
    std::promise<void> isBrokenOff;
    m_sweeps.Answer(m_boards.intake, [&isBrokenOff]() -> bmc::SensorReading {
        isBrokenOff.set_value();
        throw bmc::BrokenOff("u:a");
    });
    m_clock.Advance(std::chrono::seconds(60));
    ASSERT_EQ(isBrokenOff.get_future().wait_for(std::chrono::seconds(100)), std::future_status::ready);
    m_monitor->StopThread();
    ASSERT_TRUE(m_log.WaitFor(m_stopped));
    EXPECT_THAT(m_log.Messages(), ElementsAre(m_stopped));
    EXPECT_THAT(m_sweeps.Take(), ElementsAre("start u:a 3 12 u:b 5 u:c 7", "read V12", "read Intake", "end"));
}

using SweptByDamageProtection = SweptBy<test::DamageProtectionTest>;

TEST_F(SweptByDamageProtection, EveryPass_IsOneSweepOfTheSelection) {
    StartAndPass("");
    const auto pass = ElementsAre("start u:a 12 u:b 5 u:c 7", "read Intake", "read Core", "read CPU", "end");
    EXPECT_THAT(m_sweeps.Take(), pass);
    Pass();
    EXPECT_THAT(m_sweeps.Take(), pass);
}

TEST_F(SweptByDamageProtection, ReadingOfTheSweepPastTheLimit_SwitchesTheBoardOff) {
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Hold(m_boards.core, 101);
    EXPECT_CALL(m_boards.slot2, PowerDown);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("C: Value of sensor id: 5 on board SLOT_2 is higher than HNR!!! (value = 101; HNC = 100)",
                            "C: !!! Shutting down board SLOT_2 to prevent damage.",
                            "C: Sensor source board will be powered off now."));
}

TEST_F(SweptByDamageProtection, FailedReading_IsToldOfTheSensorAndCostsNoOther) {
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Raise(m_boards.intake, std::runtime_error("no answer"));
    m_sweeps.Hold(m_boards.core, 101);
    EXPECT_CALL(m_boards.slot2, PowerDown);
    Pass();
    EXPECT_THAT(m_log.Messages(),
                ElementsAre("E: Problem accessing sensor id: 12 on board ICB_1. Exception: no answer",
                            StartsWith("C: Value of sensor id: 5"), StartsWith("C: !!! Shutting down board SLOT_2"),
                            StartsWith("C: Sensor source board")));
}

TEST_F(SweptByDamageProtection, SweepThatCannotStart_IsToldAndTheNextPassIsAsUsual) {
    StartAndPass("");
    m_log.Clear();
    m_sweeps.Take();
    EXPECT_CALL(m_boards.backend, StartSweep)
        .WillOnce(testing::Throw(qstd::Exception("no memory")))
        .WillRepeatedly(testing::DoDefault());
    Pass();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem in Damage Protection process - no memory"));
    EXPECT_THAT(m_sweeps.Take(), IsEmpty());
    Pass();
    EXPECT_THAT(m_sweeps.Take(),
                ElementsAre("start u:a 12 u:b 5 u:c 7", "read Intake", "read Core", "read CPU", "end"));
}

using SweptByTemperatureControl = SweptBy<test::TemperatureControlTest>;

TEST_F(SweptByTemperatureControl, EveryCycle_IsOneSweepOfTheSelection) {
    StartAndCycle(Section(c_threeBands));
    const auto cycle = ElementsAre("start u:a 12 u:b 5 u:c 7", "read Intake", "read Core", "read CPU", "end");
    EXPECT_THAT(m_sweeps.Take(), cycle);
    Cycle();
    EXPECT_THAT(m_sweeps.Take(), cycle);
}

TEST_F(SweptByTemperatureControl, HottestReadingOfTheSweep_DecidesTheFans) {
    m_sweeps.Hold(m_boards.core, 65);
    StartAndCycle(Section(c_threeBands));
    m_log.Clear();
    m_sweeps.Hold(m_boards.core, 50);
    Cycle();
    EXPECT_THAT(m_log.Messages(), ElementsAre("I: Fans changed from 6516 RPM to 4000 RPM. (Max temperature is 50)"));
}

TEST_F(SweptByTemperatureControl, FailedReading_IsToldOfTheBoardAndCostsTheRestOfIt) {
    m_sweeps.Hold(m_boards.core, 65);
    StartAndCycle(Section(c_threeBands));
    m_log.Clear();
    m_sweeps.Take();
    m_sweeps.Raise(m_boards.intake, qstd::Exception("no answer"));
    Cycle();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board u:a. Exception: no answer"));
    EXPECT_THAT(m_sweeps.Take(),
                ElementsAre("start u:a 12 u:b 5 u:c 7", "read Intake", "read Core", "read CPU", "end"));
}

TEST_F(SweptByTemperatureControl, NoReadableSensor_FansGoToMaximum) {
    m_sweeps.Hold(m_boards.core, 50);
    StartAndCycle(Section(c_threeBands));
    m_log.Clear();
    m_sweeps.Answer(m_boards.intake, [] { return bmc::SensorReading(); });
    m_sweeps.Answer(m_boards.core, [] { return bmc::SensorReading(); });
    m_sweeps.Raise(m_boards.cpu, qstd::Exception("no answer"));
    Cycle();
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: Problem accessing board u:c. Exception: no answer",
                                              "W: Can not read value from any temperature sensor.",
                                              "I: Fans changed from 4007 RPM to 6500 RPM. (Max temperature is -1)"));
}

}  // namespace
