// --check-config and --print-schema of the built daemon: what they print, what they leave alone, how long they take.

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using testing::HasSubstr;
using testing::Not;

class CheckConfigTest : public DaemonTest {
protected:
    test::Result Check(const std::map<std::string, std::string>& environment = {}) const {
        return test::RunProgram(Command({"--check-config"}), environment);
    }

    /// Each line with FILE before it.
    std::string At(const std::vector<std::string>& lines) const {
        std::string text;
        for (const std::string& line : lines) {
            text += m_folder.Path("config.xml") + ":" + line + "\n";
        }
        return text;
    }

    std::vector<std::string> FilesLeft() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.Path())) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(CheckConfigTest, EveryFindingInTheOrderOfTheFile) {
    Configure(
        "<temperature_control>\n"
        "<fans>\n"
        "<set lower='40' upper='50' rpm='3000'/>\n"
        "<set lower='55' upper='76' rpm='2900'/>\n"
        "</fans>\n"
        "<sensors><exclude boardType='io'>all</exclude></sensors>\n"
        "</temperature_control>\n"
        "<monitor><sensors>\n"
        "<include board='icb/0'>0x30,3</include>\n"
        "<exclude board='icb/1'>3</exclude>\n"
        "</sensors></monitor>\n"
        "<timesync/>\n");
    const test::Result result = Check();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output,
              At({"6: error: Upper temperature limit is invalid: 76 > 75, the upper non-critical limit of sensor 12 of "
                  "icb/0 (Intake)",
                  "6: error: RPM values are not in sequence: 2900 <= 3000",
                  "6: warning: gap between 50 and 55 degrees: there the fans change between 3000 and 2900 RPM in every "
                  "pass",
                  "8: warning: <exclude>: the chassis has no board of the type \"io\"",
                  "11: error: <include>: board \"icb/0\" has no sensor 0x30",
                  "12: warning: <exclude>: the chassis has no board \"icb/1\"; did you mean \"icb/0\"?",
                  "14: warning: <timesync> is empty and counts as absent"}));
}

TEST_F(CheckConfigTest, ErrorsOfTheRules_KeepItFromTheBoards) {
    Configure("<monitor><frequency>0</frequency><sensors><include board='no/1'>1</include></sensors></monitor>\n");
    const test::Result result = Check();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, At({"3: error: <frequency>: \"0\" is below the limit of 1"}));
}

TEST_F(CheckConfigTest, WhatCannotBePrinted_IsNoSuccess) {
    Configure("<monitor><sensors><exclude board='no/1'>all</exclude></sensors></monitor>\n");
    for (const char* option : {"--check-config", "--print-schema", "--help", "--version"}) {
        std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" >/dev/full", "sh"};
        const std::vector<std::string> words = Command({option});
        command.insert(command.end(), words.begin(), words.end());
        const test::Result result = test::RunProgram(command);
        EXPECT_EQ(result.status, 1) << option;
        EXPECT_EQ(result.error, "zelkor-platformd: Standard output cannot be written\n") << option;
    }
}

TEST_F(CheckConfigTest, WarningsAlone_LeaveStatusZero) {
    Configure("<monitor><sensors><exclude board='no/1'>all</exclude></sensors></monitor>\n");
    const test::Result result = Check();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, At({"3: warning: <exclude>: the chassis has no board \"no/1\""}));
}

TEST_F(CheckConfigTest, FilesThatCannotBeRead_AreErrorsWithTheirPlace) {
    Configure("", "<chassis>\n<oven/>\n</chassis>");
    EXPECT_THAT(Check().output, testing::StartsWith(m_folder.Path("chassis.xml") + ":2: error: "));
    std::filesystem::remove(m_folder.Path("chassis.xml"));
    EXPECT_THAT(Check().output, testing::StartsWith(m_folder.Path("config.xml") + ":2: error: chassis description "));
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor>\n<monitor>\n</zelkor>");
    EXPECT_THAT(Check().output, testing::StartsWith(m_folder.Path("config.xml") + ":3: error: "));
    std::filesystem::remove(m_folder.Path("config.xml"));
    const test::Result result = Check();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, m_folder.Path("config.xml") + ": error: cannot read: No such file or directory\n");
    EXPECT_EQ(result.error, "");
}

TEST_F(CheckConfigTest, BesideARunningDaemon_TakesNothingOfItAndLeavesNothing) {
    Configure("<monitor><frequency>3600</frequency></monitor>\n");
    EXPECT_EQ(Check().status, 0);
    EXPECT_EQ(FilesLeft(), (std::vector<std::string>{"chassis.xml", "config.xml"}));
    Start();
    ASSERT_TRUE(AwaitWorkers());
    const std::string journal = Chassis({"journal"}).output;
    const std::vector<std::string> files = FilesLeft();
    std::vector<std::string> command = Command({"--check-config", "--port", std::to_string(RegistryPort())});
    const test::Result result = test::RunProgram(command);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output + result.error, "");
    EXPECT_EQ(Chassis({"journal"}).output, journal);
    EXPECT_EQ(FilesLeft(), files);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(CheckConfigTest, BoardsThatFail_AreWarnedOf_WritesNothing_AndEndsInTime) {
    Configure(
        "<monitor><sensors>\n<include board='slot/2'>6</include>\n<include "
        "board='os/0'>8</include></sensors></monitor>\n"
        "<temperature_control><fans>\n<set lower='40' upper='400' rpm='3000'/></fans></temperature_control>\n");
    std::vector<std::string> command = Command({"--check-config"});
    command[0] = Program("failing_daemon");
    const auto check = [&](const std::string& failing) {
        return test::RunProgram(command, {{"FAILING_BOARDS", failing}, {"HARDWARE_JOURNAL", m_folder.Path("journal")}});
    };
    const std::string unproved = " does not answer, nothing is proved of its sensors: ";
    const std::string noSensor =
        "4: warning: <include>: whether there is a sensor 6 cannot be proved: no answer from "
        "slot/2";
    const test::Result failed = check("slot/2=fail,os/0=missing");
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.error, "");
    EXPECT_EQ(failed.output,
              At({"2: warning: board os/0" + unproved + "it is not there",
                  "2: warning: board slot/2" + unproved + "the bus is stuck", noSensor,
                  "5: warning: <include>: whether there is a sensor 8 cannot be proved: no answer from os/0",
                  "7: error: Upper temperature limit is invalid: 400 > 75, the upper non-critical limit of sensor 12 "
                  "of icb/0 (Intake)",
                  "7: error: up to 400 degrees the fans may run at 3000 RPM, but sensor 12 of icb/0 (Intake) is past "
                  "its upper critical limit above 85"}));

    const auto begin = std::chrono::steady_clock::now();
    const test::Result slow = check("icb/0=slow,slot/2=slow,os/0=slow");
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_EQ(slow.status, 0) << slow.output;
    EXPECT_THAT(slow.output, HasSubstr("warning: board icb/0" + unproved + "it takes too long\n"));
    EXPECT_THAT(slow.output, HasSubstr("warning: board slot/2" + unproved + "it takes too long\n"));
    EXPECT_THAT(slow.output, HasSubstr(noSensor));
    EXPECT_GT(took, std::chrono::seconds(14));
    EXPECT_LT(took, std::chrono::seconds(90)) << "an access takes an hour";
    EXPECT_EQ(test::ReadFile(m_folder.Path("journal")), "") << "nothing was done to the hardware";
    EXPECT_FALSE(test::Exists(m_folder.Path("log")));
}

/// The programs beside the tests tell what they do to the hardware; so the empty journal above means something.
TEST_F(CheckConfigTest, FailingDaemon_TellsWhatItDoesToTheHardware) {
    Configure("");
    std::vector<std::string> command = Command({"--port", "0"});
    command[0] = Program("failing_daemon");
    m_daemon = std::make_unique<test::Process>(
        command, m_folder.Path("out"), m_folder.Path("err"),
        std::map<std::string, std::string>{{"HARDWARE_JOURNAL", m_folder.Path("journal")}});
    ASSERT_TRUE(AwaitWorkers());
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(test::ReadFile(m_folder.Path("journal")), HasSubstr("icb/0 FpgaSpiWrite\n"));
}

/// Those on a simulated chassis; boards over IPMI have a test of their own. The certificates that one of them names are
/// made as the documentation says.
TEST_F(CheckConfigTest, Examples_AreClean) {
    std::filesystem::copy(ZELKOR_EXAMPLES, m_folder.Path("examples"), std::filesystem::copy_options::recursive);
    const test::Result made =
        test::RunProgram({"/bin/sh", "-c", "cd \"$1\" && exec ../tls/make-certificates localhost 127.0.0.1", "sh",
                          m_folder.Path("examples/config")});
    ASSERT_EQ(made.status, 0) << made.error;
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(m_folder.Path("examples/config"))) {
        const std::string file = entry.path().string();
        if (entry.path().extension() != ".xml" || entry.path().stem() == "ipmi") {
            continue;
        }
        ++count;
        const test::Result result = test::RunProgram({Program("zelkor-platformd"), "--check-config", "--config", file});
        EXPECT_EQ(result.status, 0) << file;
        EXPECT_EQ(result.output + result.error, "") << file;
    }
    EXPECT_GE(count, 5);
}

TEST_F(CheckConfigTest, PrintedSchema_ValidatesTheExamplesWithXmllint) {
    const std::string xmllint = "/usr/bin/xmllint";
    if (!test::Exists(xmllint)) {
        GTEST_SKIP() << "xmllint is not installed";
    }
    const test::Result schema = test::RunProgram({Program("zelkor-platformd"), "--print-schema"});
    EXPECT_EQ(schema.status, 0);
    test::WriteFile(m_folder.Path("z.xsd"), schema.output);
    const auto validate = [&](const std::string& file) {
        return test::RunProgram({xmllint, "--noout", "--nonet", "--schema", m_folder.Path("z.xsd"), file});
    };
    for (const auto& entry : std::filesystem::directory_iterator(ZELKOR_EXAMPLES "/config")) {
        if (entry.path().extension() == ".xml") {
            const test::Result result = validate(entry.path().string());
            EXPECT_EQ(result.status, 0) << result.error;
        }
    }
    test::WriteFile(m_folder.Path("bad.xml"), "<zelkor><monitor><frequency>0</frequency></monitor></zelkor>");
    EXPECT_NE(validate(m_folder.Path("bad.xml")).status, 0);
}

}  // namespace
