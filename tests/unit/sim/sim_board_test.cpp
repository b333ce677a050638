#include "bmc/sim/sim_board.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "sim_fixture.h"
#include "tests/support/manual_clock.h"

namespace {

using test::ErrorOf;
using test::SimChassis;

TEST(SimBackend, Boards_AreInTheOrderOfTheDescription) {
    SimChassis chassis;
    const auto uris = chassis.backend.GetAllLocalBoardUris();
    ASSERT_EQ(uris.size(), 2U);
    EXPECT_EQ(uris[0].ToString(), "icb/0");
    EXPECT_EQ(uris[1].ToString(), "io/1");
    EXPECT_EQ(chassis.backend.GetBoard(bmc::Uri("io", "9")), nullptr);
    EXPECT_EQ(chassis.backend.GetBoard(uris[1]), chassis.backend.GetBoard(uris[1]));
}

TEST(SimBoard, WhatItIs_IsAsDescribed) {
    SimChassis chassis;
    const bmc::Board& board = chassis.Board("io/1");
    EXPECT_EQ(board.GetUri().ToString(), "io/1");
    EXPECT_EQ(board.GetType(), bmc::BoardType_e::io);
    EXPECT_EQ(board.GetShortName(), "IO1");
    EXPECT_EQ(board.GetStatus(), bmc::BoardStatus_e::degraded);
    EXPECT_EQ(board.GetPowerStatus(), bmc::BoardPowerStatus_e::on);
    EXPECT_EQ(board.GetRedLighStatus(), bmc::RedLedStatus_e::on);
    EXPECT_EQ(board.GetFirmwareType(), bmc::FirmwareType_e::backup);
    EXPECT_EQ(board.GetFwRevision(), 12);
    EXPECT_EQ(board.GetFpgaRevision(), 7);
    EXPECT_EQ(board.GetIpmiVersion(), 2);
    EXPECT_EQ(board.GetDevicePrefix(), "IO");
}

TEST(SimBoard, Sensors_AreInTheOrderOfTheDescription) {
    SimChassis chassis;
    const auto ids = chassis.Board("icb/0").GetSensorsIds();
    ASSERT_EQ(ids.size(), 2U);
    EXPECT_EQ(ids[0].GetValue(), 12);
    EXPECT_EQ(ids[1].GetValue(), 3);
    EXPECT_EQ(chassis.Board("icb/0").GetSensor(bmc::SensorId(4)), nullptr);
    EXPECT_EQ(chassis.Sensor("icb/0", 3).GetId().GetValue(), 3);
}

TEST(SimSensor, ReadingAndLimits_AreAsDescribed) {
    SimChassis chassis;
    const bmc::Sensor& sensor = chassis.Sensor("icb/0", 12);
    EXPECT_EQ(sensor.Read().Converted(), 48);
    EXPECT_EQ(sensor.GetName(), "Intake");
    EXPECT_EQ(sensor.GetUnits(), "C");
    EXPECT_EQ(sensor.GetNominal().Converted(), 30);
    EXPECT_EQ(sensor.GetLowerNonRecoverable().Converted(), -10);
    EXPECT_EQ(sensor.GetLowerCritical().Converted(), -5);
    EXPECT_EQ(sensor.GetLowerNonCritical().Converted(), 0);
    EXPECT_EQ(sensor.GetUpperNonCritical().Converted(), 75);
    EXPECT_EQ(sensor.GetUpperCritical().Converted(), 85);
    EXPECT_EQ(sensor.GetUpperNonRecoverable().Converted(), 95);
}

TEST(SimSensor, WhatIsNotThere_IsNotValid) {
    SimChassis chassis;
    const bmc::Sensor& sensor = chassis.Sensor("icb/0", 3);
    EXPECT_FALSE(sensor.Read().IsValid());
    EXPECT_TRUE(std::isnan(sensor.GetNominal().Converted()));
    EXPECT_EQ(sensor.GetLowerCritical().Converted(), -INFINITY);
    EXPECT_EQ(sensor.GetUpperCritical().Converted(), INFINITY);
    EXPECT_FALSE(sensor.GetUpperCritical().IsValid());
    EXPECT_TRUE(sensor.GetUpperNonCritical().IsValid());
}

TEST(SimBoard, FansOfOneBoard_CoolASensorOfAnother) {
    test::ManualClock clock;
    SimChassis chassis;
    clock.Advance(std::chrono::hours(1));
    const double before = chassis.Sensor("io/1", 16).Read().Converted();
    for (const std::uint16_t address : bmc::sim::FanBank::c_addresses) {
        EXPECT_EQ(chassis.Board("icb/0").FpgaSpiWrite(address, 297).failed, 0);
    }
    clock.Advance(std::chrono::hours(1));
    EXPECT_LT(chassis.Sensor("io/1", 16).Read().Converted(), before - 5);
    EXPECT_EQ(chassis.Board("icb/0").FpgaSpiRead(0x42).value, 297);
    EXPECT_NEAR(chassis.Sensor("io/1", 17).Read().Converted(), 1935483.0 / 297, 0.1);
}

TEST(SimBoard, FpgaOfABoardWithoutFans_Fails) {
    SimChassis chassis;
    EXPECT_NE(chassis.Board("io/1").FpgaSpiRead(0x40).failed, 0);
    EXPECT_NE(chassis.Board("io/1").FpgaSpiWrite(0x40, 1).failed, 0);
    EXPECT_NE(chassis.Board("icb/0").FpgaSpiRead(0x41).failed, 0);
    EXPECT_EQ(chassis.Do({"journal"}), "") << "nothing was changed";
}

TEST(SimBoard, Clock_IsTheHostsWithAnOffsetAndRunsOn) {
    test::ManualClock clock;
    SimChassis chassis;
    bmc::Board& board = chassis.Board("icb/0");
    const std::int64_t host = 1795269787512000;
    EXPECT_EQ(board.GetTime().ToMicroseconds(), host + 1500000);
    board.SetTime(qstd::Time(100, 250000));
    clock.Advance(std::chrono::seconds(5));
    EXPECT_EQ(board.GetTime().ToMicroseconds(), 105250000);
    EXPECT_EQ(chassis.Do({"clock", "icb/0", "-0.5"}), "");
    EXPECT_EQ(board.GetTime().ToMicroseconds(), host + 4500000);
}

TEST(SimBoard, PowerDown_SwitchesOffAndSensorsKeepReading) {
    SimChassis chassis;
    chassis.Board("icb/0").PowerDown();
    EXPECT_EQ(chassis.Board("icb/0").GetPowerStatus(), bmc::BoardPowerStatus_e::off);
    EXPECT_EQ(chassis.Sensor("icb/0", 12).Read().Converted(), 48);
    EXPECT_EQ(chassis.Do({"power", "icb/0"}), "+off\n");
    EXPECT_EQ(chassis.Do({"power", "io/1"}), "+on\n");
}

TEST(SimBoard, ShutDown_OnlyCounts) {
    SimChassis chassis;
    chassis.Board("icb/0").ShutDown();
    chassis.Board("icb/0").ShutDown();
    EXPECT_EQ(chassis.Do({"shutdown-count", "icb/0"}), "+2\n");
    EXPECT_EQ(chassis.Do({"shutdown-count", "io/1"}), "+0\n");
    EXPECT_EQ(chassis.Board("icb/0").GetPowerStatus(), bmc::BoardPowerStatus_e::on);
}

TEST(SimBoard, WhatWasDone_IsInTheJournal) {
    test::ManualClock clock;
    SimChassis chassis;
    chassis.Board("io/1").PowerDown();
    clock.Advance(std::chrono::milliseconds(1250));
    chassis.Board("io/1").ShutDown();
    chassis.Board("icb/0").SetTime(qstd::Time(1700000000, 900000));
    chassis.Board("icb/0").FpgaSpiWrite(0x68, 483);
    chassis.Board("icb/0").FpgaSpiWrite(0x6a, 483);
    chassis.Do({"fpga-fail", "0x40"});
    chassis.Board("icb/0").FpgaSpiWrite(0x40, 483);
    EXPECT_EQ(chassis.Do({"journal"}),
              "+0.000\tio/1\tPowerDown\n"
              "+1.250\tio/1\tShutDown\n"
              "+1.250\ticb/0\tSetTime\t1700000000\n"
              "+1.250\ticb/0\tFpgaSpiWrite\t0x68\t483\n");
}

TEST(Faults, SetAutoInvalid_MoveTheReading) {
    SimChassis chassis;
    const bmc::Sensor& sensor = chassis.Sensor("icb/0", 12);
    EXPECT_EQ(chassis.Do({"set", "icb/0", "12", "99.5"}), "");
    EXPECT_EQ(sensor.Read().Converted(), 99.5);
    EXPECT_EQ(sensor.ReadingLimit(sensor.Read()), 6);
    EXPECT_EQ(chassis.Do({"set", "icb/0", "12", "nan"}), "");
    EXPECT_TRUE(sensor.Read().IsValid());
    EXPECT_TRUE(std::isnan(sensor.Read().Converted()));
    EXPECT_EQ(chassis.Do({"invalid", "icb/0", "12"}), "");
    EXPECT_FALSE(sensor.Read().IsValid());
    EXPECT_EQ(chassis.Do({"auto", "icb/0", "12"}), "");
    EXPECT_EQ(sensor.Read().Converted(), 48);
}

/// Everything that asks a board's controller, by name.
std::vector<std::pair<std::string, std::function<void()>>> AccessesOf(bmc::Board& board, const bmc::Sensor& sensor) {
    return {
        {"GetSensorsIds", [&] { board.GetSensorsIds(); }},
        {"GetTime", [&] { board.GetTime(); }},
        {"SetTime", [&] { board.SetTime(qstd::Time(1, 0)); }},
        {"PowerDown", [&] { board.PowerDown(); }},
        {"ShutDown", [&] { board.ShutDown(); }},
        {"FpgaSpiRead", [&] { board.FpgaSpiRead(0x40); }},
        {"FpgaSpiWrite", [&] { board.FpgaSpiWrite(0x40, 1); }},
        {"GetStatus", [&] { board.GetStatus(); }},
        {"GetPowerStatus", [&] { board.GetPowerStatus(); }},
        {"GetRedLighStatus", [&] { board.GetRedLighStatus(); }},
        {"GetFirmwareType", [&] { board.GetFirmwareType(); }},
        {"GetFwRevision", [&] { board.GetFwRevision(); }},
        {"GetFpgaRevision", [&] { board.GetFpgaRevision(); }},
        {"GetIpmiVersion", [&] { board.GetIpmiVersion(); }},
        {"GetDevicePrefix", [&] { board.GetDevicePrefix(); }},
        {"Read", [&] { sensor.Read(); }},
        {"GetNominal", [&] { sensor.GetNominal(); }},
        {"GetLowerNonCritical", [&] { sensor.GetLowerNonCritical(); }},
        {"GetLowerCritical", [&] { sensor.GetLowerCritical(); }},
        {"GetLowerNonRecoverable", [&] { sensor.GetLowerNonRecoverable(); }},
        {"GetUpperNonCritical", [&] { sensor.GetUpperNonCritical(); }},
        {"GetUpperCritical", [&] { sensor.GetUpperCritical(); }},
        {"GetUpperNonRecoverable", [&] { sensor.GetUpperNonRecoverable(); }},
    };
}

TEST(Faults, FailingBoard_EveryAccessRaisesTheTextAndChangesNothing) {
    SimChassis chassis;
    bmc::Board& board = chassis.Board("icb/0");
    bmc::Sensor& sensor = chassis.Sensor("icb/0", 12);
    EXPECT_EQ(chassis.Do({"fail", "icb/0", "", "bus stuck"}), "");
    for (const auto& [name, access] : AccessesOf(board, sensor)) {
        EXPECT_EQ(ErrorOf(access), "bus stuck") << name;
    }
    EXPECT_EQ(board.GetShortName(), "ICB") << "what it is does not need the controller";
    EXPECT_EQ(board.GetSensor(bmc::SensorId(12)), &sensor);
    EXPECT_EQ(sensor.GetName(), "Intake");
    EXPECT_EQ(chassis.Sensor("io/1", 17).Read().IsValid(), true) << "the other board works";
    EXPECT_EQ(chassis.Do({"journal"}), "");
    EXPECT_EQ(chassis.Do({"power", "icb/0"}), "+on\n");
    EXPECT_EQ(chassis.Do({"heal", "icb/0", ""}), "");
    for (const auto& [name, access] : AccessesOf(board, sensor)) {
        EXPECT_EQ(ErrorOf(access), "") << name;
    }
}

TEST(Faults, FailingSensor_OnlyItsOwnAccessesFail) {
    SimChassis chassis;
    EXPECT_EQ(chassis.Do({"fail", "icb/0", "12", ""}), "");
    EXPECT_EQ(ErrorOf([&] { chassis.Sensor("icb/0", 12).Read(); }), "simulated failure");
    EXPECT_EQ(ErrorOf([&] { chassis.Sensor("icb/0", 12).GetUpperCritical(); }), "simulated failure");
    EXPECT_EQ(ErrorOf([&] { chassis.Sensor("icb/0", 3).Read(); }), "");
    EXPECT_EQ(ErrorOf([&] { chassis.Board("icb/0").GetStatus(); }), "");
    EXPECT_EQ(chassis.Do({"heal", "icb/0", "12"}), "");
    EXPECT_EQ(chassis.Sensor("icb/0", 12).Read().Converted(), 48);
}

TEST(Faults, MissingBoard_IsListedButNotFound) {
    SimChassis chassis;
    EXPECT_EQ(chassis.Do({"missing", "io/1", ""}), "");
    EXPECT_EQ(chassis.backend.GetAllLocalBoardUris().size(), 2U);
    EXPECT_EQ(chassis.backend.GetBoard(bmc::Uri("io", "1")), nullptr);
    EXPECT_EQ(chassis.Do({"heal", "io/1", ""}), "");
    EXPECT_NE(chassis.backend.GetBoard(bmc::Uri("io", "1")), nullptr);
}

TEST(Faults, MissingSensor_IsListedButNotFound) {
    SimChassis chassis;
    EXPECT_EQ(chassis.Do({"missing", "icb/0", "12"}), "");
    EXPECT_EQ(chassis.Board("icb/0").GetSensorsIds().size(), 2U);
    EXPECT_EQ(chassis.Board("icb/0").GetSensor(bmc::SensorId(12)), nullptr);
    EXPECT_EQ(chassis.Do({"heal", "icb/0", "12"}), "");
    EXPECT_NE(chassis.Board("icb/0").GetSensor(bmc::SensorId(12)), nullptr);
}

TEST(Faults, HealingABoard_HealsItsSensorsToo) {
    SimChassis chassis;
    chassis.Do({"set", "icb/0", "12", "1"});
    chassis.Do({"invalid", "icb/0", "3"});
    chassis.Do({"missing", "icb/0", "3"});
    chassis.Do({"fail", "icb/0", "12", "x"});
    chassis.Do({"slow", "icb/0", "60000"});
    chassis.Do({"heal", "icb/0", ""});
    EXPECT_EQ(chassis.Do({"list"}).find("set"), std::string::npos);
    EXPECT_EQ(chassis.Sensor("icb/0", 12).Read().Converted(), 48);
    EXPECT_FALSE(chassis.Sensor("icb/0", 3).Read().IsValid());
}

TEST(Faults, Limits_AreChangedAndTakenAway) {
    SimChassis chassis;
    const bmc::Sensor& sensor = chassis.Sensor("icb/0", 12);
    const std::vector<std::pair<std::string, std::function<bmc::SensorReading()>>> limits = {
        {"nominal", [&] { return sensor.GetNominal(); }},
        {"lnc", [&] { return sensor.GetLowerNonCritical(); }},
        {"lc", [&] { return sensor.GetLowerCritical(); }},
        {"lnr", [&] { return sensor.GetLowerNonRecoverable(); }},
        {"unc", [&] { return sensor.GetUpperNonCritical(); }},
        {"uc", [&] { return sensor.GetUpperCritical(); }},
        {"unr", [&] { return sensor.GetUpperNonRecoverable(); }},
    };
    for (const auto& [name, get] : limits) {
        EXPECT_EQ(chassis.Do({"limit", "icb/0", "12", name, "1.25"}), "");
        EXPECT_EQ(get().Converted(), 1.25) << name;
        EXPECT_EQ(chassis.Do({"limit", "icb/0", "12", name, "none"}), "");
        EXPECT_FALSE(get().IsValid()) << name;
    }
}

TEST(Faults, FpgaRegister_FailsByItsResult) {
    SimChassis chassis;
    EXPECT_EQ(chassis.Do({"fpga-fail", "0x42"}), "");
    EXPECT_NE(chassis.Board("icb/0").FpgaSpiRead(0x42).failed, 0);
    EXPECT_EQ(chassis.Board("icb/0").FpgaSpiRead(0x40).failed, 0);
    EXPECT_EQ(chassis.Do({"fpga-heal", "66"}), "");
    EXPECT_EQ(chassis.Board("icb/0").FpgaSpiRead(0x42).value, 645);
}

TEST(Commands, List_ShowsEverythingEvenOfFailingAndMissingBoards) {
    SimChassis chassis;
    chassis.Do({"fail", "icb/0", "", "a, b"});
    chassis.Do({"missing", "icb/0", ""});
    chassis.Do({"slow", "icb/0", "60000"});
    chassis.Do({"set", "icb/0", "3", "-inf"});
    chassis.Do({"fail", "icb/0", "3", "x"});
    const std::string list = chassis.Do({"list"});
    EXPECT_EQ(list.substr(0, list.find("+board\tio/1")),
              "+board\ticb/0\tICB\ticb\ton\tmissing,slow 60000,fail: a, b\n"
              "+sensor\ticb/0\t12\tIntake\ttemperature\t48\tC\t30\t-10\t-5\t0\t75\t85\t95\tok\n"
              "+sensor\ticb/0\t3\tV12\tvoltage\t-inf\t\tna\tna\tna\tna\t13\tna\tna\tset,fail: x\n");
}

TEST(Commands, Fpga_ReadsAndWritesTheRegisters) {
    SimChassis chassis;
    EXPECT_EQ(chassis.Do({"fpga-write", "0x40", "0x100"}), "");
    EXPECT_EQ(chassis.Do({"fpga-read", "64"}), "+0x40\t256\n");
    EXPECT_EQ(chassis.Do({"fpga-write", "0x4a", "7"}), "") << "a tachometer that is stuck";
    EXPECT_EQ(chassis.Board("icb/0").FpgaSpiRead(0x4a).value, 7);
}

TEST(Commands, BadRequests_AreRefusedByName) {
    SimChassis chassis;
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{""}, "unknown command \"\""},
        {{"explode"}, "unknown command \"explode\""},
        {{"list", "x"}, "command \"list\" takes 0 arguments, given 1"},
        {{"set", "icb/0", "12"}, "command \"set\" takes 3 arguments, given 2"},
        {{"set", "icb/9", "12", "1"}, "unknown board \"icb/9\""},
        {{"set", "icb/0", "99", "1"}, "board icb/0 has no sensor 99"},
        {{"set", "icb/0", "x", "1"}, "not a sensor id: \"x\""},
        {{"set", "icb/0", "", "1"}, "not a sensor id: \"\""},
        {{"set", "icb/0", "12", "hot"}, "not a number: \"hot\""},
        {{"fail", "icb/0", "99", ""}, "board icb/0 has no sensor 99"},
        {{"missing", "x", ""}, "unknown board \"x\""},
        {{"heal", "x", ""}, "unknown board \"x\""},
        {{"slow", "icb/0", "-1"}, "not a number of milliseconds from 0 to 3600000: \"-1\""},
        {{"limit", "icb/0", "12", "high", "1"}, "unknown limit \"high\"; known: lnr, lc, lnc, unc, uc, unr, nominal"},
        {{"limit", "icb/0", "12", "unc", "inf"}, "a limit is a finite number or \"none\", given \"inf\""},
        {{"limit", "icb/0", "12", "unc", "x"}, "not a number: \"x\""},
        {{"clock", "icb/0", "nan"}, "clock offset nan is beyond 1e9 seconds"},
        {{"fpga-read", "0x44"}, "cannot read register 0x44: there is none, or it is made to fail"},
        {{"fpga-read", "0x10000"}, "not a number from 0 to 0xFFFF: \"0x10000\""},
        {{"fpga-write", "0x44", "1"}, "cannot write register 0x44: there is none, or it is made to fail"},
        {{"power", "x"}, "unknown board \"x\""},
        {{"shutdown-count", "x"}, "unknown board \"x\""},
    };
    const std::string before = chassis.Do({"list"});
    for (const auto& [request, text] : cases) {
        EXPECT_EQ(chassis.Do(request), "error: " + text);
    }
    const std::string fixedPart = before.substr(0, before.find("+board\tio/1"));
    EXPECT_EQ(chassis.Do({"list"}).substr(0, fixedPart.size()), fixedPart) << "nothing was changed";
}

}  // namespace
