// Boards, sessions and what the configuration says of them.

#include <filesystem>

#include "ipmi_daemon_fixture.h"
#include "tests/support/ipmi/ipmitool.h"

namespace {

using test::BoardAt;
using test::IpmiSimulator;
using test::Records_e;
using test::SimulatedController;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class IpmiBoardsTest : public test::IpmiDaemonTest {
protected:
    static std::string Answers(const BoardAt& board, const std::string& boards) {
        return "INFO     Controller 127.0.0.1:" + std::to_string(board.simulator->GetPort(board.controller)) +
               " answers: session with cipher suite " + std::to_string(board.cipherSuite) + " (" + boards + ")";
    }

    /// The command of `ipmitool` must do its work.
    static void Ipmitool(const IpmiSimulator& simulator, const std::vector<std::string>& words) {
        const test::Result result = test::Ipmitool(simulator, words);
        EXPECT_EQ(result.status, 0) << result.error;
    }
};

TEST_F(IpmiBoardsTest, BoardInformation_IsThatOfTheControllerAndFollowsIt) {
    IpmiSimulator simulator;
    simulator.SetRegister(test::c_bmc, 0x0010, 7);
    StartOn({test::Icb(simulator)});
    const std::string info = "boards/ICB/board_info/";
    EXPECT_EQ(
        Ask({"get", info + "device", info + "type", info + "firmware_type", info + "status", info + "power_status",
             info + "fpga_revision", info + "red_light", info + "fw_revision", info + "ipmi_version"}),
        "\nicb\nactive\nok\non\n7\noff\n245\n2\n");
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "");

    simulator.SetPowerOn(test::c_bmc, false);
    Ipmitool(simulator, {"chassis", "identify", "force"});
    simulator.SetSelfTest(test::c_bmc, 0x57, 0x08);
    EXPECT_EQ(Ask({"get", info + "power_status", info + "red_light", info + "status"}), "off\nblinking\ndegraded\n");
    simulator.SetSelfTest(test::c_bmc, 0x58, 0x01);
    simulator.SetIdentifySupported(test::c_bmc, false);
    EXPECT_EQ(Ask({"get", info + "status", info + "red_light"}), "failed\nunknown\n");
    simulator.SetUpdating(test::c_bmc, true);
    EXPECT_EQ(Ask({"get", info + "status", info + "firmware_type"}), "updating\nunknown\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(IpmiBoardsTest, ReplyThatIsCutShort_IsAnErrorAndNeverAValue) {
    IpmiSimulator simulator(test::WithSensors(2));
    StartOn({test::Icb(simulator)});
    simulator.SetReplyLength(test::c_bmc, test::c_getSensorReading, 2);
    simulator.SetReplyLength(test::c_bmc, test::c_getDeviceId, 5);
    ExpectFailure({"get", "boards/ICB/sensors/ID_1/value"}, 1,
                  "icb/0 sensor 1 (Temp 1): Get Sensor Reading: the reply has 1 bytes instead of 2");
    ExpectFailure({"get", "boards/ICB/board_info/fw_revision"}, 1, "icb/0: Get Device ID: the reply has 4 bytes");
    simulator.SetReplyLength(test::c_bmc, test::c_getSensorReading, std::nullopt);
    simulator.SetReplyLength(test::c_bmc, test::c_getDeviceId, std::nullopt);
    EXPECT_EQ(Get("boards/ICB/sensors/ID_1/value"), "40");
    EXPECT_EQ(Get("boards/ICB/board_info/fw_revision"), "245");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(IpmiBoardsTest, BoardsBehindOneController_HaveSensorsOfTheirOwnWhereverTheirRecordsAre) {
    const std::map<std::uint8_t, Records_e> places{
        {0x82, Records_e::shared_repository}, {0x84, Records_e::own_repository}, {0x86, Records_e::device_records}};
    SimulatedController first;
    first.sensors = test::SyntheticSensors(6);
    test::SimulatedChassis chassis{.controllers = {first}};
    for (const auto& [address, records] : places) {
        chassis.controllers.push_back(test::Satellite(address, test::SyntheticSensors(5)));
        chassis.controllers.back().records = records;
        chassis.controllers.back().sensors.front().raw = address;
        chassis.controllers.back().firmwareMinor = 0x10;
    }
    IpmiSimulator simulator(chassis);
    const BoardAt icb = test::Icb(simulator);
    StartOn({icb, test::Behind(icb, 0x82, "io/2", "IO2"), test::Behind(icb, 0x84, "io/4", "IO4"),
             test::Behind(icb, 0x86, "io/6", "IO6")});

    for (const std::string number : {"2", "4", "6"}) {
        SCOPED_TRACE(number);
        const auto address = static_cast<std::uint8_t>(0x80 + std::stoi(number));
        const std::string board = "boards/IO" + number;
        EXPECT_EQ(Ask({"ls", board + "/sensors"}), "ID_1\nID_2\nID_3\nID_4\nID_5\n");
        EXPECT_EQ(Get(board + "/sensors/ID_1/value"), std::to_string(address));
        EXPECT_EQ(Ask({"get", board + "/sensors/ID_2/value", board + "/sensors/ID_2/lnr", board + "/sensors/ID_1/hc"}),
                  "-3\n-20\n90\n");
        EXPECT_EQ(Get(board + "/board_info/fw_revision"), "210");
        simulator.SetRaw(address, 1, 77);
        EXPECT_EQ(Get(board + "/sensors/ID_1/value"), "77");
    }
    EXPECT_EQ(Ask({"ls", "boards/ICB/sensors"}), "ID_1\nID_2\nID_3\nID_4\nID_5\nID_6\n");
    EXPECT_EQ(Get("boards/ICB/sensors/ID_1/value"), "40");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Complaints(), ElementsAre());
    EXPECT_THAT(Messages(), testing::Contains(Answers(icb, "boards icb/0, io/2, io/4, io/6"))) << "one session";
}

TEST_F(IpmiBoardsTest, CipherSuite_IsTheConfiguredOne) {
    const IpmiSimulator icb;
    const IpmiSimulator io;
    ASSERT_TRUE(icb.HasCipherSuite17());
    BoardAt weak = test::Io(1, io);
    weak.cipherSuite = 3;
    const std::vector<BoardAt> boards{test::Icb(icb), weak};
    StartOn(boards);
    EXPECT_EQ(Ask({"get", "boards/ICB/board_info/status", "boards/IO1/board_info/status"}), "ok\nok\n");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Messages(), testing::IsSupersetOf({Answers(boards[0], "board icb/0"), Answers(weak, "board io/1")}));
}

TEST_F(IpmiBoardsTest, WrongPassword_IsToldAndKeepsNobodyElseFromWorking) {
    const IpmiSimulator icb;
    const IpmiSimulator io;
    ConfigureBoards({test::Icb(icb), test::Io(1, io)});
    const std::string password = m_folder.Path("password-" + std::to_string(io.GetPort()));
    test::WriteFile(password, "not-the-password\n");
    StartTraced();
    AwaitReports();
    EXPECT_EQ(Get("boards/ICB/board_info/status"), "ok");
    EXPECT_THAT(Complaints(),
                testing::Contains(testing::StartsWith("WARNING  Controller 127.0.0.1:" + std::to_string(io.GetPort()) +
                                                      " refuses the session: ")));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), Not(HasSubstr("not-the-password")));
}

TEST_F(IpmiBoardsTest, PasswordOfTheServiceManager_OpensTheSessionAndStandsNowhere) {
    const IpmiSimulator simulator;
    ConfigureBoards({test::Icb(simulator)});
    const std::string password = "password-" + std::to_string(simulator.GetPort());
    std::filesystem::create_directory(m_folder.Path("credentials"));
    std::filesystem::rename(m_folder.Path(password), m_folder.Path("credentials/icb"));
    const std::string config = m_folder.Path("config.xml");
    test::WriteFile(config,
                    With(test::ReadFile(config), "password-file='" + password + "'", "password-credential='icb'"));
    Start({"--trace-level", "4"}, {{"CREDENTIALS_DIRECTORY", m_folder.Path("credentials")}});
    AwaitReports();
    EXPECT_EQ(Get("boards/ICB/board_info/status"), "ok");
    EXPECT_EQ(Stop(), 0);
    for (const char* file : {"log/zelkor-platformd.log", "log/zelkor-platformd.trace", "out", "err"}) {
        EXPECT_THAT(test::ReadFile(m_folder.Path(file)), Not(HasSubstr("simulated-password"))) << file;
    }
}

TEST_F(IpmiBoardsTest, LocalInterfaceThatIsNotThere_IsToldAndTheOtherBoardsWork) {
    const IpmiSimulator simulator;
    ConfigureBoards({test::Icb(simulator)});
    const std::string config = m_folder.Path("config.xml");
    const std::string device = m_folder.Path("ipmi0");
    test::WriteFile(config, With(test::ReadFile(config), "</boards>",
                                 "<board uri='os/0' type='os' name='HOST' device='" + device + "'/>\n</boards>"));
    StartTraced();
    AwaitReports();
    EXPECT_EQ(Get("boards/ICB/board_info/status"), "ok");
    EXPECT_EQ(Stop(), 0);
    const auto complaints = Complaints();
    EXPECT_EQ(std::count_if(complaints.begin(), complaints.end(),
                            [&](const std::string& complaint) {
                                return complaint.find("WARNING  Controller " + device + " cannot be reached: ") == 0;
                            }),
              1)
        << Log();
}

TEST_F(IpmiBoardsTest, AccountOfAUser_ReadsEverythingAndIsRefusedTheRest) {
    SimulatedController controller;
    controller.users = {{"reader", "simulated-password", "user"}};
    controller.sensors = test::SyntheticSensors(6);
    controller.sensors.front().raw = 101;  // beyond its upper non-recoverable limit
    const IpmiSimulator icb;
    const IpmiSimulator io({.controllers = {controller}});
    BoardAt board = test::Io(1, io);
    board.privilege = "user";
    StartOn({board, test::Icb(icb)}, Only("<monitor><frequency>1</frequency></monitor>\n"
                                          "<damage_protection><frequency>60</frequency></damage_protection>\n"
                                          "<timesync><frequency>60</frequency></timesync>\n"));
    EXPECT_EQ(Ask({"get", "boards/IO1/sensors/ID_1/value", "boards/IO1/sensors/ID_1/hnr",
                   "boards/IO1/board_info/power_status"}),
              "101\n100\non\n");
    const std::string refused = "0xD4 (insufficient privilege level)";
    EXPECT_TRUE(AwaitLog(
        "ERROR    Problem accessing sensor id: 1 on board io_1. Exception: io/1: Chassis Control: " + refused + "\n"));
    EXPECT_TRUE(AwaitLog("ERROR    Problem in time synchronization process - io/1: Set SEL Time: " + refused + "\n"));
    EXPECT_TRUE(AwaitLog("WARNING  Sensor value is above HNR (id = io_1[1]:Temp 1; value = 101 degrees C; HNR = 100)"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_TRUE(io.IsPowerOn());
    EXPECT_EQ(io.CountWrites(test::c_bmc, test::c_chassisControl), 0U);
    EXPECT_EQ(io.CountWrites(test::c_bmc, test::c_setSelTime), 0U);
}

/// The example's controllers are elsewhere: here nobody answers at their addresses, which is all there is to say.
TEST_F(IpmiBoardsTest, CheckConfig_FindsNothingWrongWithTheExampleOnceItsPasswordsAreThere) {
    std::string example = test::ReadFile(std::string(ZELKOR_EXAMPLES) + "/config/ipmi.xml");
    for (std::size_t at = example.find("10.0.0."); at != std::string::npos; at = example.find("10.0.0.", at)) {
        example.replace(at, 3, "127.");
    }
    for (const std::string device = "/dev/ipmi0"; example.find("\"" + device) != std::string::npos;) {
        example.replace(example.find("\"" + device) + 1, device.size(), m_folder.Path("no-device"));
    }
    test::WriteFile(m_folder.Path("config.xml"), example);
    const auto check = [this] {
        return test::RunProgram(Command({"--check-config"}), {{"CREDENTIALS_DIRECTORY", m_folder.Path()}});
    };
    const test::Result without = check();
    EXPECT_EQ(without.status, 1);
    EXPECT_THAT(without.output + without.error, HasSubstr("config.xml:"));
    EXPECT_THAT(without.output + without.error, HasSubstr(m_folder.Path("io1.pass")));
    for (const char* file : {"io1.pass", "icb.pass", "io3"}) {
        test::WriteFile(m_folder.Path(file), "a-password\n");
        ASSERT_EQ(::chmod(m_folder.Path(file).c_str(), S_IRUSR | S_IWUSR), 0);
    }
    const test::Result with = check();
    EXPECT_EQ(with.status, 0) << with.output << with.error;
    EXPECT_EQ(with.error, "");
    std::istringstream lines(with.output);
    int boards = 0;
    for (std::string line; std::getline(lines, line); ++boards) {
        EXPECT_THAT(line, HasSubstr(": warning: board "));
        EXPECT_THAT(line, HasSubstr(" does not answer, nothing is proved of its sensors: "));
    }
    EXPECT_EQ(boards, 5);
    EXPECT_THAT(with.output, Not(HasSubstr("a-password")));
    ASSERT_EQ(::chmod(m_folder.Path("icb.pass").c_str(), S_IRUSR | S_IWUSR | S_IROTH), 0);
    const test::Result open = check();
    EXPECT_EQ(open.status, 1);
    EXPECT_THAT(open.output + open.error, HasSubstr(m_folder.Path("icb.pass")));
    EXPECT_THAT(open.output + open.error, Not(HasSubstr("a-password")));
}

TEST_F(IpmiBoardsTest, CheckConfig_ReadsWhatTheServiceKeepsAndKeepsNothing) {
    const IpmiSimulator icb(test::WithSensors(3));
    ConfigureBoards({test::Icb(icb)}, "<monitor><sensors>\n<include>99</include></sensors></monitor>\n");
    const std::string finding = ":6: error: <include>: no board has a sensor 99\n";
    EXPECT_EQ(test::RunProgram(Command({"--check-config"})).output, m_folder.Path("config.xml") + finding);
    EXPECT_FALSE(test::Exists(m_folder.Path("cache")));
    StartOn({test::Icb(icb)});
    EXPECT_EQ(Stop(), 0);
    const std::string kept = test::ReadFile(m_folder.Path("cache/icb_0.sdr"));
    EXPECT_NE(kept, "");
    const auto written = std::filesystem::last_write_time(m_folder.Path("cache/icb_0.sdr"));
    EXPECT_EQ(test::RunProgram(Command({"--check-config"})).output, "");
    EXPECT_EQ(test::ReadFile(m_folder.Path("cache/icb_0.sdr")), kept);
    EXPECT_EQ(std::filesystem::last_write_time(m_folder.Path("cache/icb_0.sdr")), written);
}

}  // namespace
