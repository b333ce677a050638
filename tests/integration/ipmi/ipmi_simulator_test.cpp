#include "tests/support/ipmi/ipmi_simulator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ipmi/ipmitool.h"
#include "tests/support/ipmi/recorded_machine.h"
#include "tools/chassisctl/sensor_table.h"

// The simulator as a client sees it that knows nothing of it.

namespace test {

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

constexpr std::uint8_t c_satellite = 0x82;
constexpr std::uint8_t c_other = 0x30;

class IpmiSimulatorTest : public testing::Test {
protected:
    static SimulatedChassis MakeChassis() {
        SimulatedController bmc;
        bmc.sensors = SyntheticSensors(6);
        SimulatedController other;
        other.address = c_other;
        other.users = {{"other", "another-password", "operator"}};
        other.sensors = SyntheticSensors(2);
        return {.controllers = {bmc, Satellite(c_satellite, SyntheticSensors(3)), other}};
    }
    // One process for all tests: they leave it as they found it.
    static void SetUpTestSuite() { s_simulator = std::make_unique<IpmiSimulator>(MakeChassis()); }
    static void TearDownTestSuite() { s_simulator.reset(); }

    static std::string Output(const std::vector<std::string>& words, const IpmitoolOptions& options = {}) {
        const Result result = Ipmitool(*s_simulator, words, options);
        EXPECT_THAT(result.status, Optional(0)) << result.output << result.error;
        return result.output;
    }
    static std::string Error(const std::vector<std::string>& words, const IpmitoolOptions& options = {}) {
        const Result result = Ipmitool(*s_simulator, words, options);
        EXPECT_THAT(result.status, Optional(1)) << result.output;
        return result.error;
    }
    static std::string Reading(const std::string& sensor) { return Output({"sensor", "reading", sensor}); }

    static inline std::unique_ptr<IpmiSimulator> s_simulator;
};

}  // namespace

TEST_F(IpmiSimulatorTest, Sensors_OfControllerAndSatellite_ReadAsDescribed) {
    // The simulator compares raw bytes without their sign: "cr" of a signed sensor is its opinion only.
    EXPECT_EQ(Output({"sensor"}),
              "Temp 1           | 40.000     | degrees C  | ok    | 5.000     | 10.000    | 15.000    | 80.000    | "
              "90.000    | 100.000   \n"
              "Inlet 1          | -3.000     | degrees C  | cr    | -20.000   | -10.000   | na        | 50.000    | "
              "60.000    | na        \n"
              "+12V 1           | 12.060     | Volts      | ok    | na        | 10.800    | 11.400    | 12.600    | "
              "13.200    | na        \n"
              "-12V 1           | -11.900    | Volts      | ok    | na        | na        | na        | na        | "
              "na        | na        \n"
              "Current 1        | 17.500     | Amps       | ok    | na        | na        | na        | na        | "
              "50.000    | na        \n"
              "Fan 1            | 6500.000   | RPM        | ok    | na        | 1000.000  | na        | na        | "
              "na        | na        \n"
              "Temp 1           | 40.000     | degrees C  | ok    | 5.000     | 10.000    | 15.000    | 80.000    | "
              "90.000    | 100.000   \n"
              "Inlet 1          | -3.000     | degrees C  | cr    | -20.000   | -10.000   | na        | 50.000    | "
              "60.000    | na        \n"
              "+12V 1           | 12.060     | Volts      | ok    | na        | 10.800    | 11.400    | 12.600    | "
              "13.200    | na        \n");
}

TEST_F(IpmiSimulatorTest, SecondPort_HasItsOwnUserAndSensors) {
    EXPECT_THAT(Output({"sensor", "reading", "Inlet 1"}, {.controller = c_other, .privilege = "OPERATOR"}),
                HasSubstr("| -3"));
    EXPECT_THAT(Error({"mc", "info"}, {.controller = c_other, .password = "wrong", .privilege = "OPERATOR"}),
                HasSubstr("Unable to establish"));
}

TEST_F(IpmiSimulatorTest, CipherSuite17_IsAccepted) {
    ASSERT_TRUE(s_simulator->HasCipherSuite17());
    EXPECT_THAT(Output({"sensor", "reading", "Temp 1"}, {.cipherSuite = 17}), HasSubstr("| 40"));
    EXPECT_THAT(Error({"mc", "info"}, {.cipherSuite = 17, .password = "wrong"}), HasSubstr("Unable to establish"));
}

TEST_F(IpmiSimulatorTest, SetReading_ReadsAnew) {
    EXPECT_EQ(s_simulator->SetReading(c_bmc, 3, 12.41), 12.42);
    EXPECT_THAT(Reading("+12V 1"), HasSubstr("| 12.420"));
    s_simulator->SetReading(c_bmc, 3, 12.06);
}

TEST_F(IpmiSimulatorTest, UnavailableNotScannedOrFailing_HasNoReading) {
    s_simulator->SetUnavailable(c_bmc, 1, true);
    s_simulator->SetScanning(c_bmc, 2, false);
    s_simulator->SetSensorCompletionCode(c_bmc, 5, 0xc0);
    const std::vector<chassisctl::SensorRow> rows = chassisctl::ReadSensorTable(Output({"sensor"})).sensors;
    s_simulator->SetUnavailable(c_bmc, 1, false);
    s_simulator->SetScanning(c_bmc, 2, true);
    s_simulator->SetSensorCompletionCode(c_bmc, 5, 0);
    ASSERT_EQ(rows.size(), 9U);
    EXPECT_FALSE(rows[0].value);
    EXPECT_FALSE(rows[1].value);
    EXPECT_THAT(rows[2].value, Optional(12.06));
    EXPECT_FALSE(rows[4].value);
    EXPECT_THAT(rows[6].value, Optional(40));
}

TEST_F(IpmiSimulatorTest, ForcedCompletionCode_ReachesClientAndExecutesNothing) {
    const std::size_t writes = s_simulator->GetWrites().size();
    s_simulator->SetCompletionCode(c_bmc, c_chassisControl, 0xc0);
    EXPECT_THAT(Error({"chassis", "power", "off"}), HasSubstr("Node busy"));
    s_simulator->SetCompletionCode(c_bmc, c_chassisControl, 0);
    EXPECT_TRUE(s_simulator->IsPowerOn());
    EXPECT_EQ(s_simulator->GetWrites().size(), writes);
}

TEST_F(IpmiSimulatorTest, ReplyLength_CutsReplies) {
    s_simulator->SetReplyLength(c_bmc, c_getSelTime, 3);
    EXPECT_EQ(Output({"raw", "0x0a", "0x48"}).size(), std::string(" 01 02\n").size());
    s_simulator->SetReplyLength(c_bmc, c_getSelTime, std::nullopt);
    EXPECT_EQ(Output({"raw", "0x0a", "0x48"}).size(), std::string(" 01 02 03 04\n").size());
}

TEST_F(IpmiSimulatorTest, Power_FollowsChassisControlOfEachController) {
    s_simulator->SetPowerOn(c_bmc, true);
    const std::size_t before = s_simulator->CountWrites(c_satellite, c_chassisControl);
    Output({"chassis", "power", "soft"}, {.target = c_satellite});
    EXPECT_TRUE(s_simulator->IsPowerOn(c_satellite));
    Output({"chassis", "power", "off"}, {.target = c_satellite});
    EXPECT_FALSE(s_simulator->IsPowerOn(c_satellite));
    EXPECT_EQ(Output({"chassis", "power", "status"}, {.target = c_satellite}), "Chassis Power is off\n");
    EXPECT_EQ(Output({"chassis", "power", "status"}), "Chassis Power is on\n");
    EXPECT_EQ(s_simulator->CountWrites(c_satellite, c_chassisControl), before + 2);
    EXPECT_EQ(s_simulator->GetWrites().back(), (ExecutedWrite{c_satellite, 0x00, 0x02, {0}}));
    s_simulator->SetPowerOn(c_satellite, true);
    s_simulator->SetObeysShutdown(c_satellite, true);
    Output({"chassis", "power", "soft"}, {.target = c_satellite});
    EXPECT_FALSE(s_simulator->IsPowerOn(c_satellite));
    s_simulator->SetObeysShutdown(c_satellite, false);
    s_simulator->SetPowerOn(c_satellite, true);
}

TEST_F(IpmiSimulatorTest, Identify_IsTurnedOnAndOff) {
    Output({"chassis", "identify", "force"});
    EXPECT_EQ(s_simulator->GetIdentify(), 2);
    EXPECT_EQ(Output({"raw", "0x00", "0x01"}), " 01 00 60\n");
    s_simulator->SetIdentifySupported(c_bmc, false);
    EXPECT_EQ(Output({"raw", "0x00", "0x01"}), " 01 00 00\n");
    s_simulator->SetIdentifySupported(c_bmc, true);
    Output({"chassis", "identify", "0"});
    EXPECT_EQ(s_simulator->GetIdentify(), 0);
}

TEST_F(IpmiSimulatorTest, Clock_IsSetOfEachControllerByItself) {
    Output({"raw", "0x0a", "0x49", "0x00", "0x00", "0x00", "0x60"}, {.target = c_satellite});
    EXPECT_THAT(Output({"raw", "0x0a", "0x48"}, {.target = c_satellite}), testing::EndsWith(" 00 00 60\n"));
    EXPECT_THAT(Output({"raw", "0x0a", "0x48"}), testing::Not(testing::EndsWith(" 60\n")));
}

TEST_F(IpmiSimulatorTest, SelfTestAndFirmwareUpdate_AreTold) {
    EXPECT_EQ(Output({"raw", "0x06", "0x04"}), " 55 00\n");
    s_simulator->SetSelfTest(c_bmc, 0x57, 0x08);
    s_simulator->SetUpdating(c_bmc, true);
    EXPECT_EQ(Output({"raw", "0x06", "0x04"}), " 57 08\n");
    EXPECT_THAT(Output({"raw", "0x06", "0x01"}), testing::StartsWith(" 20 01 82 45 02"));
    s_simulator->SetSelfTest(c_bmc, 0x55, 0);
    s_simulator->SetUpdating(c_bmc, false);
}

TEST_F(IpmiSimulatorTest, FpgaRegister_IsWrittenAndReadBack) {
    const std::size_t before = s_simulator->CountWrites(c_satellite, {0x30, 0x11});
    Output({"raw", "0x30", "0x11", "0x01", "0x02", "0xab", "0xcd"}, {.target = c_satellite});
    EXPECT_EQ(s_simulator->GetRegister(c_satellite, 0x0102), 0xabcd);
    EXPECT_EQ(Output({"raw", "0x30", "0x10", "0x01", "0x02"}, {.target = c_satellite}), " ab cd\n");
    EXPECT_EQ(s_simulator->CountWrites(c_satellite, {0x30, 0x11}), before + 1);
    EXPECT_EQ(s_simulator->GetRegister(c_bmc, 0x0102), 0);
    EXPECT_THAT(Error({"raw", "0x30", "0x10", "0x01"}), HasSubstr("rsp=0xc7"));
}

TEST_F(IpmiSimulatorTest, ServiceTime_IsSpentOnEveryRequest) {
    s_simulator->SetServiceTime(c_bmc, std::chrono::milliseconds(2));
    s_simulator->ResetCounts();
    Output({"mc", "info"});
    s_simulator->SetServiceTime(c_bmc, std::chrono::microseconds(0));
    const std::uint64_t count = s_simulator->CountRequests();
    EXPECT_GE(s_simulator->CountRequests(c_bmc, c_getDeviceId), 1U);
    EXPECT_GE(count, 2U);
    EXPECT_GE(s_simulator->GetBusyTime(), count * std::chrono::milliseconds(2));
    EXPECT_EQ(s_simulator->CountRequests(c_satellite), 0U);
}

TEST_F(IpmiSimulatorTest, AbsentSatellite_IsRefusedByTheBus) {
    s_simulator->SetPresent(c_satellite, false);
    EXPECT_THAT(Error({"raw", "0x06", "0x01"}, {.target = c_satellite}), HasSubstr("rsp=0x83"));
    s_simulator->SetPresent(c_satellite, true);
    Output({"raw", "0x06", "0x01"}, {.target = c_satellite});
}

TEST_F(IpmiSimulatorTest, EndSessions_OpenSessionIsForgotten) {
    s_simulator->EndSessions();
    s_simulator->ResetCounts();
    // A session stays open while its client still has much to ask for.
    s_simulator->SetServiceTime(c_bmc, std::chrono::milliseconds(100));
    const Process client = StartIpmitool(*s_simulator, {"sensor"});
    while (s_simulator->CountRequests(c_bmc, c_getSensorReading) == 0) {
    }
    EXPECT_EQ(s_simulator->CountSessions(), 1U);
    s_simulator->EndSessions();
    EXPECT_EQ(s_simulator->CountSessions(), 0U);
    s_simulator->SetServiceTime(c_bmc, std::chrono::microseconds(0));
}

TEST_F(IpmiSimulatorTest, Frozen_AnswersOnlyAfterTheThaw) {
    s_simulator->Freeze();
    Process client = StartIpmitool(*s_simulator, {"mc", "info"});
    EXPECT_EQ(client.Wait(std::chrono::milliseconds(100)), std::nullopt);
    EXPECT_THROW(s_simulator->SetRaw(c_bmc, 1, 1), std::runtime_error);
    s_simulator->Thaw();
    EXPECT_THAT(client.Wait(), Optional(0));
    s_simulator->SetRaw(c_bmc, 1, 40);
}

TEST_F(IpmiSimulatorTest, Restart_KeepsPortsReadingsRegistersAndAbsence) {
    const std::uint16_t port = s_simulator->GetPort();
    s_simulator->SetRaw(c_bmc, 1, 77);
    s_simulator->SetRegister(c_bmc, 0xffff, 0x1234);
    s_simulator->SetPresent(c_satellite, false);
    s_simulator->Stop();
    EXPECT_EQ(s_simulator->GetPid(), 0);
    s_simulator->Restart();
    EXPECT_EQ(s_simulator->GetPort(), port);
    EXPECT_THAT(Reading("Temp 1"), HasSubstr("| 77"));
    EXPECT_EQ(Output({"raw", "0x30", "0x10", "0xff", "0xff"}), " 12 34\n");
    EXPECT_THAT(Error({"raw", "0x06", "0x01"}, {.target = c_satellite}), HasSubstr("rsp=0x83"));
    s_simulator->SetRaw(c_bmc, 1, 40);
    s_simulator->SetPresent(c_satellite, true);
}

TEST(IpmiSimulator, DeviceRecordsLittleEndianRegistersAndNonLinearSensors_WorkAsDescribed) {
    SimulatedSensor nonLinear;
    nonLinear.name = "Bent";
    nonLinear.linearization = Linearization_e::non_linear;
    nonLinear.factors.m = 2;
    nonLinear.raw = 0x90;
    SimulatedSensor compact = SyntheticSensors(1).front();
    compact.isCompact = true;
    compact.number = 2;
    SimulatedController bmc;
    bmc.sensors = {nonLinear, compact};
    SimulatedController satellite = Satellite(c_satellite, SyntheticSensors(1));
    satellite.records = Records_e::device_records;
    const IpmiSimulator simulator(
        {.controllers = {bmc, satellite}, .fpga = {0x32, 0x20, 0x21, true, {0x91, 0x12, 0x00}}});

    EXPECT_THAT(
        Ipmitool(simulator, {"sensor"}).output,
        testing::AllOf(HasSubstr("Bent             | 320.000    | degrees C"), HasSubstr("Temp 1           | 0x28")));
    EXPECT_EQ(ToReading(nonLinear, 0x90), 320);
    EXPECT_THAT(Ipmitool(simulator, {"sdr", "elist"}, {.target = c_satellite}).output, HasSubstr("40 degrees C"));
    EXPECT_EQ(
        Ipmitool(simulator, {"raw", "0x32", "0x21", "0x91", "0x12", "0x00", "0x02", "0x01", "0xcd", "0xab"}).output,
        " 91 12 00\n");
    EXPECT_EQ(simulator.GetRegister(c_bmc, 0x0102), 0xabcd);
    EXPECT_EQ(Ipmitool(simulator, {"raw", "0x32", "0x20", "0x91", "0x12", "0x00", "0x02", "0x01"}).output,
              " 91 12 00 cd ab\n");
}

}  // namespace test
