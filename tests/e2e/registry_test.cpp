// The registry of the running daemon, seen through the tool.

#include <atomic>
#include <mutex>

#include "workers_fixture.h"

namespace {

using test::Result;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

/// Far above what a stop takes, also under a sanitizer, and far below what a poll may wait.
constexpr std::chrono::seconds c_stopLimit(5);

class RegistryTest : public test::WorkersTest {
protected:
    /// The six reference registers of the fan controller.
    std::vector<std::string> FanRegisters() const {
        std::vector<std::string> values;
        for (const char* address : {"0x40", "0x48", "0x50", "0x58", "0x60", "0x68"}) {
            values.push_back(Lines(Chassis({"fpga", "read", address}).output).at(0));
        }
        return values;
    }

    std::string Output(const std::vector<std::string>& words) const {
        const Result result = Registry(words);
        EXPECT_EQ(result.status, 0) << result.error;
        return result.output;
    }

    /// @p words must fail with @p status and @p error on standard error.
    void ExpectFailure(const std::vector<std::string>& words, int status, const std::string& error) const {
        const Result result = Registry(words);
        EXPECT_EQ(result.status, status) << result.output << result.error;
        EXPECT_THAT(result.error, HasSubstr(error));
    }
};

TEST_F(RegistryTest, TreeHasEveryBoardInTheOrderOfTheChassisAndTheFans) {
    Configure("");
    StartAndAwait();
    EXPECT_THAT(Lines(Output({"ls"})), ElementsAre("boards", "fans"));
    EXPECT_THAT(Lines(Output({"ls", "boards"})), ElementsAre("ICB", "host", "slot2"));
    EXPECT_THAT(Lines(Output({"ls", "boards/ICB"})), ElementsAre("board_info", "sensors"));
    EXPECT_THAT(Lines(Output({"ls", "boards/ICB/board_info"})),
                ElementsAre("device", "type", "firmware_type", "status", "power_status", "fpga_revision", "red_light",
                            "fw_version", "fw_revision", "fw_flash_id", "ipmi_version"));
    EXPECT_THAT(Lines(Output({"ls", "boards/ICB/sensors"})), ElementsAre("ID_3", "ID_12"));
    EXPECT_THAT(Lines(Output({"ls", "boards/ICB/sensors/ID_12"})),
                ElementsAre("value", "name", "hnc", "hc", "hnr", "lnc", "lc", "lnr", "nom", "type", "units"));
    EXPECT_THAT(Lines(Output({"ls", "fans"})),
                ElementsAre("left_front", "left_middle", "left_rear", "right_front", "right_middle", "right_rear"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, TreeIsLive) {
    Configure("");
    StartAndAwait();
    EXPECT_THAT(Output({"tree", "boards/ICB/sensors/ID_12"}),
                AllOf(HasSubstr("value = 48\n"), HasSubstr("name = Intake\n"), HasSubstr("hnr = 95\n")));
    ASSERT_EQ(Chassis({"set", "icb/0", "12", "61.25"}).status, 0);
    EXPECT_THAT(Output({"tree", "boards/ICB/sensors/ID_12"}), HasSubstr("value = 61.25\n"));
    EXPECT_EQ(Output({"get", "boards/ICB/sensors/ID_12/value"}), "61.25\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, WholeTree_IsNotSpoiledByLeavesThatHaveNoValueOrRaise) {
    Configure("");
    StartAndAwait();
    ASSERT_EQ(Chassis({"invalid", "icb/0", "12"}).status, 0);
    ASSERT_EQ(Chassis({"fail", "slot/2", "bus is stuck"}).status, 0);
    const std::string tree = Output({"tree"});
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

TEST_F(RegistryTest, Host_EveryStateHasNoValueAndEveryRevisionIsZero) {
    Configure("");
    StartAndAwait();
    const std::string info = "boards/host/board_info/";
    for (const char* state : {"firmware_type", "status", "power_status", "red_light"}) {
        ExpectFailure({"get", info + state}, 3, "no value");
    }
    EXPECT_EQ(Output({"get", info + "fpga_revision", info + "fw_revision", info + "ipmi_version", info + "type"}),
              "0\n0\n0\nos\n");
    EXPECT_EQ(Registry({"get", info + "device"}).status, 0);
    for (const char* reserved : {"fw_version", "fw_flash_id"}) {
        ExpectFailure({"get", info + reserved}, 1, std::string("Unsupported type: ") + reserved + " in method ");
    }
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, BoardInformation_IsThatOfTheBoardAndFollowsIt) {
    Configure("",
              "<chassis><board uri='icb/0' type='icb' name='ICB'><fans/></board><board uri='io/1' type='io' "
              "name='IO1' prefix='IO' status='ok' power='on' red_light='off' firmware_type='active' "
              "fw_revision='12' fpga_revision='7' ipmi_version='2'>"
              "<sensor id='1' type='temperature' value='100' unr='90'/></board></chassis>");
    StartAndAwait("Sensor source board will be powered off now.");
    const std::string info = "boards/IO1/board_info/";
    EXPECT_EQ(Output({"get", info + "device", info + "type", info + "firmware_type", info + "status",
                      info + "fpga_revision", info + "red_light", info + "fw_revision", info + "ipmi_version"}),
              "IO\nio\nactive\nok\n7\noff\n12\n2\n");
    EXPECT_TRUE(Await([&] {
        return Output({"get", info + "power_status"}) == "off\n";
    })) << "each read asks the board, which was switched off";
    EXPECT_EQ(Output({"ls", "boards/ICB/sensors"}), "") << "a board without sensors has an empty folder";
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, Leaves_HaveTheirTypeOneValueAndTheFlagsOfWhatMayBeDone) {
    Configure("");
    StartAndAwait();
    const auto expectInfo = [this](const std::string& path, const std::string& type, const std::string& flags) {
        EXPECT_THAT(Output({"info", path}),
                    AllOf(HasSubstr("type = " + type + "\nsize = " + (type == "empty" ? "0" : "1") + "\n"),
                          HasSubstr("\nflags = " + flags)))
            << path;
    };
    for (const char* leaf : {"value", "hnc", "hc", "hnr", "lnc", "lc", "lnr", "nom"}) {
        expectInfo(std::string("boards/ICB/sensors/ID_12/") + leaf, "double", "2 ");
    }
    for (const char* leaf : {"name", "type", "units"}) {
        expectInfo(std::string("boards/ICB/sensors/ID_12/") + leaf, "string", "2 ");
    }
    for (const char* leaf : {"device", "type", "firmware_type", "status", "power_status", "red_light"}) {
        expectInfo(std::string("boards/host/board_info/") + leaf, "string", "2 ");
    }
    for (const char* leaf : {"fpga_revision", "fw_version", "fw_revision", "fw_flash_id", "ipmi_version"}) {
        expectInfo(std::string("boards/host/board_info/") + leaf, "integer", "2 ");
    }
    for (const char* folder :
         {"boards", "boards/ICB", "boards/ICB/board_info", "boards/ICB/sensors", "boards/ICB/sensors/ID_12"}) {
        expectInfo(folder, "empty", "0\n");
    }
    expectInfo("fans", "double", "6 ");
    expectInfo("fans/right_rear", "double", "6 ");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, ThresholdThatIsNotThere_HasNoValueAndTheOtherLeavesAnswer) {
    Configure("");
    StartAndAwait();
    Inject({"limit", "icb/0", "12", "uc", "none"});
    const std::string sensor = "boards/ICB/sensors/ID_12/";
    ExpectFailure({"get", sensor + "hc"}, 3, "no value");
    EXPECT_EQ(Output({"get", sensor + "value", sensor + "hnc", sensor + "hnr", sensor + "lnc", sensor + "lc",
                      sensor + "lnr", sensor + "nom", sensor + "name", sensor + "type", sensor + "units"}),
              "48\n75\n95\n0\n-5\n-10\n30\nIntake\ntemperature\nC\n");
    Inject({"limit", "icb/0", "12", "uc", "86.5"});
    EXPECT_EQ(Output({"get", sensor + "hc"}), "86.5\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, BoardThatCannotBeReachedAtTheStart_IsToldAndAbsentForGood) {
    StartHeld("", R"(<chassis>
  <board uri="slot/2" type="power_supply" name="slot2"><sensor id="5" value="1"/></board>
  <board uri="os/0" type="os" name="host"><sensor id="7" value="1"/></board>
  <board uri="icb/0" type="icb" name="ICB"><fans/><sensor id="3" value="12"/></board>
</chassis>
)");
    Inject({"missing", "slot/2"});
    Inject({"fail", "os/0", "bus is stuck"});
    Release();
    EXPECT_EQ(Output({"ls", "boards"}), "ICB\n");
    EXPECT_THAT(Output({"tree", "boards/ICB"}), AllOf(HasSubstr("ipmi_version"), HasSubstr("value = 12\n")));
    EXPECT_THAT(Lines(Output({"ls", "fans"})), testing::SizeIs(6));
    Inject({"heal", "slot/2"});
    Inject({"heal", "os/0"});
    EXPECT_EQ(Output({"ls", "boards"}), "ICB\n");
    EXPECT_EQ(Stop(), 0);
    const std::vector<std::string> messages = MessagesOfWhoLogged("***Platform daemon started");
    ASSERT_GE(messages.size(), 4U);
    EXPECT_EQ(messages[2], "E: Problem accessing board: slot_2");
    EXPECT_EQ(messages[3], "E: Problem accessing board os_0. Exception: bus is stuck");
}

TEST_F(RegistryTest, SensorMissingAtTheStart_HasLeavesWithoutValue) {
    StartHeld("");
    Inject({"missing", "icb/0", "12"});
    Release();
    const std::string sensor = "boards/ICB/sensors/ID_12";
    EXPECT_THAT(Lines(Output({"ls", sensor})), testing::SizeIs(11));
    Inject({"heal", "icb/0"});
    for (const char* leaf : {"/value", "/name", "/hc", "/type", "/units"}) {
        ExpectFailure({"get", sensor + leaf}, 3, "no value");
    }
    EXPECT_EQ(Output({"get", "boards/ICB/sensors/ID_3/name"}), "V12\n");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, SettingTheFans_DrivesAllSixRegisters) {
    Configure("");
    StartAndAwait();
    EXPECT_EQ(Output({"set", "fans", "4000"}), "");
    EXPECT_THAT(FanRegisters(), testing::Each(AllOf(HasSubstr("483"))));
    EXPECT_EQ(Output({"set", "fans/left_rear", "2000"}), "");
    EXPECT_THAT(FanRegisters().at(2), HasSubstr("967"));
    EXPECT_THAT(FanRegisters().at(3), HasSubstr("483"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, FanSpeedThatIsRefused_SaysWhyAndChangesNothing) {
    Configure("");
    StartAndAwait();
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
    EXPECT_EQ(Output({"ls", "fans"}), "");
    ExpectFailure({"get", "fans"}, 1, "bad_weak_ptr");
    ExpectFailure({"set", "fans", "3000"}, 1, "bad_weak_ptr");
    EXPECT_EQ(Stop(), 0);
}

TEST_F(RegistryTest, Crossing_IsToldToWhoWatchesWithinAPass) {
    Configure(c_recordEverySecond);
    StartAndAwait();
    ASSERT_TRUE(AwaitLog("Monitor settings:"));
    test::Process watch(RegistryCommand({"watch", "boards/ICB", "--count", "1", "--timeout", "20"}),
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
    EXPECT_LT(std::chrono::steady_clock::now() - begin, c_stopLimit);
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
    EXPECT_THAT(Lines(Output({"watch", "boards/ICB/sensors/ID_12", "--count", "2", "--timeout", "20"})),
                testing::SizeIs(2));
    EXPECT_EQ(Stop(), 0);
}

/// Sixteen clients that read every leaf, one call after the other, until the server has gone.
class SixteenReaders {
public:
    explicit SixteenReaders(const std::function<Result()>& readTree) {
        for (int index = 0; index < 16; ++index) {
            m_threads.emplace_back([this, readTree] {
                Result result;
                do {
                    result = readTree();
                    const std::lock_guard lock(m_mutex);
                    m_trees += result.status == 0 ? 1 : 0;
                    if (result.status == 0 && result.output.find("  right_rear = ") == std::string::npos) {
                        m_problems.push_back("no whole tree:\n" + result.output);
                    }
                } while (result.status == 0 && !m_isOver);
                const std::lock_guard lock(m_mutex);
                if (result.status != 2 && !m_isOver) {
                    m_problems.push_back("status " + std::to_string(result.status.value_or(-1)) + ": " + result.error);
                }
            });
        }
    }
    ~SixteenReaders() {
        m_isOver = true;
        Join();
    }
    SixteenReaders(const SixteenReaders&) = delete;
    SixteenReaders& operator=(const SixteenReaders&) = delete;

    /// Waits for all of them. @pre the server has gone
    void Join() {
        for (std::thread& thread : m_threads) {
            if (thread.joinable()) {
                thread.join();
            }
        }
    }
    int Trees() const {
        const std::lock_guard lock(m_mutex);
        return m_trees;
    }
    std::vector<std::string> Problems() const {
        const std::lock_guard lock(m_mutex);
        return m_problems;
    }

private:
    std::atomic<bool> m_isOver{false};  // whether or not the server has gone
    mutable std::mutex m_mutex;
    int m_trees = 0;
    std::vector<std::string> m_problems;
    std::vector<std::thread> m_threads;
};

TEST_F(RegistryTest, SixteenReaders_DuringPassesAndFaultsOfABoard_HoldUpNeitherPassesNorTheStop) {
    Configure("<monitor><frequency>0</frequency><filter><absolute enabled='false'/></filter></monitor>\n");
    StartAndAwait();
    const std::vector<std::string> command = RegistryCommand({"tree"});
    SixteenReaders readers([&] { return test::RunProgram(command); });
    const auto awaitTrees = [&] {
        const int enough = readers.Trees() + 32;
        return Await([&] { return readers.Trees() >= enough || !readers.Problems().empty(); }) &&
               readers.Problems().empty();
    };
    const std::vector<std::vector<std::string>> faults{{"slow", "slot/2", "2"}, {"fail", "slot/2", "bus is stuck"},
                                                       {"missing", "slot/2"},   {"invalid", "icb/0", "12"},
                                                       {"heal", "slot/2"},      {"heal", "icb/0"}};
    for (const auto& fault : faults) {
        EXPECT_EQ(Chassis(fault).status, 0) << fault.front();
        EXPECT_TRUE(awaitTrees()) << fault.front();
    }
    const auto records = [&] { return test::ReadLines(m_folder.Path("log/sensors/icb_0.log")).size(); };
    const std::size_t before = records();
    EXPECT_TRUE(Await([&] { return records() > before; })) << "passes go on";
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Stop(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, c_stopLimit);
    readers.Join();
    EXPECT_THAT(readers.Problems(), testing::IsEmpty());
}

TEST_F(RegistryTest, ClientOfTheTool_WithoutServer_SaysSo) {
    const Result result = test::RunProgram({Program("zelkor-regctl"), "--server", "127.0.0.1:1", "ls"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.error, HasSubstr("127.0.0.1"));
}

}  // namespace
