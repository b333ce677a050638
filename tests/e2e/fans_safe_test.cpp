// --fans-safe: what brings the fans to maximum speed when no daemon does.

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

TEST_F(DaemonTest, FansSafe_SetsTheFansSaysSoAndEnds) {
    Configure("");
    const test::Result result = test::RunProgram(Command({"--fans-safe", "--pid-file", m_folder.Path("pid")}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.error, EndsWith("INFO     All fans are set to 6500 RPM.\n"));
    EXPECT_THAT(Messages(), ElementsAre("INFO     All fans are set to 6500 RPM."));
    EXPECT_FALSE(test::Exists(m_folder.Path("chassis.sock")));
    EXPECT_FALSE(test::Exists(m_folder.Path("pid")));
    EXPECT_FALSE(test::Exists(m_folder.Path("log/sensors")));
}

TEST_F(DaemonTest, FansSafe_WithoutAChassisControllerOrItsFans_SaysWhatIsMissing) {
    Configure("", "<chassis><board uri='io/1' type='io'/></chassis>");
    test::Result result = test::RunProgram(Command({"--fans-safe"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error,
                EndsWith("ERROR    The fans are not set to 6500 RPM: no chassis controller can be reached\n"));

    Configure("", "<chassis><board uri='icb/0' type='icb'/></chassis>");
    result = test::RunProgram(Command({"--fans-safe"}));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.error, HasSubstr("ERROR    Not all fans are at 6500 RPM: left_front cannot be read back; "));
    EXPECT_EQ(std::count(result.error.begin(), result.error.end(), '\n'), 1) << result.error;
    EXPECT_THAT(Messages().back(), EndsWith("right_rear cannot be read back"));
}

TEST_F(DaemonTest, FansSafe_RefusesWhatTheDaemonRefuses) {
    ExpectRefusal(Command({"--fans-safe"}), m_folder.Path("config.xml") + ": cannot read: No such file or directory");
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor>\n<monitor>\n</zelkor>\n");
    ExpectRefusal(Command({"--fans-safe"}), m_folder.Path("config.xml") + ":3: ");
    Configure("", "<chassis>\n<oven/>\n</chassis>");
    ExpectRefusal(Command({"--fans-safe"}), m_folder.Path("chassis.xml") + ":2: ");
    Configure("");
    ExpectRefusal(Command({"--fans-safe", "--daemon"}), "--fans-safe and --daemon exclude each other");
    ExpectRefusal(Command({"--fans-safe", "--check-config"}), "--fans-safe and --check-config exclude each other");
}

TEST_F(DaemonTest, FansSafe_WithoutALogFile_SetsTheFansAllTheSame) {
    Configure("");
    test::WriteFile(m_folder.Path("log"), "a file where the folder should be");
    const test::Result result = test::RunProgram(Command({"--fans-safe"}));
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.error, HasSubstr("WARNING  Cannot create log folder " + m_folder.Path("log")));
    EXPECT_THAT(result.error, EndsWith("INFO     All fans are set to 6500 RPM.\n"));
}

TEST_F(DaemonTest, FansSafe_BesideARunningDaemon_DisturbsNothing) {
    Configure("<monitor><frequency>60</frequency></monitor>");
    const std::string pidFile = m_folder.Path("pid");
    Start({"--pid-file", pidFile});
    const int port = RegistryPort();
    ASSERT_GT(port, 0);
    const std::string pid = test::ReadFile(pidFile);

    // Its own port, pid file and control socket are all taken by the daemon.
    const test::Result result =
        test::RunProgram({Program("zelkor-platformd"), "--config", m_folder.Path("config.xml"), "--log-dir",
                          m_folder.Path("log"), "--port", std::to_string(port), "--pid-file", pidFile, "--fans-safe"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_TRUE(AwaitLog("All fans are set to 6500 RPM.")) << "both write to one log";

    EXPECT_EQ(Chassis({"list"}).status, 0);
    EXPECT_EQ(Registry({"get", "boards/slot2/sensors/ID_5/value"}).output, "40\n");
    EXPECT_EQ(test::ReadFile(pidFile), pid);
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), HasSubstr("***Platform daemon is stopping."));
}

}  // namespace
