// The daemon at work on a chassis that changes.

#include <filesystem>

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;

TEST_F(DaemonTest, CrossingMadeOnTheChassis_IsLoggedWithinAPass) {
    Configure("<monitor><frequency>1</frequency></monitor>");
    StartAndAwait();
    EXPECT_EQ(Chassis({"set", "icb/0", "12", "80"}).status, 0);
    EXPECT_TRUE(AwaitLog("WARNING  Sensor value is above HNC (id = icb_0[12]:Intake; value = 80 C; HNC = 75)"));
    EXPECT_EQ(Chassis({"set", "icb/0", "12", "100"}).status, 0);
    EXPECT_TRUE(AwaitLog("WARNING  Sensor value is above HNR (id = icb_0[12]:Intake; value = 100 C; HNR = 95)"));
    EXPECT_EQ(Chassis({"heal", "icb/0", "12"}).status, 0);
    EXPECT_TRUE(AwaitLog("INFO     Sensor value is is back to normal. (id = icb_0[12] - Intake;value = 48 C)"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, ThresholdChangedOnTheChassis_CountsFromTheNextPassOn) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    EXPECT_EQ(Chassis({"set", "slot/2", "5", "50"}).status, 0);
    EXPECT_EQ(Chassis({"limit", "slot/2", "5", "lnc", "45"}).status, 0);
    EXPECT_TRUE(Await([this] {
        return test::ReadFile(m_folder.Path("log/sensors/slot_2.log")).find("] ;50\n") != std::string::npos;
    }));
    EXPECT_EQ(Chassis({"auto", "slot/2", "5"}).status, 0);
    EXPECT_TRUE(AwaitLog("WARNING  Sensor value is below LNC (id = slot_2[5]:Core; value = 40 C; LNC = 45)"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, SensorLogs_GrowByALineABoardAndAPass) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    const auto lines = [this](const char* label) {
        return test::ReadLines(m_folder.Path(std::string("log/sensors/") + label + ".log"));
    };
    ASSERT_TRUE(Await([&] { return lines("slot_2").size() >= 11; }));
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(lines("icb_0")[8], "[TIME];[3]-V12;[12]-Intake");
    EXPECT_EQ(lines("icb_0")[9].substr(25), " ;12;48");
    EXPECT_EQ(lines("icb_0")[4], "* Process name  : zelkor-platformd");
    EXPECT_EQ(lines("icb_0")[2], "* Version       : 2.8.167.20437");
    EXPECT_EQ(lines("os_0")[8], "[TIME];[7]-CPU");
    EXPECT_EQ(lines("slot_2")[8], "[TIME];[5]-Core");
}

TEST_F(DaemonTest, SensorAndBoardFaults_CostThemselvesOnly) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    EXPECT_EQ(Chassis({"fail", "icb/0", "12", "bus stuck"}).status, 0);
    EXPECT_TRUE(AwaitLog("ERROR    Problem accessing sensor id: 12 on board icb_0. Exception: bus stuck"));
    EXPECT_EQ(Chassis({"missing", "icb/0", "12"}).status, 0);
    EXPECT_TRUE(AwaitLog("ERROR    Problem accessing sensor id: 12 on board icb_0\n"));
    EXPECT_EQ(Chassis({"missing", "slot/2"}).status, 0);
    EXPECT_TRUE(AwaitLog("ERROR    Problem accessing board: slot_2"));
    EXPECT_EQ(Chassis({"heal", "slot/2"}).status, 0);
    EXPECT_EQ(Chassis({"heal", "icb/0"}).status, 0);
    const auto before = test::ReadLines(m_folder.Path("log/sensors/os_0.log")).size();
    EXPECT_TRUE(Await([&] { return test::ReadLines(m_folder.Path("log/sensors/os_0.log")).size() > before + 1; }));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(test::ReadFile(m_folder.Path("log/sensors/icb_0.log")), HasSubstr(";12;N/A"));
}

TEST_F(DaemonTest, SensorLogFolderReplacedByAFile_CostsWarningsOnly) {
    Configure(c_recordEverySecond);
    std::filesystem::create_directory(m_folder.Path("log"));
    test::WriteFile(m_folder.Path("log/sensors"), "");
    StartAndAwait();
    const std::string warning =
        "WARNING  Cannot open log file for sensor: " + m_folder.Path("log/sensors/icb_0.log") + "\n";
    ASSERT_TRUE(AwaitLog(warning));
    std::filesystem::remove(m_folder.Path("log/sensors"));
    EXPECT_TRUE(Await([&] { return test::Exists(m_folder.Path("log/sensors/icb_0.log")); }));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, SensorLists_ChooseWhatIsWatched) {
    Configure(
        "<monitor><frequency>60</frequency><sensors><exclude>all</exclude><include board='icb/0'>0xC,7</include>"
        "<include boardType='os'>all</include></sensors></monitor>");
    StartAndAwait("relative filter");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Log(), HasSubstr("Monitoring following sensors\n" + std::string(37, ' ') + "icb/0  (icb)\n" +
                                 std::string(38, ' ') + " 12\n" + std::string(37, ' ') + "os/0  (os)\n" +
                                 std::string(38, ' ') + " 7\n" + std::string(35, ' ') + "absolute filter"));
}

TEST_F(DaemonTest, SlowBoard_DelaysOnlyWhoAsksIt) {
    Configure("<monitor><frequency>1</frequency></monitor>");
    StartAndAwait();
    EXPECT_EQ(Chassis({"slow", "slot/2", "60000"}).status, 0);
    EXPECT_EQ(Chassis({"list"}).status, 0);  // control is not held up by it
    EXPECT_EQ(Chassis({"heal", "slot/2"}).status, 0);
    EXPECT_EQ(Stop(), 0);  // nor is the stop, once it is healed
}

}  // namespace
