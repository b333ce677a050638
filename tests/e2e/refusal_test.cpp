// Bad input: one clear line on standard error, status 1, nothing started.

#include <filesystem>

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using testing::HasSubstr;
using testing::Not;

TEST_F(DaemonTest, UnknownOption_IsRefused) {
    Configure("");
    ExpectRefusal(Command({"--frequency", "5"}), "zelkor-platformd: unrecognised option '--frequency'");
    ExpectRefusal(Command({"--con", "x"}), "unrecognised option '--con'");
    ExpectRefusal(Command({"config.xml"}), "unexpected argument \"config.xml\" on the command line");
}

TEST_F(DaemonTest, OptionValueOutOfRange_IsRefused) {
    Configure("");
    ExpectRefusal(Command({"--port", "65536"}), "--port: 65536 is not in the range 0..65535");
    ExpectRefusal(Command({"--port", "-1"}), "--port: -1 is not in the range 0..65535");
    ExpectRefusal(Command({"--port", "http"}), "--port");
    ExpectRefusal(Command({"--trace-level", "5"}), "--trace-level: 5 is not in the range 0..4");
    ExpectRefusal(Command({"--listen", "everywhere"}), "--listen: \"everywhere\" is not an IPv4 or IPv6 address");
}

TEST_F(DaemonTest, ConfigurationThatCannotBeRead_IsRefused) {
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ": cannot read: No such file or directory");
    std::filesystem::create_directory(m_folder.Path("config.xml"));
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ": cannot read: Is a directory");
}

TEST_F(DaemonTest, MalformedConfiguration_IsRefusedWithItsLine) {
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor>\n<monitor>\n</zelkor>\n");
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ":3: ");
    test::WriteFile(m_folder.Path("config.xml"), "<settings/>");
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ":1: root element is <settings>, not <zelkor>");
    test::WriteFile(m_folder.Path("config.xml"), "");
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ":1: ");
}

TEST_F(DaemonTest, ExternalEntity_IsRefusedAndNeverLoaded) {
    test::WriteFile(m_folder.Path("secret"), "17");
    test::WriteFile(m_folder.Path("config.xml"),
                    "<!DOCTYPE zelkor [<!ENTITY e SYSTEM '" + m_folder.Path("secret") +
                        "'>]>\n<zelkor><monitor><frequency>&e;</frequency></monitor></zelkor>");
    ExpectRefusal(Command(), "external entity is not loaded: ");
}

TEST_F(DaemonTest, BoardsSection_IsProvedBeforeAnythingStarts) {
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor>\n<boards backend='smoke'/></zelkor>");
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ":2: unknown backend \"smoke\" (known: sim, ipmi)");
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor><boards backend='sim'/>\n<boards backend='sim'/></zelkor>");
    ExpectRefusal(Command(), m_folder.Path("config.xml") + ":2: second <boards> section; there may be one only");
}

TEST_F(DaemonTest, ChassisDescriptionThatIsWrong_IsRefusedWithItsLine) {
    Configure("", "<chassis>\n<oven/>\n</chassis>");
    ExpectRefusal(Command(), m_folder.Path("chassis.xml") + ":2: ");
    Configure("", "<chassis>\n<board uri='io/1' type='io'>\n<sensor id='1' value='1O'/></board></chassis>");
    ExpectRefusal(Command(), m_folder.Path("chassis.xml") + ":3: ");
    std::filesystem::remove(m_folder.Path("chassis.xml"));
    ExpectRefusal(Command(), "chassis.xml");
}

TEST_F(DaemonTest, LogFolderThatCannotBeWritten_IsRefused) {
    Configure("");
    test::WriteFile(m_folder.Path("log"), "a file where the folder should be");
    const test::Result result = test::RunProgram(Command());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("Cannot create log folder " + m_folder.Path("log")));
    EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 1);
    EXPECT_THAT(result.error, Not(HasSubstr("started")));
}

TEST_F(DaemonTest, ControlSocketPathTooLong_IsRefused) {
    test::WriteFile(m_folder.Path("chassis.xml"), c_chassis);
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor>\n<boards backend='sim' chassis='chassis.xml' control='" +
                                                     std::string(200, 'x') + "'/></zelkor>");
    ExpectRefusal(Command(), "control");
}

TEST_F(DaemonTest, ControlSocketInUse_IsRefused) {
    Configure("");
    StartAndAwait();
    const test::Result second = test::RunProgram(
        {Program("zelkor-platformd"), "--config", m_folder.Path("config.xml"), "--log-dir", m_folder.Path("log2")});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.error, HasSubstr(m_folder.Path("chassis.sock")));
    EXPECT_EQ(std::count(second.error.begin(), second.error.end(), '\n'), 1) << second.error;
    EXPECT_EQ(Chassis({"list"}).status, 0);  // the first one is unharmed
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, ControlSocketLeftBehind_IsReplaced) {
    Configure("");
    StartAndAwait();
    m_daemon->Signal(SIGKILL);
    EXPECT_EQ(m_daemon->Wait(), -SIGKILL);
    ASSERT_TRUE(test::Exists(m_folder.Path("chassis.sock")));
    std::filesystem::remove_all(m_folder.Path("log"));
    StartAndAwait();
    EXPECT_EQ(Chassis({"list"}).status, 0);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, PidFileLocked_IsRefusedAndNamesTheHolder) {
    Configure("");
    const std::string pidFile = m_folder.Path("pid");
    Start({"--pid-file", pidFile});
    ASSERT_TRUE(AwaitLog("Monitor settings:"));
    EXPECT_EQ(test::ReadFile(pidFile), std::to_string(m_daemon->GetPid()) + "\n");
    const test::Result second = test::RunProgram(Command({"--pid-file", pidFile}));
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.error, HasSubstr("locked by process " + std::to_string(m_daemon->GetPid())));
    EXPECT_EQ(Stop(), 0);
    EXPECT_FALSE(test::Exists(pidFile));
}

TEST_F(DaemonTest, PidFileThatCannotBeWritten_IsRefused) {
    Configure("");
    ExpectRefusal(Command({"--pid-file", m_folder.Path("nowhere/pid")}), "Cannot write pid file");
}

TEST_F(DaemonTest, BadValueInAWorkersSection_LeavesTheDefaultAndIsNotRefused) {
    Configure("<monitor enabled='maybe'><frequency>often</frequency></monitor>");
    StartAndAwait("frequency = 60 seconds");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, HelpAndVersion_AnswerAndLeave) {
    const test::Result help = test::RunProgram({Program("zelkor-platformd"), "--help"});
    EXPECT_EQ(help.status, 0);
    for (const char* option : {"--config", "--log-dir", "--port", "--listen", "--pid-file", "--daemon", "--trace-level",
                               "--check-config", "--print-schema", "--version", "--help"}) {
        EXPECT_THAT(help.output, HasSubstr(option));
    }
    const test::Result version = test::RunProgram({Program("zelkor-platformd"), "--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output, "zelkor-platformd 2.8.167.20437\n");
}

}  // namespace
