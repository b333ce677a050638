#include <sys/stat.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "tests/support/ipmi/ipmi_simulator.h"
#include "tests/support/ipmi/recorded_machine.h"

// `zelkor-chassisctl import` with a controller: the simulator of Debian's package openipmi.

namespace test {

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* c_noWorkers =
    "<monitor enabled='false'/>\n<damage_protection enabled='false'/>\n<temperature_control enabled='false'/>\n"
    "<timesync enabled='false'/>\n";

class ChassisImport : public DaemonTest {
protected:
    /// A file with the password of the simulator's account.
    std::string PasswordFile(const std::string& password = SimulatedUser{}.password) const {
        const std::string path = m_folder.Path("password");
        WriteFile(path, password + "\n");
        EXPECT_EQ(::chmod(path.c_str(), S_IRUSR | S_IWUSR), 0);
        return path;
    }

    std::vector<std::string> ImportCommand(std::uint16_t port, const std::vector<std::string>& options = {}) const {
        std::vector<std::string> command{Program("zelkor-chassisctl"),
                                         "import",
                                         "--host",
                                         "127.0.0.1",
                                         "--port",
                                         std::to_string(port),
                                         "--user",
                                         "operator",
                                         "--cipher",
                                         "3",
                                         "--password-file",
                                         PasswordFile(),
                                         "--privilege",
                                         "user"};
        command.insert(command.end(), options.begin(), options.end());
        return command;
    }

    Result Import(const IpmiSimulator& simulator, const std::vector<std::string>& options = {}) const {
        return RunProgram(ImportCommand(simulator.GetPort(), options));
    }

    /// What the registry shows of the sensors of @p boards, from a daemon on the configured chassis.
    std::string ShownOf(const std::vector<std::string>& boards) {
        std::filesystem::remove_all(m_folder.Path("log"));
        Start();
        std::string shown;
        for (const std::string& board : boards) {
            const Result tree = Registry({"tree", "boards/" + board + "/sensors"});
            EXPECT_EQ(tree.status, 0) << tree.error;
            shown += tree.output;
        }
        m_daemon.reset();
        return shown;
    }

    /// As above, from a daemon that asks @p simulator. @param ipmb address of each board
    std::string ShownOfControllers(const IpmiSimulator& simulator, const std::vector<std::string>& boards,
                                   const std::vector<std::string>& ipmb) {
        std::string text = "<zelkor>\n<boards backend='ipmi' cache='none'>\n";
        for (std::size_t i = 0; i < boards.size(); ++i) {
            text += "<board uri='io/" + std::to_string(i + 1) + "' type='io' name='" + boards[i] +
                    "' host='127.0.0.1' port='" + std::to_string(simulator.GetPort()) +
                    "' user='operator' cipher='3' password-file='" + PasswordFile() + "' ipmb='" + ipmb[i] + "'/>\n";
        }
        WriteFile(m_folder.Path("config.xml"), text + "</boards>\n" + c_noWorkers + "</zelkor>\n");
        return ShownOf(boards);
    }

    /// As above, from a daemon on the simulated chassis with the boards that were imported.
    std::string ShownOfChassis(const std::string& imported, const std::vector<std::string>& boards) {
        Configure(c_noWorkers, "<chassis>\n" + imported + "</chassis>\n");
        return ShownOf(boards);
    }
};

class ChassisImportOfRecording : public ChassisImport, public testing::WithParamInterface<const char*> {};

TEST_P(ChassisImportOfRecording, SimulatedChassis_ShowsWhatTheControllerShows) {
    SimulatedChassis chassis;
    chassis.controllers[0].sensors = RecordedSensors(GetParam());
    const std::size_t count = chassis.controllers[0].sensors.size();
    const IpmiSimulator simulator(chassis);
    const Result imported = Import(simulator, {"--name", "IO1"});
    ASSERT_EQ(imported.status, 0) << imported.error;
    EXPECT_THAT(imported.output, StartsWith("  <board uri=\"io/1\" type=\"io\" name=\"IO1\">\n"));
    EXPECT_THAT(imported.error, HasSubstr(": " + std::to_string(count) + " sensors, "));
    const std::string shown = ShownOfControllers(simulator, {"IO1"}, {"0x20"});
    EXPECT_THAT(shown, HasSubstr("ID_" + std::to_string(count)));
    EXPECT_EQ(ShownOfChassis(imported.output, {"IO1"}), shown);
}

INSTANTIATE_TEST_SUITE_P(Machines, ChassisImportOfRecording,
                         testing::Values("04-supermicro-x8", "13-intel-s2600-standby", "41-v-intel-bb"),
                         [](const auto& machine) {
                             std::string name = machine.param;
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });

TEST_F(ChassisImport, BoardsBehindTheController_AreBoardsOfTheirOwn) {
    SimulatedChassis chassis;
    chassis.controllers[0].sensors = SyntheticSensors(8);
    chassis.controllers.push_back(Satellite(0x82, SyntheticSensors(4)));
    chassis.controllers.push_back(Satellite(0x84, SyntheticSensors(6)));
    const IpmiSimulator simulator(chassis);
    const Result imported = Import(simulator, {"--name", "IO", "--ipmb", "0x20", "--ipmb", "0x84", "--ipmb", "130"});
    ASSERT_EQ(imported.status, 0) << imported.error;
    EXPECT_THAT(imported.output, HasSubstr("<board uri=\"io/1\" type=\"io\" name=\"IO-0x20\">"));
    EXPECT_THAT(imported.output, HasSubstr("<board uri=\"io/2\" type=\"io\" name=\"IO-0x84\">"));
    EXPECT_THAT(imported.output, HasSubstr("<board uri=\"io/3\" type=\"io\" name=\"IO-130\">"));
    const std::vector<std::string> names{"IO-0x20", "IO-0x84", "IO-130"};
    EXPECT_EQ(ShownOfChassis(imported.output, names), ShownOfControllers(simulator, names, {"0x20", "0x84", "0x82"}));
}

TEST_F(ChassisImport, ReadingThatIsNotAvailable_IsWrittenSoAndCounted) {
    SimulatedChassis chassis;
    chassis.controllers[0].sensors = SyntheticSensors(3);
    chassis.controllers[0].sensors[1].isUnavailable = true;
    const IpmiSimulator simulator(chassis);
    const Result imported = Import(simulator);
    ASSERT_EQ(imported.status, 0) << imported.error;
    const std::string place = "127.0.0.1:" + std::to_string(simulator.GetPort());
    EXPECT_EQ(imported.error, place + ": 3 sensors, 1 without a reading\n");
    EXPECT_THAT(imported.output, testing::ContainsRegex("<sensor id=\"2\" [^>]* value=\"na\""));
    EXPECT_THAT(imported.output, HasSubstr("name=\"127.0.0.1\""));
}

TEST_F(ChassisImport, SensorThatRaises_IsNamedAndTakenAsNotAvailable) {
    SimulatedChassis chassis;
    chassis.controllers[0].sensors = SyntheticSensors(3);
    IpmiSimulator simulator(chassis);
    simulator.SetSensorCompletionCode(0x20, 3, 0xff);
    const Result imported = Import(simulator);
    ASSERT_EQ(imported.status, 0) << imported.error;
    EXPECT_THAT(imported.error, HasSubstr("0xFF"));
    EXPECT_THAT(imported.error, HasSubstr("sensor 3 ("));
    EXPECT_THAT(imported.error, HasSubstr("taken as not available\n"));
    EXPECT_THAT(imported.output, testing::ContainsRegex("<sensor id=\"3\" [^>]* value=\"na\""));
}

TEST_F(ChassisImport, Live_ReadingsMove) {
    SimulatedChassis chassis;
    chassis.controllers[0].sensors = SyntheticSensors(2);
    const IpmiSimulator simulator(chassis);
    const Result imported = Import(simulator, {"--live", "2"});
    ASSERT_EQ(imported.status, 0) << imported.error;
    EXPECT_THAT(imported.output, testing::ContainsRegex("<(thermal|wave) "));
}

TEST_F(ChassisImport, NobodyAnswers_Status2AndOneLine) {
    IpmiSimulator simulator;
    const std::uint16_t port = simulator.GetPort();
    simulator.Freeze();
    const Result silent = RunProgram(ImportCommand(port, {"--timeout", "100"}));
    EXPECT_EQ(silent.status, 2);
    EXPECT_THAT(silent.output, IsEmpty());
    EXPECT_THAT(silent.error, StartsWith("zelkor-chassisctl: io/1 (127.0.0.1:" + std::to_string(port) + "): "));
    EXPECT_EQ(std::count(silent.error.begin(), silent.error.end(), '\n'), 1) << silent.error;
}

TEST_F(ChassisImport, BoardThatDoesNotAnswer_Status2AndNothingOfTheOthers) {
    SimulatedChassis chassis;
    chassis.controllers[0].sensors = SyntheticSensors(2);
    chassis.controllers.push_back(Satellite(0x82, SyntheticSensors(2)));
    IpmiSimulator simulator(chassis);
    simulator.SetPresent(0x82, false);
    const Result imported = Import(simulator, {"--ipmb", "0x20", "--ipmb", "0x82", "--timeout", "200"});
    EXPECT_EQ(imported.status, 2);
    EXPECT_THAT(imported.output, IsEmpty());
    EXPECT_THAT(imported.error, HasSubstr(", IPMB 0x82): "));
}

TEST_F(ChassisImport, WrongPassword_Status2AndNeverThePassword) {
    const IpmiSimulator simulator;
    auto command = ImportCommand(simulator.GetPort());
    PasswordFile("another-password");
    const Result refused = RunProgram(command);
    EXPECT_EQ(refused.status, 2);
    EXPECT_THAT(refused.output, IsEmpty());
    EXPECT_THAT(refused.error, HasSubstr("refused"));
    EXPECT_THAT(refused.error, testing::Not(HasSubstr("another-password")));
}

TEST_F(ChassisImport, ControllerWithoutSensors_Status1) {
    const IpmiSimulator simulator;
    const Result imported = Import(simulator);
    EXPECT_EQ(imported.status, 1);
    EXPECT_THAT(imported.output, IsEmpty());
    EXPECT_THAT(imported.error, HasSubstr(": no sensor found\n"));
}

}  // namespace

}  // namespace test
