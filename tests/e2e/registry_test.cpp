// The registry of the running daemon, seen through the tool.

#include "registry_fixture.h"

namespace {

using test::Lines;
using test::RegistryTest;
using test::Result;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

/// Far above what a stop takes, also under a sanitizer, and below what the tool's polls wait.
constexpr std::chrono::seconds c_stopUnderReaders(13);

TEST_F(RegistryTest, TreeHasEveryBoardInTheOrderOfTheChassisAndTheFans) {
    Configure("");
    StartAndAwait();
    EXPECT_THAT(Lines(Ask({"ls"})), ElementsAre("boards", "fans"));
    EXPECT_THAT(Lines(Ask({"ls", "boards"})), ElementsAre("ICB", "host", "slot2"));
    EXPECT_THAT(Lines(Ask({"ls", "boards/ICB"})), ElementsAre("board_info", "sensors"));
    EXPECT_THAT(Lines(Ask({"ls", "boards/ICB/board_info"})),
                ElementsAre("device", "type", "firmware_type", "status", "power_status", "fpga_revision", "red_light",
                            "fw_version", "fw_revision", "fw_flash_id", "ipmi_version"));
    EXPECT_THAT(Lines(Ask({"ls", "boards/ICB/sensors"})), ElementsAre("ID_3", "ID_12"));
    EXPECT_THAT(Lines(Ask({"ls", "boards/ICB/sensors/ID_12"})),
                ElementsAre("value", "name", "hnc", "hc", "hnr", "lnc", "lc", "lnr", "nom", "type", "units"));
    EXPECT_THAT(Lines(Ask({"ls", "fans"})),
                ElementsAre("left_front", "left_middle", "left_rear", "right_front", "right_middle", "right_rear"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, TreeIsLive) {
    Configure("");
    StartAndAwait();
    EXPECT_THAT(Ask({"tree", "boards/ICB/sensors/ID_12"}),
                AllOf(HasSubstr("value = 48\n"), HasSubstr("name = Intake\n"), HasSubstr("hnr = 95\n")));
    ASSERT_EQ(Chassis({"set", "icb/0", "12", "61.25"}).status, 0);
    EXPECT_THAT(Ask({"tree", "boards/ICB/sensors/ID_12"}), HasSubstr("value = 61.25\n"));
    EXPECT_EQ(Ask({"get", "boards/ICB/sensors/ID_12/value"}), "61.25\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, WholeTree_IsNotSpoiledByLeavesThatHaveNoValueOrRaise) {
    Configure("");
    StartAndAwait();
    ASSERT_EQ(Chassis({"invalid", "icb/0", "12"}).status, 0);
    ASSERT_EQ(Chassis({"fail", "slot/2", "bus is stuck"}).status, 0);
    const std::string tree = Ask({"tree"});
    EXPECT_THAT(tree, AllOf(HasSubstr("bus is stuck"), HasSubstr("fw_flash_id"), HasSubstr("right_rear"),
                            HasSubstr("name = CPU\n"), HasSubstr("name = V12\n")));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, Failures_HaveTheStatusThatTellsThemApart) {
    Configure("");
    StartAndAwait();
    ASSERT_EQ(Chassis({"invalid", "icb/0", "12"}).status, 0);
    ExpectFailure({"get", "boards/ICB/sensors/ID_12/value"}, 3, "no value");
    ExpectFailure({"get", "boards/ICB/sensors/ID_13/value"}, 4, "ID_13");
    ExpectFailure({"get", "boards/ICB/board_info/fw_version"}, 1, "Unsupported type: fw_version in method ");
    ExpectFailure({"set", "boards/ICB/sensors/ID_12/hc", "1"}, 1, "Node \"hc\" cannot be written by clients");
    ASSERT_EQ(Chassis({"fail", "icb/0", "bus is stuck"}).status, 0);
    ExpectFailure({"get", "boards/ICB/sensors/ID_3/value"}, 1, "bus is stuck");
    ASSERT_EQ(Chassis({"heal", "icb/0"}).status, 0);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, SettingTheFans_DrivesAllSixRegisters) {
    Configure("");
    StartAndAwait();
    ASSERT_TRUE(AwaitWorkers());
    EXPECT_EQ(Ask({"set", "fans", "4000"}), "");
    EXPECT_THAT(FanRegisters(), testing::Each(AllOf(HasSubstr("483"))));
    EXPECT_EQ(Ask({"set", "fans/left_rear", "2000"}), "");
    EXPECT_THAT(FanRegisters().at(2), HasSubstr("967"));
    EXPECT_THAT(FanRegisters().at(3), HasSubstr("483"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, FanSpeedThatIsRefused_SaysWhyAndChangesNothing) {
    Configure("");
    StartAndAwait();
    ASSERT_TRUE(AwaitWorkers());
    const std::vector<std::string> before = FanRegisters();
    ExpectFailure({"set", "fans", "20"}, 1, "Too high rpm value: 20\n");
    ExpectFailure({"set", "fans", "-100"}, 1, "Too high rpm value: -100\n");
    ExpectFailure({"set", "fans", "29.5"}, 1, "Too high rpm value: 29.5\n");
    ExpectFailure({"set", "fans", "abc"}, 1, "bad lexical cast");
    EXPECT_EQ(FanRegisters(), before);
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, WithoutChassisController_TheFansAreThereButRaise) {
    Configure("", "<chassis><board uri='io/1' type='io' name='IO1'/></chassis>");
    StartAndAwait();
    EXPECT_THAT(Log(), HasSubstr("Fans node: ICB board was not found."));
    EXPECT_EQ(Ask({"ls", "fans"}), "");
    ExpectFailure({"get", "fans"}, 1, "bad_weak_ptr");
    ExpectFailure({"set", "fans", "3000"}, 1, "bad_weak_ptr");
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1);  // nor could they be left at maximum speed
}

TEST_F(RegistryTest, Crossing_IsToldToWhoWatchesWithinAPass) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    ASSERT_TRUE(AwaitLog("Monitor settings:"));
    test::Process watch(RegistryCommand({"watch", "boards/ICB", "--count", "1", "--timeout", "90"}),
                        m_folder.Path("watch"), m_folder.Path("watch-err"));
    // The tool subscribes at its own pace: the reading stays beyond the limit, which is told again every pass.
    ASSERT_EQ(Chassis({"set", "icb/0", "12", "76.5"}).status, 0);
    EXPECT_EQ(watch.Wait(), 0) << test::ReadFile(m_folder.Path("watch-err"));
    EXPECT_THAT(test::ReadFile(m_folder.Path("watch")),
                testing::ContainsRegex("^[0-9/]+ [0-9:.]+ boards/ICB/sensors/ID_12/hnc threshold 76.5\n$"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, PortInUse_IsRefusedBeforeAWorkerStarts) {
    Configure("");
    StartAndAwait();
    const std::string port = std::to_string(RegistryPort());
    test::TempFolder other;  // its own, because the control socket is taken, too
    test::WriteFile(other.Path("chassis.xml"), c_chassis);
    test::WriteFile(other.Path("config.xml"), "<zelkor><boards backend='sim' chassis='chassis.xml'/></zelkor>");
    const Result second = test::RunProgram({Program("zelkor-platformd"), "--config", other.Path("config.xml"),
                                            "--log-dir", other.Path("log"), "--port", port});
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(Lines(second.error).size(), 1U) << second.error;
    EXPECT_THAT(second.error, AllOf(HasSubstr(port), HasSubstr("in use")));
    EXPECT_THAT(test::ReadFile(other.Path("log/zelkor-platformd.log")),
                testing::Not(testing::AnyOf(HasSubstr("started"), HasSubstr("Monitor settings"))));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, OnlyWhoMayWrite_Writes) {
    Configure("<registry><write from='10.0.0.0/8'/></registry>\n");
    StartAndAwait();
    ASSERT_TRUE(AwaitWorkers());
    const std::vector<std::string> before = FanRegisters();
    ExpectFailure({"set", "fans", "4000"}, 1, "127.0.0.1");
    EXPECT_EQ(FanRegisters(), before);
    EXPECT_THAT(Log(), HasSubstr("Refused to write fans = 4000 for 127.0.0.1, which may not write"));
    EXPECT_EQ(Registry({"get", "fans"}).status, 0) << "reading is free";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, ClientBeyondTheMost_IsRefusedAndBothSidesSayWhy) {
    Configure("<registry connections='1'/>\n" + std::string(c_recordEverySecond));
    StartAndAwait();
    ASSERT_EQ(Chassis({"set", "icb/0", "12", "76.5"}).status, 0);
    // A file that was open for a moment when the server began to count leaves room for one more.
    std::vector<std::unique_ptr<test::Process>> watchers;
    do {
        const std::string name = m_folder.Path("watch" + std::to_string(watchers.size()));
        watchers.push_back(std::make_unique<test::Process>(RegistryCommand({"watch"}), name, name + "-err"));
        ASSERT_TRUE(Await([&] { return !test::ReadFile(name).empty(); })) << test::ReadFile(name + "-err");
    } while (watchers.size() < 4 && Registry({"ls"}).status == 0);
    ExpectFailure({"ls"}, 2, "as many clients as it may have");
    EXPECT_THAT(Log(), HasSubstr("Refused a connection from 127.0.0.1: there are as many connections as the registry "
                                 "server may have"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, BadSection_IsRefusedWithItsLine) {
    m_takesAnyPort = false;
    Configure("<registry port='80000'/>\n");
    ExpectRefusal(Command(), "config.xml:3: ");
    Configure("<registry listen='somewhere'/>\n");
    ExpectRefusal(Command(), "config.xml:3: ");
}

TEST_F(RegistryTest, AddressThatIsNotOurs_IsRefused) {
    Configure("");
    ExpectRefusal(Command({"--listen", "192.0.2.1"}), "192.0.2.1");
}

TEST_F(RegistryTest, Stop_DoesNotWaitForWhoWatches) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    ASSERT_EQ(Chassis({"set", "icb/0", "12", "76.5"}).status, 0);  // told again every pass
    std::vector<std::unique_ptr<test::Process>> watchers;
    for (int index = 0; index < 5; ++index) {
        const std::string name = "watch" + std::to_string(index);
        watchers.push_back(std::make_unique<test::Process>(RegistryCommand({"watch"}), m_folder.Path(name),
                                                           m_folder.Path(name + "-err")));
    }
    for (int index = 0; index < 5; ++index) {
        const std::string name = m_folder.Path("watch" + std::to_string(index));
        ASSERT_TRUE(Await([&] { return !test::ReadFile(name).empty(); })) << test::ReadFile(name + "-err");
    }
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, c_stopUnderReaders);
    for (const auto& watcher : watchers) {
        EXPECT_EQ(watcher->Wait(), 2) << "no server any more";
    }
}

TEST_F(RegistryTest, WatcherThatIsKilled_CostsTheOthersNothing) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    ASSERT_EQ(Chassis({"set", "icb/0", "12", "76.5"}).status, 0);
    {
        test::Process killed(RegistryCommand({"watch"}), m_folder.Path("killed"), m_folder.Path("killed-err"));
        ASSERT_TRUE(Await([&] { return !test::ReadFile(m_folder.Path("killed")).empty(); }));
        killed.Signal(SIGKILL);
        EXPECT_EQ(killed.Wait(), -SIGKILL);
    }
    EXPECT_THAT(Lines(Ask({"watch", "boards/ICB/sensors/ID_12", "--count", "2", "--timeout", "90"})),
                testing::SizeIs(2));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, ClientOfTheTool_WithoutServer_SaysSo) {
    const Result result = test::RunProgram({Program("zelkor-regctl"), "--server", "127.0.0.1:1", "ls"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("127.0.0.1"));
}

}  // namespace
