// The fans behind the commands of a chassis controller: the temperature control, the registry and --fans-safe.

#include "ipmi_daemon_fixture.h"

namespace {

using test::ExecutedWrite;
using test::IpmiSimulator;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* c_threeBands =
    "<temperature_control><frequency>1</frequency><fans><set lower='40' upper='50' rpm='3000'/>"
    "<set lower='45' upper='60' rpm='4000'/><set lower='55' upper='70' rpm='6500'/></fans></temperature_control>\n";

class IpmiFansTest : public test::IpmiDaemonTest {
protected:
    static test::SimulatedChassis WarmAt(std::uint8_t degrees) {
        test::SimulatedChassis chassis = test::WithSensors(1);
        chassis.controllers.front().sensors.front().raw = degrees;
        return chassis;
    }

    static std::string Changed(const std::string& from, const std::string& to, const std::string& temperature) {
        return "INFO     Fans changed from " + from + " RPM to " + to + " RPM. (Max temperature is " + temperature +
               ")";
    }

    /// The reference registers of the six fans.
    static std::vector<std::uint16_t> References(const IpmiSimulator& simulator) {
        std::vector<std::uint16_t> values;
        for (const std::uint16_t address : c_addresses) {
            values.push_back(simulator.GetRegister(test::c_bmc, address));
        }
        return values;
    }
    static std::vector<std::uint16_t> AllAt(std::uint16_t value) { return std::vector<std::uint16_t>(6, value); }

    /// Writes of @p values one after another, each to the six fans in their order.
    static std::vector<ExecutedWrite> WritesOf(const std::vector<std::uint16_t>& values) {
        std::vector<ExecutedWrite> writes;
        for (const std::uint16_t value : values) {
            for (const std::uint16_t address : c_addresses) {
                writes.push_back({test::c_bmc,
                                  0x30,
                                  0x11,
                                  {0, static_cast<std::uint8_t>(address), static_cast<std::uint8_t>(value >> 8),
                                   static_cast<std::uint8_t>(value & 0xff)}});
            }
        }
        return writes;
    }

    static constexpr std::array<std::uint16_t, 6> c_addresses{0x40, 0x48, 0x50, 0x58, 0x60, 0x68};
};

TEST_F(IpmiFansTest, TemperatureControl_WritesTheTablesSpeedsOnceEachAndLeavesTheFansFast) {
    IpmiSimulator simulator(WarmAt(48));
    StartOn({test::Icb(simulator)}, Only(c_threeBands));
    ASSERT_TRUE(ChassisTest::AwaitMessage(Changed("0", "4000", "48")));
    EXPECT_EQ(References(simulator), AllAt(483));
    simulator.SetReading(test::c_bmc, 1, 42);
    ASSERT_TRUE(ChassisTest::AwaitMessage(Changed("4007", "3000", "42")));
    EXPECT_EQ(References(simulator), AllAt(645));
    simulator.SetReading(test::c_bmc, 1, 65);
    ASSERT_TRUE(ChassisTest::AwaitMessage(Changed("3000", "4000", "65")));
    ASSERT_TRUE(ChassisTest::AwaitMessage(Changed("4007", "6500", "65")));
    simulator.SetReading(test::c_bmc, 1, 57);
    simulator.SetReading(test::c_bmc, 1, 50);
    ASSERT_TRUE(ChassisTest::AwaitMessage(Changed("6516", "4000", "50")));
    EXPECT_EQ(References(simulator), AllAt(483));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(References(simulator), AllAt(297));
    EXPECT_EQ(simulator.GetWrites(), WritesOf({483, 645, 483, 297, 483, 297}));
    EXPECT_THAT(Complaints(), IsEmpty());
}

TEST_F(IpmiFansTest, NoTable_FansAreAtMaximumFromTheStart) {
    const IpmiSimulator simulator(WarmAt(20));
    StartOn({test::Icb(simulator)}, Only("<temperature_control><frequency>1</frequency></temperature_control>\n"));
    EXPECT_TRUE(Await([&] { return References(simulator) == AllAt(297); }));
    EXPECT_EQ(Stop(), 0);
    // They are fast already, unless the controller of a loaded machine does not tell so in time.
    const auto messages = Messages();
    const bool isUnknown = std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
                               return message == "INFO     Fans changed from 0 RPM to 6500 RPM.";
                           }) != 0;
    EXPECT_EQ(simulator.GetWrites(), isUnknown ? WritesOf({297, 297}) : WritesOf({297}));
}

TEST_F(IpmiFansTest, Fans_AreReadAndWrittenByClients) {
    IpmiSimulator simulator(WarmAt(20));
    StartOn({test::Icb(simulator)});
    simulator.SetRegister(test::c_bmc, 0x42, 967);
    simulator.SetRegister(test::c_bmc, 0x6a, 0xffff);
    EXPECT_EQ(Ask({"get", "fans/left_front", "fans/right_rear", "fans/left_rear"}), "2001\n29\n0\n");
    Ask({"set", "fans/right_middle", "30"});
    EXPECT_EQ(References(simulator), (std::vector<std::uint16_t>{0, 0, 0, 0, 64516, 0})) << "both bytes of a register";
    Ask({"set", "fans", "3000"});
    EXPECT_EQ(References(simulator), AllAt(645));
    ExpectFailure({"set", "fans", "20"}, 1, "Too high rpm value: 20");
    EXPECT_EQ(References(simulator), AllAt(645));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(References(simulator), AllAt(297));
}

TEST_F(IpmiFansTest, CommandThatTheControllerRefuses_HasNoValueAndStopsNothing) {
    IpmiSimulator simulator(WarmAt(20));
    StartOn({test::Icb(simulator)});
    simulator.SetCompletionCode(test::c_bmc, {0x30, 0x10}, 0xc1);
    ExpectFailure({"get", "fans/left_front"}, 3, "no value");
    simulator.SetCompletionCode(test::c_bmc, {0x30, 0x10}, 0);
    EXPECT_EQ(Get("fans/left_front"), "0");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(IpmiFansTest, FansSafe_SetsTheFansWithAndWithoutADaemonAndDisturbsItNot) {
    const IpmiSimulator simulator(WarmAt(48));
    ConfigureBoards({test::Icb(simulator)}, Only(c_threeBands));
    const auto makeSafe = [this] {
        const test::Result result = test::RunProgram(Command({"--fans-safe"}));
        EXPECT_EQ(result.status, 0) << result.error;
        EXPECT_THAT(result.error, EndsWith("INFO     All fans are set to 6500 RPM.\n"));
    };
    makeSafe();
    EXPECT_EQ(References(simulator), AllAt(297));
    EXPECT_EQ(simulator.GetWrites(), WritesOf({297}));

    std::filesystem::remove_all(m_folder.Path("log"));
    StartTraced();
    AwaitReports();
    ASSERT_TRUE(Await([&] { return References(simulator) == AllAt(483); }));
    makeSafe();
    EXPECT_TRUE(Await([&] { return References(simulator) == AllAt(483); }))
        << "the daemon has the fans as it wants them";
    EXPECT_EQ(Get("boards/ICB/sensors/ID_1/value"), "48");
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(References(simulator), AllAt(297));
}

TEST_F(IpmiFansTest, FansSafe_IsNotKeptFromTheFansByThePasswordOfAnotherBoard) {
    const IpmiSimulator simulator(WarmAt(48));
    const IpmiSimulator other(WarmAt(48));
    ConfigureBoards({test::Icb(simulator), test::Io(1, other)});
    std::filesystem::remove(m_folder.Path("password-" + std::to_string(other.GetPort(0x20))));
    const test::Result result = test::RunProgram(Command({"--fans-safe"}));
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(References(simulator), AllAt(297));
    EXPECT_EQ(test::RunProgram(Command({})).status, 1) << "a start proves the passwords of all boards";
}

TEST_F(IpmiFansTest, FansSafe_ThatCannotSetThem_SaysSoAndEndsSoon) {
    IpmiSimulator simulator(WarmAt(48));
    ConfigureBoards({test::Icb(simulator)}, c_noWorkers, "cache='none' timeout='1000' retries='1'");
    simulator.SetCompletionCode(test::c_bmc, {0x30, 0x11}, 0xd4);
    test::Result result = test::RunProgram(Command({"--fans-safe"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("ERROR    Not all fans are at 6500 RPM: left_front "));
    simulator.Freeze();
    const auto begin = std::chrono::steady_clock::now();
    result = test::RunProgram(Command({"--fans-safe"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("ERROR    Not all fans are at 6500 RPM: left_front "));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(23))
        << "each of twelve accesses would wait for two seconds";
}

}  // namespace
