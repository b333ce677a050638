#include "bmc/ipmi/ipmi_board.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bmc/ipmi/failures.h"
#include "fake_board_link.h"
#include "tests/support/expect_text.h"

namespace {

using bmc::ipmi::BoardSettings;
using bmc::ipmi::FpgaTemplate;
using bmc::ipmi::IpmiBoard;
using bmc::ipmi::Purpose_e;
using testing::ElementsAre;
using Loss_e = FakeBoardLink::Loss_e;

class NoSensors : public bmc::ipmi::LoadedSensors {
public:
    std::vector<bmc::SensorId> AwaitIds() override { throw qstd::Exception("io/1: no answer"); }
    bmc::Sensor* Find(const bmc::SensorId& /*id*/) override { return nullptr; }
};

class IpmiBoardTest : public testing::Test {
protected:
    static BoardSettings Settings() {
        BoardSettings settings;
        settings.uri = bmc::Uri("io", "1");
        settings.type = bmc::BoardType_e::io;
        settings.name = "IO1";
        settings.prefix = "IO";
        settings.fpga.emplace("0x30 0x10 {addr:hi} {addr:lo}", "0x30 0x11 {addr:hi} {addr:lo} {value:hi} {value:lo}",
                              "{value:hi} {value:lo}");
        return settings;
    }

    void DeviceIdIs(std::vector<std::uint8_t> data) { m_link.m_fixed[{0x06, 0x01}] = {0, std::move(data)}; }

    NoSensors m_sensors;
    FakeBoardLink m_link;
    std::vector<std::string> m_log;
    const bmc::ipmi::LogFunction m_logFunction = [this](qstd::LogLevel_e, const std::string& text) {
        m_log.push_back(text);
    };
    IpmiBoard m_board{Settings(), m_link, m_sensors, m_logFunction};
};

const std::vector<std::uint8_t> c_deviceId{0x12, 0x83, 0x02, 0x45, 0x02, 0xbf, 0x57, 0x01, 0x00, 0x34, 0x12};

// What the board is.

TEST_F(IpmiBoardTest, WhatItIs_IsWhatTheConfigurationSays) {
    EXPECT_EQ(m_board.GetUri(), bmc::Uri("io", "1"));
    EXPECT_EQ(m_board.GetType(), bmc::BoardType_e::io);
    EXPECT_EQ(m_board.GetShortName(), "IO1");
    EXPECT_EQ(m_board.GetDevicePrefix(), "IO");
    EXPECT_TRUE(m_link.m_requests.empty());
}

TEST_F(IpmiBoardTest, SensorsThatAreNotKnown_AreAnErrorWithTheReason) {
    EXPECT_EQ(test::TextOf([&] { m_board.GetSensorsIds(); }), "io/1: no answer");
    EXPECT_EQ(m_board.GetSensor(bmc::SensorId(1)), nullptr);
}

TEST_F(IpmiBoardTest, Revisions_AreThoseOfTheDeviceId) {
    DeviceIdIs(c_deviceId);
    EXPECT_EQ(m_board.GetFwRevision(), 245);
    EXPECT_EQ(m_board.GetIpmiVersion(), 2);
    EXPECT_EQ(m_board.GetFirmwareType(), bmc::FirmwareType_e::active);
}

TEST_F(IpmiBoardTest, MinorRevisionThatIsNoBcd_CountsAsItStands) {
    auto data = c_deviceId;
    data[3] = 0x1f;
    DeviceIdIs(data);
    EXPECT_EQ(m_board.GetFwRevision(), 231);
}

TEST_F(IpmiBoardTest, DeviceIdThatIsTooShort_IsAnError) {
    DeviceIdIs({0x12, 0x83});
    EXPECT_EQ(test::TextOf([&] { m_board.GetFwRevision(); }),
              "io/1: Get Device ID: the reply has 2 bytes instead of 11");
}

TEST_F(IpmiBoardTest, CompletionCode_IsAnErrorThatNamesIt) {
    m_link.m_fixed[{0x06, 0x01}] = {0xd4, {}};
    EXPECT_EQ(test::TextOf([&] { m_board.GetIpmiVersion(); }),
              "io/1: Get Device ID: 0xD4 (insufficient privilege level)");
}

TEST_F(IpmiBoardTest, FpgaRevision_IsTheRegisterThatTheConfigurationNames) {
    BoardSettings settings = Settings();
    settings.fpga->SetRevisionRegister(0x0002);
    const IpmiBoard board(settings, m_link, m_sensors, m_logFunction);
    m_link.m_registers[2] = 0x0107;
    EXPECT_EQ(board.GetFpgaRevision(), 0x0107);
    m_link.m_fixed[{0x30, 0x10}] = {0xc1, {}};
    EXPECT_EQ(test::TextOf([&] { board.GetFpgaRevision(); }),
              "io/1: FPGA revision: command 0x30/0x10: 0xC1 (invalid command)");
}

TEST_F(IpmiBoardTest, FpgaRevisionWithoutRegister_IsAnError) {
    EXPECT_EQ(test::TextOf([&] { m_board.GetFpgaRevision(); }),
              "io/1: FPGA revision: the configuration names no register of it");
}

// State.

struct SelfTestCase {
    std::uint8_t result;
    bmc::BoardStatus_e status;
};

TEST_F(IpmiBoardTest, Status_FollowsTheSelfTest) {
    DeviceIdIs(c_deviceId);
    for (const SelfTestCase& each :
         {SelfTestCase{0x55, bmc::BoardStatus_e::ok}, SelfTestCase{0x56, bmc::BoardStatus_e::ok},
          SelfTestCase{0x57, bmc::BoardStatus_e::degraded}, SelfTestCase{0x58, bmc::BoardStatus_e::failed},
          SelfTestCase{0x70, bmc::BoardStatus_e::degraded}, SelfTestCase{0xff, bmc::BoardStatus_e::unknown}}) {
        m_link.m_fixed[{0x06, 0x04}] = {0, {each.result, 0}};
        EXPECT_EQ(m_board.GetStatus(), each.status) << int{each.result};
    }
}

TEST_F(IpmiBoardTest, StatusOfAControllerWithoutSelfTest_IsOk) {
    DeviceIdIs(c_deviceId);
    EXPECT_EQ(m_board.GetStatus(), bmc::BoardStatus_e::ok);
}

TEST_F(IpmiBoardTest, StatusOfASelfTestThatSaysNothing_IsUnknown) {
    DeviceIdIs(c_deviceId);
    m_link.m_fixed[{0x06, 0x04}] = {0, {}};
    EXPECT_EQ(m_board.GetStatus(), bmc::BoardStatus_e::unknown);
    m_link.m_fixed[{0x06, 0x04}] = {0xff, {}};
    EXPECT_EQ(m_board.GetStatus(), bmc::BoardStatus_e::unknown);
}

TEST_F(IpmiBoardTest, StatusWhileTheFirmwareIsWritten_IsUpdating) {
    auto data = c_deviceId;
    data[2] |= 0x80;
    DeviceIdIs(data);
    EXPECT_EQ(m_board.GetStatus(), bmc::BoardStatus_e::updating);
    EXPECT_EQ(m_board.GetFirmwareType(), bmc::FirmwareType_e::unknown);
    EXPECT_EQ(m_board.GetFwRevision(), 245);
}

TEST_F(IpmiBoardTest, StatusOfASilentBoard_IsNotResponding) {
    m_link.m_isSilent = true;
    EXPECT_EQ(m_board.GetStatus(), bmc::BoardStatus_e::not_responding);
}

TEST_F(IpmiBoardTest, PowerStatus_FollowsTheChassisStatus) {
    const auto status = [this](std::uint8_t state) {
        m_link.m_chassis[0] = state;
        return m_board.GetPowerStatus();
    };
    EXPECT_EQ(status(0x01), bmc::BoardPowerStatus_e::on);
    EXPECT_EQ(status(0x61), bmc::BoardPowerStatus_e::on);
    EXPECT_EQ(status(0x09), bmc::BoardPowerStatus_e::on);
    EXPECT_EQ(status(0x00), bmc::BoardPowerStatus_e::off);
    EXPECT_EQ(status(0x04), bmc::BoardPowerStatus_e::off);
    EXPECT_EQ(status(0x02), bmc::BoardPowerStatus_e::fault);
    EXPECT_EQ(status(0x08), bmc::BoardPowerStatus_e::fault);
    EXPECT_EQ(status(0x10), bmc::BoardPowerStatus_e::fault);
}

TEST_F(IpmiBoardTest, RedLight_FollowsTheIdentificationLight) {
    const auto light = [this](std::uint8_t state) {
        m_link.m_chassis[2] = state;
        return m_board.GetRedLighStatus();
    };
    EXPECT_EQ(light(0x00), bmc::RedLedStatus_e::unknown);
    EXPECT_EQ(light(0x20), bmc::RedLedStatus_e::unknown);
    EXPECT_EQ(light(0x40), bmc::RedLedStatus_e::off);
    EXPECT_EQ(light(0x50), bmc::RedLedStatus_e::blinking);
    EXPECT_EQ(light(0x60), bmc::RedLedStatus_e::blinking);
    EXPECT_EQ(light(0x70), bmc::RedLedStatus_e::unknown);
}

TEST_F(IpmiBoardTest, ControllerWithoutChassis_KnowsNeitherPowerNorLight) {
    m_link.m_fixed[{0x00, 0x01}] = {0xc1, {}};
    EXPECT_EQ(m_board.GetPowerStatus(), bmc::BoardPowerStatus_e::unknown);
    EXPECT_EQ(m_board.GetRedLighStatus(), bmc::RedLedStatus_e::unknown);
}

TEST_F(IpmiBoardTest, StateOfASilentBoard_IsAnError) {
    m_link.m_isSilent = true;
    EXPECT_EQ(test::TextOf([&] { m_board.GetPowerStatus(); }), "io/1: no answer");
    EXPECT_EQ(test::TextOf([&] { m_board.GetRedLighStatus(); }), "io/1: no answer");
    EXPECT_EQ(test::TextOf([&] { m_board.GetFwRevision(); }), "io/1: no answer");
}

// Clock.

TEST_F(IpmiBoardTest, Time_IsTheClockInSecondsOfUtc) {
    m_link.m_clock = {0x78, 0x56, 0x34, 0x12};
    EXPECT_EQ(m_board.GetTime(), qstd::Time(0x12345678UL, 0UL));
}

TEST_F(IpmiBoardTest, TimeThatIsNotSpecified_IsAsFarAsThatOfAClockThatWasNeverSet) {
    m_link.m_clock = {0xff, 0xff, 0xff, 0xff};
    EXPECT_EQ(m_board.GetTime(), qstd::Time(0UL, 0UL));
}

TEST_F(IpmiBoardTest, SetTime_SetsTheNearestSecondAndReadsItBack) {
    m_board.SetTime(qstd::Time(0x12345678UL, 499'999UL));
    EXPECT_THAT(m_link.m_clock, ElementsAre(0x78, 0x56, 0x34, 0x12));
    m_board.SetTime(qstd::Time(0x12345678UL, 500'000UL));
    EXPECT_THAT(m_link.m_clock, ElementsAre(0x79, 0x56, 0x34, 0x12));
    EXPECT_EQ(m_link.Count(0x0a, 0x48), 2U);
    EXPECT_EQ(m_link.m_requests[0].second, Purpose_e::writing);
    EXPECT_EQ(m_link.m_requests[1].second, Purpose_e::verifying);
}

TEST_F(IpmiBoardTest, SetTimeThatTheClockCannotHold_IsAnErrorAndSendsNothing) {
    EXPECT_EQ(test::TextOf([&] { m_board.SetTime(qstd::Time::FromMicroseconds(-1'000'000)); }),
              "io/1: Set SEL Time: -1 s since 1970 is not in 0..4294967294");
    EXPECT_EQ(test::TextOf([&] { m_board.SetTime(qstd::Time::FromMicroseconds(4'294'967'295'000'000)); }),
              "io/1: Set SEL Time: 4294967295 s since 1970 is not in 0..4294967294");
    EXPECT_TRUE(m_link.m_requests.empty());
}

TEST_F(IpmiBoardTest, SetTimeThatTheBoardOnlySaysItDid_IsAnError) {
    m_link.m_obeys = false;
    EXPECT_EQ(test::TextOf([&] { m_board.SetTime(qstd::Time(1'700'000'000UL, 0UL)); }),
              "io/1: Set SEL Time: accepted, but reading back shows that it was not done");
    EXPECT_EQ(m_link.Count(0x0a, 0x49), 1U);
}

TEST_F(IpmiBoardTest, SetTimeThatIsRefused_SaysWhy) {
    m_link.m_fixed[{0x0a, 0x49}] = {0xd4, {}};
    EXPECT_EQ(test::TextOf([&] { m_board.SetTime(qstd::Time(1'700'000'000UL, 0UL)); }),
              "io/1: Set SEL Time: 0xD4 (insufficient privilege level)");
}

// What changes something is not repeated blindly.

TEST_F(IpmiBoardTest, WriteWhoseAnswerIsLost_IsNotSentAgain) {
    m_link.m_losses = {Loss_e::answer};
    EXPECT_EQ(m_board.FpgaSpiWrite(0x0005, 0x0129).failed, 0);
    EXPECT_EQ(m_link.Count(0x30, 0x11), 1U);
    EXPECT_EQ(m_link.m_registers[5], 0x0129);
}

TEST_F(IpmiBoardTest, WriteThatIsLost_IsSentAgainAfterReadingBackShowedIt) {
    m_link.m_losses = {Loss_e::request};
    EXPECT_EQ(m_board.FpgaSpiWrite(0x0005, 0x0129).failed, 0);
    EXPECT_EQ(m_link.Count(0x30, 0x11), 2U);
    EXPECT_EQ(m_link.m_requests[1].first.command, 0x10);
    EXPECT_EQ(m_link.m_requests[1].second, Purpose_e::verifying);
    EXPECT_EQ(m_link.m_registers[5], 0x0129);
}

TEST_F(IpmiBoardTest, WriteThatIsLostTwice_IsAnError) {
    m_link.m_losses = {Loss_e::request, Loss_e::request};
    EXPECT_THROW(m_board.FpgaSpiWrite(0x0005, 0x0129), bmc::ipmi::NoAnswer);
    EXPECT_EQ(m_link.Count(0x30, 0x11), 2U);
}

TEST_F(IpmiBoardTest, WriteWithoutAnswer_WhenReadingBackFailsToo_IsNotSentAgain) {
    m_link.m_losses = {Loss_e::answer};
    m_link.m_fixed[{0x30, 0x10}] = {0xc0, {}};
    EXPECT_EQ(test::TextOf([&] { m_board.FpgaSpiWrite(0x0005, 0x0129); }),
              "io/1: command 0x30/0x11: no answer, and reading back does not show whether it was done: command "
              "0x30/0x10: 0xC0 (busy)");
    EXPECT_EQ(m_link.Count(0x30, 0x11), 1U);
}

TEST_F(IpmiBoardTest, PowerThatStaysOn_IsWaitedForOnce) {
    m_link.m_obeys = false;
    EXPECT_THROW(m_board.PowerDown(), qstd::Exception);
    const std::size_t looks = m_link.Count(0x00, 0x01);
    EXPECT_THROW(m_board.PowerDown(), qstd::Exception);
    EXPECT_EQ(m_link.Count(0x00, 0x01), looks + 1);
    EXPECT_EQ(m_link.Count(0x00, 0x02), 2U) << "it is told again all the same";
    m_link.m_obeys = true;
    EXPECT_NO_THROW(m_board.PowerDown());
}

TEST_F(IpmiBoardTest, PowerThatStaysOn_IsNotWaitedForAtTheStop) {
    m_link.m_obeys = false;
    m_board.EndWaits(std::chrono::steady_clock::now());
    EXPECT_THROW(m_board.PowerDown(), qstd::Exception);
    EXPECT_EQ(m_link.Count(0x00, 0x01), 1U);
}

TEST_F(IpmiBoardTest, WriteThatWasNeverSent_IsNotTriedAgain) {
    m_link.m_losses = {Loss_e::both};
    EXPECT_THROW(m_board.FpgaSpiWrite(0x0005, 0x0129), bmc::ipmi::NoAnswer);
    EXPECT_EQ(m_link.m_requests.size(), 1U);
}

TEST_F(IpmiBoardTest, PowerDownWhoseAnswerIsLost_IsNotSentAgain) {
    m_link.m_losses = {Loss_e::answer};
    m_board.PowerDown();
    EXPECT_EQ(m_link.Count(0x00, 0x02), 1U);
    EXPECT_EQ(m_link.m_requests[0].second, Purpose_e::switching);
}

TEST_F(IpmiBoardTest, ShutDownWithoutAnswer_IsSentOnceAndToldAsAnError) {
    m_link.m_losses = {Loss_e::answer};
    EXPECT_THROW(m_board.ShutDown(), bmc::ipmi::NoAnswer);
    EXPECT_EQ(m_link.m_requests.size(), 1U);
    EXPECT_THAT(m_link.m_requests[0].first.data, ElementsAre(0x05));
}

// Power.

TEST_F(IpmiBoardTest, PowerDown_WaitsUntilPowerIsOff) {
    m_link.m_statusReadsUntilOff = 1;
    m_board.PowerDown();
    EXPECT_THAT(m_link.m_requests[0].first.data, ElementsAre(0x00));
    EXPECT_EQ(m_link.Count(0x00, 0x01), 2U);
    EXPECT_EQ(m_board.GetPowerStatus(), bmc::BoardPowerStatus_e::off);
}

TEST_F(IpmiBoardTest, PowerDownOfABoardThatIsOffAlready_IsDoneWhateverItSays) {
    m_link.m_chassis[0] = 0x00;
    m_link.m_fixed[{0x00, 0x02}] = {0xd5, {}};
    m_board.PowerDown();
    EXPECT_EQ(m_link.Count(0x00, 0x02), 1U);
}

TEST_F(IpmiBoardTest, PowerDownThatIsRefused_SaysWhyAtOnce) {
    m_link.m_fixed[{0x00, 0x02}] = {0xd4, {}};
    EXPECT_EQ(test::TextOf([&] { m_board.PowerDown(); }), "io/1: Chassis Control: 0xD4 (insufficient privilege level)");
    EXPECT_EQ(m_link.Count(0x00, 0x01), 1U);
}

TEST_F(IpmiBoardTest, ShutDownThatIsRefused_SaysWhy) {
    m_link.m_fixed[{0x00, 0x02}] = {0xcc, {}};
    EXPECT_EQ(test::TextOf([&] { m_board.ShutDown(); }),
              "io/1: Chassis Control: 0xCC (invalid data field in the request)");
}

// Registers of the fan controller.

TEST_F(IpmiBoardTest, FpgaRead_GivesTheRegister) {
    m_link.m_registers[0x0103] = 0xabcd;
    const auto result = m_board.FpgaSpiRead(0x0103);
    EXPECT_EQ(result.failed, 0);
    EXPECT_EQ(result.value, 0xabcd);
    EXPECT_THAT(m_link.m_requests[0].first.data, ElementsAre(0x01, 0x03));
}

TEST_F(IpmiBoardTest, FpgaTransferThatTheBoardRefuses_IsToldByTheResult) {
    m_link.m_fixed[{0x30, 0x10}] = {0xc1, {}};
    EXPECT_NE(m_board.FpgaSpiRead(0x0003).failed, 0);
    EXPECT_NE(m_board.FpgaSpiWrite(0x0003, 1).failed, 0);
}

TEST_F(IpmiBoardTest, FpgaReplyThatIsTooShort_IsToldByTheResult) {
    m_link.m_fixed[{0x30, 0x10}] = {0, {0x01}};
    EXPECT_NE(m_board.FpgaSpiRead(0x0003).failed, 0);
}

TEST_F(IpmiBoardTest, FpgaWriteThatReadsBackOtherwise_IsToldByTheResult) {
    m_link.m_obeys = false;
    EXPECT_NE(m_board.FpgaSpiWrite(0x0003, 297).failed, 0);
    EXPECT_EQ(m_link.Count(0x30, 0x11), 1U);
}

TEST_F(IpmiBoardTest, FpgaTransfersThatFail_AreLoggedOnceUntilAllSucceed) {
    const std::string subject = "Fan registers of board io/1 cannot be accessed: ";
    const std::vector<bmc::FpgaRegisterValue> values{{3, 297}, {4, 297}};
    m_link.m_fixed[{0x30, 0x10}] = {0xd4, {}};
    m_link.m_fixed[{0x30, 0x11}] = {0xd4, {}};
    for (int cycle = 0; cycle < 3; ++cycle) {
        m_board.FpgaSpiRead(3);
        m_board.FpgaSpiWriteAll(values);
    }
    const auto refusedRead = subject + "command 0x30/0x10: 0xD4 (insufficient privilege level)";
    const auto refusedWrite = subject + "command 0x30/0x11: 0xD4 (insufficient privilege level)";
    EXPECT_THAT(m_log, ElementsAre(refusedRead, refusedWrite));

    m_log.clear();
    m_link.m_fixed.clear();
    m_board.FpgaSpiWriteAll(values);
    m_link.m_fixed[{0x30, 0x10}] = {0, {0x01}};
    m_board.FpgaSpiRead(3);
    m_link.m_fixed.clear();
    m_link.m_obeys = false;
    m_board.FpgaSpiWrite(3, 298);
    EXPECT_THAT(m_log, ElementsAre(subject + "command 0x30/0x10: the reply is not as the configuration says",
                                   subject + "command 0x30/0x11: accepted, but another value is read back"));
}

TEST_F(IpmiBoardTest, BoardWithoutFpgaCommands_FailsEveryTransferAndIsNotAsked) {
    BoardSettings settings = Settings();
    settings.fpga.reset();
    const IpmiBoard board(settings, m_link, m_sensors, m_logFunction);
    EXPECT_NE(board.FpgaSpiRead(3).failed, 0);
    EXPECT_NE(board.FpgaSpiWrite(3, 1).failed, 0);
    EXPECT_TRUE(m_link.m_requests.empty());
}

TEST_F(IpmiBoardTest, FpgaWriteAll_WritesTheOthersWhenOneGetsNoAnswer) {
    m_link.m_losses = {Loss_e::none, Loss_e::request, Loss_e::request, Loss_e::none};
    EXPECT_THROW(m_board.FpgaSpiWriteAll({{1, 10}, {2, 20}, {3, 30}}), bmc::ipmi::NoAnswer);
    EXPECT_EQ(m_link.m_registers[1], 10);
    EXPECT_EQ(m_link.m_registers[2], 0);
    EXPECT_EQ(m_link.m_registers[3], 30);
}

TEST_F(IpmiBoardTest, FpgaOfASilentBoard_IsAnError) {
    m_link.m_isSilent = true;
    EXPECT_EQ(test::TextOf([&] { m_board.FpgaSpiRead(3); }), "io/1: no answer");
    EXPECT_EQ(test::TextOf([&] { m_board.FpgaSpiWrite(3, 1); }), "io/1: no answer");
}

}  // namespace
