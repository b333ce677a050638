// The workers at work on controllers: what they read, what they say, and what the controllers were told to do.

#include <ctime>

#include "ipmi_daemon_fixture.h"
#include "tests/support/ipmi/ipmitool.h"

namespace {

using test::BoardAt;
using test::ExecutedWrite;
using test::IpmiSimulator;
using test::WithSensors;
using test::Worker;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint8_t c_satellite = 0x82;

/// A temperature that is beyond its upper non-recoverable limit.
test::SimulatedChassis TooHot() {
    test::SimulatedChassis chassis = WithSensors(2);
    chassis.controllers.front().sensors.front().raw = 101;
    return chassis;
}

class IpmiWorkersTest : public test::IpmiDaemonTest {
protected:
    static std::string Warned(const std::string& limit, const std::string& sensor, const std::string& value,
                              const std::string& threshold) {
        const bool isUpper = limit.front() == 'H';
        return std::string("W: Sensor value is ") + (isUpper ? "above " : "below ") + limit + " (id = icb_0" + sensor +
               "; value = " + value + "; " + limit + " = " + threshold + ")";
    }

    /// What the monitor has said of one sensor.
    std::vector<std::string> MessagesOfSensor(const std::string& id) const {
        std::vector<std::string> messages = MessagesOf(Worker::monitor);
        messages.erase(std::remove_if(messages.begin(), messages.end(),
                                      [&](const std::string& message) {
                                          return message.find("icb_0[" + id + "]") == std::string::npos;
                                      }),
                       messages.end());
        return messages;
    }

    /// What was done to the controller's hardware but for the registers of the fans.
    static std::vector<ExecutedWrite> Actions(const IpmiSimulator& simulator) {
        std::vector<ExecutedWrite> actions = simulator.GetWrites();
        actions.erase(std::remove_if(actions.begin(), actions.end(),
                                     [](const ExecutedWrite& write) { return write.netFunction == 0x30; }),
                      actions.end());
        return actions;
    }

    static ExecutedWrite ChassisControl(std::uint8_t controller, std::uint8_t control) {
        return {controller, test::c_chassisControl.netFunction, test::c_chassisControl.command, {control}};
    }

    /// What the controller's clock says, as another client reads it.
    static std::int64_t ClockOf(const IpmiSimulator& simulator, std::optional<std::uint8_t> target = std::nullopt) {
        const test::Result result = test::Ipmitool(simulator, {"raw", "0x0a", "0x48"}, {.target = target});
        EXPECT_EQ(result.status, 0) << result.error;
        std::istringstream bytes(result.output);
        std::int64_t seconds = 0;
        int byte = 0;
        for (int shift = 0; shift < 32 && bytes >> std::hex >> byte; shift += 8) {
            seconds |= std::int64_t{byte} << shift;
        }
        return seconds;
    }

    static void SetClock(const IpmiSimulator& simulator, std::int64_t seconds) {
        std::vector<std::string> words{"raw", "0x0a", "0x49"};
        for (int shift = 0; shift < 32; shift += 8) {
            words.push_back(std::to_string((seconds >> shift) & 0xff));
        }
        EXPECT_EQ(test::Ipmitool(simulator, words).status, 0);
    }

    static constexpr const char* c_everySecond = "<monitor><frequency>1</frequency></monitor>\n";
};

TEST_F(IpmiWorkersTest, Monitor_WarnsOfEveryCrossingOnceAndSaysWhenItIsOver) {
    IpmiSimulator simulator(WithSensors(6));
    StartOn({test::Icb(simulator)}, Only(c_everySecond));
    const auto become = [&](std::uint8_t sensor, double reading, const std::string& message) {
        simulator.SetReading(test::c_bmc, sensor, reading);
        EXPECT_TRUE(AwaitMessage(Worker::monitor, message)) << message;
        return message;
    };
    simulator.SetReading(test::c_bmc, 2, -15);
    simulator.SetReading(test::c_bmc, 3, 11.1);
    simulator.SetReading(test::c_bmc, 5, 52.5);
    simulator.SetReading(test::c_bmc, 6, 900);
    std::vector<std::string> expected{become(1, 85, Warned("HNC", "[1]:Temp 1", "85 degrees C", "80")),
                                      become(1, 95, Warned("HC", "[1]:Temp 1", "95 degrees C", "90")),
                                      become(1, 101, Warned("HNR", "[1]:Temp 1", "101 degrees C", "100"))};
    simulator.SetReading(test::c_bmc, 2,
                         -3);  // it has no lower non-critical limit, inside which it would be normal again
    simulator.SetReading(test::c_bmc, 3, 12.06);
    expected.push_back(
        become(1, 80, "I: Sensor value is is back to normal. (id = icb_0[1] - Temp 1;value = 80 degrees C)"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(MessagesOfSensor("1"), expected);
    EXPECT_THAT(MessagesOfSensor("2"), ElementsAre(Warned("LC", "[2]:Inlet 1", "-15 degrees C", "-10")));
    EXPECT_THAT(MessagesOfSensor("3"),
                ElementsAre(Warned("LNC", "[3]:+12V 1", "11.1 Volts", "11.4"),
                            "I: Sensor value is is back to normal. (id = icb_0[3] - +12V 1;value = 12.06 Volts)"));
    EXPECT_THAT(MessagesOfSensor("4"), IsEmpty());
    EXPECT_THAT(MessagesOfSensor("5"), ElementsAre(Warned("HC", "[5]:Current 1", "52.5 Amps", "50")));
    EXPECT_THAT(MessagesOfSensor("6"), ElementsAre(Warned("LC", "[6]:Fan 1", "900 RPM", "1000")));
}

TEST_F(IpmiWorkersTest, Pass_AsksForTheSelectedSensorsAndForNoOthers) {
    IpmiSimulator simulator(WithSensors(60));
    StartOn({test::Icb(simulator)},
            Only("<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter><sensors><exclude>all"
                 "</exclude><include board='icb/0'>0x3,60</include></sensors></monitor>\n"));
    ASSERT_TRUE(Await([this] { return SensorLog("icb_0").size() >= 11; }));
    EXPECT_EQ(Stop(), 0);
    const auto passes = SensorLog("icb_0").size() - 9;
    EXPECT_EQ(SensorLog("icb_0").at(8), "[TIME];[3]-+12V 1;[60]-Fan 10");
    EXPECT_EQ(simulator.CountRequests(test::c_bmc, test::c_getSensorReading), 2 * passes);
}

TEST_F(IpmiWorkersTest, Monitor_RecordsWhatTheSensorsReadAndTellsClients) {
    IpmiSimulator simulator(WithSensors(6));
    StartOn({test::Icb(simulator)}, Only("<monitor><frequency>1</frequency><filter><absolute enabled='false'/></filter>"
                                         "</monitor>\n"));
    simulator.SetReading(test::c_bmc, 1, 85);
    const test::Process watch(RegistryCommand({"watch"}), m_folder.Path("watch"), m_folder.Path("watch-err"));
    const auto awaitEvent = [this](const std::string& event) {
        return Await([&] {
            return test::ReadFile(m_folder.Path("watch")).find(" boards/ICB/sensors/" + event + "\n") !=
                   std::string::npos;
        });
    };
    ASSERT_TRUE(awaitEvent("ID_1/hnc threshold 85")) << test::ReadFile(m_folder.Path("watch-err"));
    simulator.SetReading(test::c_bmc, 2, -2);
    EXPECT_TRUE(awaitEvent("ID_2/value value -2"));
    simulator.SetReading(test::c_bmc, 1, 101);
    EXPECT_TRUE(awaitEvent("ID_1/hnr threshold 101"));
    simulator.SetUnavailable(test::c_bmc, 6, true);
    const auto awaitRecord = [this](const std::string& values) {
        return Await([&] {
            const auto lines = SensorLog("icb_0");
            return std::any_of(lines.begin(), lines.end(),
                               [&](const std::string& line) { return line.find("] " + values) == 24; });
        });
    };
    EXPECT_TRUE(awaitRecord(";85;-3;12.06;-11.9;17.5;6500"));
    EXPECT_TRUE(awaitRecord(";101;-2;12.06;-11.9;17.5;nan"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(SensorLog("icb_0").at(5), "* Board id      : icb_0");
    EXPECT_EQ(SensorLog("icb_0").at(8), "[TIME];[1]-Temp 1;[2]-Inlet 1;[3]-+12V 1;[4]--12V 1;[5]-Current 1;[6]-Fan 1");
}

TEST_F(IpmiWorkersTest, SensorBeyondItsLimit_PowersItsBoardDownWithOneRequest) {
    const IpmiSimulator icb(WithSensors(1));
    const IpmiSimulator io(TooHot());
    StartOn({test::Icb(icb), test::Io(1, io)}, Only("<damage_protection/>\n"));
    ASSERT_TRUE(Await([&] { return !io.IsPowerOn(); }));
    EXPECT_TRUE(AwaitValue("boards/IO1/board_info/power_status", "off"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Actions(io), ElementsAre(ChassisControl(test::c_bmc, 0)));
    EXPECT_THAT(Actions(icb), IsEmpty());
    EXPECT_THAT(Complaints(), ElementsAre("CRITICAL Value of sensor id: 1 on board io_1 is higher than HNR!!! (value = "
                                          "101; HNC = 100)",
                                          "CRITICAL !!! Shutting down board io_1 to prevent damage.",
                                          "CRITICAL Sensor source board will be powered off now."));
}

TEST_F(IpmiWorkersTest, SensorOfTheHostBeyondItsLimit_ShutsTheChassisControllerDown) {
    IpmiSimulator icb(WithSensors(1));
    icb.SetObeysShutdown(test::c_bmc, true);
    const IpmiSimulator host(TooHot());
    StartOn({test::Host(host), test::Icb(icb)}, Only("<damage_protection/>\n"));
    ASSERT_TRUE(Await([&] { return !icb.IsPowerOn(); }));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Actions(icb), ElementsAre(ChassisControl(test::c_bmc, 5)));
    EXPECT_THAT(Actions(host), IsEmpty());
    EXPECT_THAT(Complaints(), Contains("CRITICAL Sensor source is OS, shut-down the ICB."));
}

TEST_F(IpmiWorkersTest, SatelliteThatGetsTooHot_IsPoweredDownAlone) {
    test::SimulatedChassis chassis = WithSensors(1);
    chassis.controllers.push_back(test::Satellite(c_satellite, test::SyntheticSensors(1)));
    chassis.controllers.push_back(test::Satellite(0x84, test::SyntheticSensors(1)));
    IpmiSimulator simulator(chassis);
    const BoardAt icb = test::Icb(simulator);
    StartOn({icb, test::Behind(icb, c_satellite, "io/2", "IO2"), test::Behind(icb, 0x84, "io/4", "IO4")},
            Only("<damage_protection><frequency>1</frequency></damage_protection>\n"));
    EXPECT_THAT(simulator.GetWrites(), IsEmpty());
    simulator.SetReading(c_satellite, 1, 110);
    ASSERT_TRUE(Await([&] { return !simulator.IsPowerOn(c_satellite); }));
    EXPECT_TRUE(simulator.IsPowerOn(test::c_bmc));
    EXPECT_TRUE(simulator.IsPowerOn(0x84));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Actions(simulator), testing::Each(ChassisControl(c_satellite, 0)));
}

TEST_F(IpmiWorkersTest, BoardThatStaysOnWhenPoweredDown_IsAnErrorAndNotASuccess) {
    const IpmiSimulator icb(WithSensors(1));
    IpmiSimulator io(TooHot());
    io.SetCompletionCode(test::c_bmc, test::c_chassisControl, 0xd5);
    StartOn({test::Icb(icb), test::Io(1, io)}, Only("<damage_protection/>\n"));
    EXPECT_TRUE(
        AwaitLog("ERROR    Problem accessing sensor id: 1 on board io_1. Exception: io/1: Chassis Control: 0xD5 "
                 "(not supported in the present state)\n"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_TRUE(io.IsPowerOn());
    EXPECT_EQ(io.CountRequests(test::c_bmc, test::c_chassisControl), 1U) << "it is not repeated within a pass";
}

TEST_F(IpmiWorkersTest, Clocks_AreSetToUtcOnceAndTheHostsIsLeftAlone) {
    test::SimulatedChassis chassis = WithSensors(1);
    chassis.controllers.push_back(test::Satellite(c_satellite, {}));
    const IpmiSimulator icb(chassis);
    const IpmiSimulator host(WithSensors(1));
    const BoardAt first = test::Icb(icb);
    EXPECT_LT(ClockOf(icb), 0x20000000) << "it was never set";
    StartOn({first, test::Behind(first, c_satellite, "io/2", "IO2"), test::Host(host)},
            Only("<timesync><frequency>1</frequency></timesync>\n"));
    const auto expectRight = [&](std::optional<std::uint8_t> target) {
        const std::time_t before = std::time(nullptr);
        const std::int64_t clock = ClockOf(icb, target);
        EXPECT_GE(clock, before - 2);
        EXPECT_LE(clock, std::time(nullptr) + 2);
    };
    const auto awaitSettings = [&](std::uint8_t controller, std::size_t count) {
        return Await([&] { return icb.CountWrites(controller, test::c_setSelTime) >= count; });
    };
    ASSERT_TRUE(awaitSettings(test::c_bmc, 1));
    ASSERT_TRUE(awaitSettings(c_satellite, 1));
    expectRight(std::nullopt);
    expectRight(c_satellite);
    // A whole pass later, which finds them right.
    const std::uint64_t asked = icb.CountRequests(c_satellite, test::c_getSelTime);
    ASSERT_TRUE(Await([&] { return icb.CountRequests(c_satellite, test::c_getSelTime) > asked + 1; }));
    EXPECT_EQ(icb.CountWrites(test::c_bmc, test::c_setSelTime), 1U);
    EXPECT_EQ(icb.CountWrites(c_satellite, test::c_setSelTime), 1U);
    SetClock(icb, std::time(nullptr) + 3600);
    ASSERT_TRUE(awaitSettings(test::c_bmc, 3)) << "ours is the first, ipmitool's the second";
    expectRight(std::nullopt);
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(host.CountWrites(test::c_bmc, test::c_setSelTime), 0U);
    EXPECT_EQ(host.CountRequests(test::c_bmc, test::c_getSelTime), 0U);
    EXPECT_THAT(Complaints(), IsEmpty());
}

}  // namespace
