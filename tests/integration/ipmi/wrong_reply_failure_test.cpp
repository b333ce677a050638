// Replies that are too short, or codes in their place: never a wrong value, and all is well afterwards.

#include <array>
#include <cmath>
#include <ostream>

#include "tests/integration/ipmi/failure_fixture.h"

namespace test {

namespace {

using testing::AnyOf;
using testing::HasSubstr;

constexpr IpmiCommand c_getDeviceGuid{0x06, 0x08};
constexpr IpmiCommand c_readRegister{0x30, 0x10};
constexpr IpmiCommand c_writeFpga{0x30, 0x11};
constexpr IpmiCommand c_reserveSdrRepository{0x0a, 0x22};

struct NamedCommand {
    const char* name;
    IpmiCommand command;
    std::uint8_t length;  ///< of its whole reply, the completion code counted

    friend void PrintTo(const NamedCommand& command, std::ostream* out) { *out << command.name; }
};

constexpr std::array c_commands{
    NamedCommand{"GetDeviceId", c_getDeviceId, 12},
    NamedCommand{"GetSelfTestResults", c_getSelfTestResults, 3},
    NamedCommand{"GetDeviceGuid", c_getDeviceGuid, 17},
    NamedCommand{"GetChassisStatus", c_getChassisStatus, 4},
    NamedCommand{"ChassisControl", c_chassisControl, 1},
    NamedCommand{"GetSensorReading", c_getSensorReading, 4},
    NamedCommand{"GetSensorThresholds", c_getSensorThresholds, 8},
    NamedCommand{"GetSdrRepositoryInfo", c_getSdrRepositoryInfo, 15},
    NamedCommand{"ReserveSdrRepository", c_reserveSdrRepository, 3},
    NamedCommand{"GetSdr", c_getSdr, 20},
    NamedCommand{"GetSelTime", c_getSelTime, 5},
    NamedCommand{"SetSelTime", c_setSelTime, 1},
    NamedCommand{"ReadRegister", c_readRegister, 3},
    NamedCommand{"WriteRegister", c_writeFpga, 1},
};

class WrongReplyTest : public IpmiFailureTest, public testing::WithParamInterface<NamedCommand> {
protected:
    static constexpr unsigned long c_someTime = 1'700'000'000;
    static constexpr std::uint16_t c_register = 0x40;

    /// Does everything that can be done with a board. Whatever comes of it is right or an exception with a text.
    void UseTheBoard() {
        bmc::Board& board = Board();
        CheckSensors(board);
        ErrorOf([&] { EXPECT_EQ(board.GetFwRevision(), 245); });
        ErrorOf([&] { EXPECT_EQ(board.GetIpmiVersion(), 2); });
        ErrorOf([&] {
            EXPECT_THAT(board.GetStatus(),
                        AnyOf(bmc::BoardStatus_e::ok, bmc::BoardStatus_e::unknown, bmc::BoardStatus_e::not_responding));
        });
        ErrorOf([&] {
            EXPECT_THAT(board.GetPowerStatus(), AnyOf(bmc::BoardPowerStatus_e::on, bmc::BoardPowerStatus_e::unknown));
        });
        ErrorOf([&] {
            EXPECT_THAT(board.GetRedLighStatus(), AnyOf(bmc::RedLedStatus_e::off, bmc::RedLedStatus_e::unknown));
        });
        ErrorOf([&] {
            board.SetTime(qstd::Time(c_someTime, 0UL));
            EXPECT_NEAR(static_cast<double>(board.GetTime().GetSeconds()), static_cast<double>(c_someTime), 100);
        });
        ErrorOf([&] {
            const bmc::FpgaReadResult result = board.FpgaSpiRead(c_register);
            EXPECT_TRUE(result.failed != 0 || result.value == 0x1234) << result.value;
        });
        ErrorOf([&] {
            const bmc::FpgaWriteResult result = board.FpgaSpiWrite(c_register + 2, 297);
            EXPECT_TRUE(result.failed != 0 || Simulator().GetRegister(c_bmc, c_register + 2) == 297);
        });
    }

    static void CheckSensors(bmc::Board& board) {
        for (int id = 1; id <= 5; ++id) {
            const bmc::Sensor* const sensor = board.GetSensor(bmc::SensorId(id));
            if (sensor == nullptr) {
                continue;  // not known, which GetSensorsIds has told
            }
            ErrorOf([&] {
                const double value = sensor->Read().Converted();
                EXPECT_TRUE(value == id * 8 || std::isnan(value)) << value;
            });
            EXPECT_EQ(sensor->GetName(), "T" + std::to_string(id));
            EXPECT_THAT(sensor->GetUpperNonRecoverable().Converted(), AnyOf(230 + id, HUGE_VAL));
            EXPECT_THAT(sensor->GetUpperCritical().Converted(), AnyOf(245, HUGE_VAL));
            EXPECT_THAT(sensor->GetUpperNonCritical().Converted(), AnyOf(240, HUGE_VAL));
            EXPECT_THAT(sensor->GetLowerNonCritical().Converted(), AnyOf(3, -HUGE_VAL));
            EXPECT_THAT(sensor->GetLowerCritical().Converted(), AnyOf(2, -HUGE_VAL));
            EXPECT_THAT(sensor->GetLowerNonRecoverable().Converted(), AnyOf(1, -HUGE_VAL));
        }
    }

    void ExpectAllWell() {
        EXPECT_EQ(Read(0, 5), 40);
        EXPECT_EQ(Board().GetFwRevision(), 245);
        EXPECT_EQ(Board().GetStatus(), bmc::BoardStatus_e::ok);
        EXPECT_EQ(Board().GetPowerStatus(), bmc::BoardPowerStatus_e::on);
        EXPECT_EQ(Board().FpgaSpiRead(c_register).value, 0x1234);
        EXPECT_NO_THROW(Board().SetTime(qstd::Time(c_someTime, 0UL)));
        EXPECT_EQ(Board().FpgaSpiWrite(c_register + 2, 298).failed, 0);
        EXPECT_EQ(CountMessages("does not answer"), 0);
    }
};

TEST_P(WrongReplyTest, CutShort_IsNeverAWrongValue) {
    StartControllers(1, 5);
    Simulator().SetRegister(c_bmc, c_register, 0x1234);
    OpenBackend();
    for (std::uint8_t length = 1; length < GetParam().length; ++length) {
        SCOPED_TRACE("cut to " + std::to_string(length) + " bytes");
        Simulator().SetReplyLength(c_bmc, GetParam().command, length);
        UseTheBoard();
    }
    Simulator().SetReplyLength(c_bmc, GetParam().command, std::nullopt);
    ExpectAllWell();
}

TEST_P(WrongReplyTest, CompletionCodes_AreNeverAWrongValue) {
    StartControllers(1, 5);
    Simulator().SetRegister(c_bmc, c_register, 0x1234);
    OpenBackend();
    for (const int code : {0x80, 0xc0, 0xc1, 0xc3, 0xc5, 0xca, 0xcb, 0xcd, 0xd4, 0xd5, 0xff}) {
        SCOPED_TRACE("completion code " + std::to_string(code));
        Simulator().SetCompletionCode(c_bmc, GetParam().command, static_cast<std::uint8_t>(code));
        UseTheBoard();
    }
    Simulator().SetCompletionCode(c_bmc, GetParam().command, 0);
    ExpectAllWell();
}

TEST_P(WrongReplyTest, CutShortFromTheStart_SensorsAreRightOrNotThere) {
    StartControllers(1, 5);
    Simulator().SetRegister(c_bmc, c_register, 0x1234);
    for (const int length : {1, 2, 3, 6}) {
        if (length >= GetParam().length) {
            continue;
        }
        SCOPED_TRACE("cut to " + std::to_string(length) + " bytes");
        Simulator().SetReplyLength(c_bmc, GetParam().command, static_cast<std::uint8_t>(length));
        OpenBackend(false);
        ErrorOf([&] { EXPECT_THAT(Board().GetSensorsIds().size(), AnyOf(5U, 0U)); });
        UseTheBoard();
        CloseBackend();
        ClearMessages();
    }
    Simulator().SetReplyLength(c_bmc, GetParam().command, std::nullopt);
    OpenBackend();
    ExpectAllWell();
}

INSTANTIATE_TEST_SUITE_P(Of, WrongReplyTest, testing::ValuesIn(c_commands),
                         [](const auto& command) { return command.param.name; });

TEST_F(IpmiFailureTest, ThresholdsThatWereRefusedAtTheStart_ComeLater) {
    StartControllers(1, 5);
    Simulator().SetCompletionCode(c_bmc, c_getSensorThresholds, 0xc0);
    OpenBackend();
    EXPECT_FALSE(Board().GetSensor(bmc::SensorId(1))->GetUpperCritical().IsValid());
    EXPECT_EQ(CountMessages("Not all thresholds of board icb/0 could be read"), 1);
    Simulator().SetCompletionCode(c_bmc, c_getSensorThresholds, 0);
    Simulator().Restart();  // a board that was away is asked for everything again
    Relay().SetFaults({.drop = 1});
    ReadError(0, 1);
    Relay().SetFaults({});
    EXPECT_TRUE(Await([&] { return Board().GetSensor(bmc::SensorId(1))->GetUpperCritical().IsValid(); }));
    EXPECT_EQ(Board().GetSensor(bmc::SensorId(1))->GetUpperCritical().Converted(), 245);
}

}  // namespace

}  // namespace test
