// The daemon's life: start, messages in their order, signals, stop.

#include <unistd.h>

#include <filesystem>

#include "daemon_fixture.h"

namespace {

using test::DaemonTest;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::StartsWith;

/// What the daemon's threads say last, in any order.
const std::vector<std::string> c_stopped{
    "INFO     *Monitor process stopped", "INFO     *Damage Protection process stopped",
    "INFO     *Temperature Control process stopped", "INFO     *Time synchronization process stopped"};

/// What the stop says, besides, where the machine is so loaded that it does not learn in time that the fans are fast.
const std::string c_setOnceMore = "INFO     Fans changed from 0 RPM to 6500 RPM.";

TEST_F(DaemonTest, LogLines_HaveAPrefixOf35CharactersUnderWhichReportsAlign) {
    Configure("<monitor><frequency>60</frequency></monitor>");
    StartAndAwait();
    EXPECT_EQ(Stop(), 0);
    const auto lines = test::ReadLines(m_folder.Path("log/zelkor-platformd.log"));
    ASSERT_GT(lines.size(), 5U);
    EXPECT_THAT(lines[1], testing::ContainsRegex("^\\[[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\."
                                                 "[0-9]{3}\\] INFO     \\*\\*\\*Platform daemon started$"));
    const auto report = std::find_if(lines.begin(), lines.end(),
                                     [](const std::string& line) { return line.find("Monitor settings:") == 35; });
    ASSERT_GT(lines.end() - report, 1);
    EXPECT_EQ(report[1], std::string(35, ' ') + "enabled   = true");
    for (const std::string& line : lines) {
        EXPECT_FALSE(line.empty());
    }
}

TEST_F(DaemonTest, Foreground_StandardErrorShowsTheLog) {
    Configure("");
    StartAndAwait("No settings found for Monitor module");
    EXPECT_EQ(Stop(), 0);
    EXPECT_EQ(test::ReadFile(m_folder.Path("err")), Log());
    EXPECT_EQ(test::ReadFile(m_folder.Path("out")), "");
}

TEST_F(DaemonTest, NoChassisController_TellsThatThereAreNoFansAndRunsAndEndsWithAnError) {
    Configure("", "<chassis>\n<board uri='slot/2' type='power_supply' name='slot2'/>\n</chassis>\n");
    StartAndAwait("*Monitor process stopped");  // there is no sensor to watch
    EXPECT_TRUE(AwaitLog("*Temperature Control process stopped"));
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(m_daemon->Wait(), 1);  // no fan could be left at maximum speed
    std::vector<std::string> messages = Messages();
    EXPECT_EQ(messages[2], "INFO     Fans node: ICB board was not found.");
    EXPECT_THAT(messages, Contains("ERROR    Problem at stop - bad_weak_ptr"));
}

TEST_F(DaemonTest, TwoBoardsOfOneShortName_TheSecondIsLeftOutOfTheRegistryAndTold) {
    Configure("",
              "<chassis>\n<board uri='icb/0' type='icb' name='ICB'><fans/></board>\n"
              "<board uri='slot/1' type='power_supply' name='PSU'/>\n"
              "<board uri='slot/2' type='power_supply' name='PSU'/>\n</chassis>\n");
    StartAndAwait("*Monitor process stopped");
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Messages(),
                Contains("ERROR    Problem accessing board slot_2. Exception: Node \"boards\" already has a "
                         "child \"PSU\""));
}

TEST_F(DaemonTest, NoBoardsSection_RunsOnTheBuiltInChassis) {
    test::WriteFile(m_folder.Path("config.xml"), "<zelkor/>");
    StartAndAwait("Monitor settings:");
    EXPECT_TRUE(AwaitLog("icb/0  (icb)"));
    EXPECT_EQ(Stop(), 0);
}

TEST_F(DaemonTest, Interrupt_IsAnOrderlyStop) {
    Configure("");
    StartAndAwait();
    EXPECT_EQ(Stop(SIGINT), 0);
    EXPECT_THAT(Log(), HasSubstr("*Monitor process stopped"));
}

TEST_F(DaemonTest, HangUp_ReopensLogAndTraceAndTheDaemonGoesOn) {
    Configure("<monitor><frequency>60</frequency></monitor>");
    Start({"--trace-level", "3"});
    ASSERT_TRUE(AwaitLog("Monitor settings:"));
    ASSERT_TRUE(AwaitWorkers());
    const std::string log = m_folder.Path("log/zelkor-platformd.log");
    const std::string trace = m_folder.Path("log/zelkor-platformd.trace");
    std::filesystem::rename(log, log + ".1");
    std::filesystem::rename(trace, trace + ".1");
    m_daemon->Signal(SIGHUP);
    ASSERT_TRUE(Await([&] { return test::Exists(log) && test::Exists(trace); }));
    EXPECT_EQ(Stop(), 0);
    std::vector<std::string> last = c_stopped;
    last.emplace_back("INFO     ***Platform daemon is stopping.");
    std::vector<std::string> messages = Messages();
    messages.erase(std::remove(messages.begin(), messages.end(), c_setOnceMore), messages.end());
    EXPECT_THAT(messages, testing::UnorderedElementsAreArray(last));
    EXPECT_THAT(test::ReadFile(log + ".1"), HasSubstr("***Platform daemon started"));
    EXPECT_THAT(test::ReadFile(trace), HasSubstr("***Platform daemon is stopping."));
    EXPECT_THAT(test::ReadFile(trace + ".1"), HasSubstr("***Platform daemon started"));
}

TEST_F(DaemonTest, Trace_HoldsTheMessagesWithTheirSourceAndLine) {
    Configure("");
    Start({"--trace-level", "3"});
    ASSERT_TRUE(AwaitLog("Monitor settings:"));
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(
        test::ReadFile(m_folder.Path("log/zelkor-platformd.trace")),
        HasSubstr("core/shared/qstd/log:75 void qstd::LogInfo(const std::string&): ***Platform daemon started"));
}

TEST_F(DaemonTest, Trace_HoldsTheRegistryTreeAtLevel4BeforeTheFirstWorker) {
    for (const char* level : {"3", "4"}) {
        Configure("");
        std::filesystem::remove_all(m_folder.Path("log"));
        Start({"--trace-level", level});
        ASSERT_TRUE(AwaitLog("Monitor settings:"));
        EXPECT_EQ(Stop(), 0);
        const std::string trace = test::ReadFile(m_folder.Path("log/zelkor-platformd.trace"));
        const auto heading =
            trace.find(" virtual void PlatformDaemon::OnPostInit(): Exporting following nodes through the qreg:\n");
        if (*level == '3') {
            EXPECT_EQ(heading, std::string::npos);
        } else {
            const auto dump = trace.find(" virtual void PlatformDaemon::OnPostInit(): registry\n");
            EXPECT_LT(heading, dump);
            const auto firstWorker = trace.find("*Monitor process started.");
            ASSERT_LT(dump, firstWorker);
            const std::string tree = trace.substr(dump, firstWorker - dump);
            for (const char* name : {"boards", "host", "ID_12", "fw_version", "fans", "right_rear"}) {
                EXPECT_THAT(tree, testing::ContainsRegex(std::string("\n +") + name + "( = .*)?\n"));
            }
        }
        EXPECT_THAT(Log(), Not(HasSubstr("Exporting")));
    }
}

TEST_F(DaemonTest, SecondRun_AppendsToTheLog) {
    Configure("");
    for (int run = 1; run <= 2; ++run) {
        Start();
        ASSERT_TRUE(Await([&] {
            const auto messages = Messages();
            return std::count(messages.begin(), messages.end(), "INFO     Monitor settings:") == run;
        }));
        EXPECT_EQ(Stop(), 0);
    }
    const auto messages = Messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "INFO     ***Platform daemon started"), 2);
}

TEST_F(DaemonTest, StopAtManyMomentsOfTheStart_IsAlwaysOrderly) {
    // In steps of 2 ms, so that stops fall before, into and behind the worker's start.
    Configure("<monitor><frequency>1</frequency></monitor>");
    for (int delay = 0; delay < 60; delay += 2) {
        std::filesystem::remove_all(m_folder.Path("log"));
        Start();
        // From the moment that signals are taken in order: before, the program is not there yet.
        ASSERT_TRUE(Await([&] {
            return test::ReadFile("/proc/" + std::to_string(m_daemon->GetPid()) + "/status")
                       .find("SigBlk:\t0000000000004003") != std::string::npos;
        }));
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        EXPECT_EQ(Stop(), 0) << "after " << delay << " ms";
        const std::string log = Log();
        const bool isStarted = log.find("***Platform daemon started") != std::string::npos;
        const bool isStopped = log.find("***Platform daemon is stopping.") != std::string::npos;
        EXPECT_EQ(isStarted, isStopped) << log;
        EXPECT_EQ(isStarted, log.find("*Monitor process stopped") != std::string::npos) << log;
        EXPECT_EQ(log.find(" ERROR "), std::string::npos) << log;
    }
}

TEST_F(DaemonTest, StopAtManyMomentsOfASlowPass_IsAlwaysOrderly) {
    Configure("<monitor><frequency>0</frequency></monitor>");
    for (int delay = 0; delay < 100; delay += 7) {
        std::filesystem::remove_all(m_folder.Path("log"));
        Start();
        ASSERT_TRUE(AwaitWorkers());
        EXPECT_EQ(Chassis({"slow", "slot/2", "20"}).status, 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        EXPECT_EQ(Stop(), 0) << "after " << delay << " ms";
        EXPECT_THAT(Messages().back(), testing::AnyOf(testing::EndsWith(" stopped"), c_setOnceMore));
        EXPECT_THAT(Messages(), IsSupersetOf(c_stopped));
    }
}

TEST_F(DaemonTest, StopWhileAWorkerReadsItsSettings_TheWorkerEndsAfterMainWithAllItNeeds) {
    Configure("<monitor><frequency>1</frequency></monitor>");
    for (int delay = 0; delay < 500; delay += 90) {
        std::filesystem::remove_all(m_folder.Path("log"));
        auto command = Command();
        command[0] = Program("slow_daemon");
        m_daemon = std::make_unique<test::Process>(command, m_folder.Path("out"), m_folder.Path("err"));
        ASSERT_TRUE(AwaitLog("*Monitor process started."));
        std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        EXPECT_EQ(Stop(), 0) << test::ReadFile(m_folder.Path("err"));
        EXPECT_THAT(Messages(), IsSupersetOf({"INFO     ***Platform daemon is stopping.",
                                              "INFO     Monitor settings:", "INFO     *Monitor process stopped",
                                              "INFO     *Damage Protection process stopped",
                                              "INFO     *Temperature Control process stopped"}));
        EXPECT_THAT(Messages().back(),
                    testing::AnyOf(testing::EndsWith(" stopped"), testing::EndsWith(" settings:"), c_setOnceMore));
    }
}

TEST_F(DaemonTest, Detached_TheCallerReturnsWhenTheServiceIsReady) {
    Configure("<monitor><frequency>60</frequency></monitor>");
    const std::string pidFile = m_folder.Path("pid");
    const test::Result started = test::RunProgram(Command({"--daemon", "--pid-file", pidFile}));
    EXPECT_EQ(started.status, 0) << started.error;
    EXPECT_EQ(started.error, "");
    EXPECT_THAT(Log(), HasSubstr("***Platform daemon started"));
    const int pid = std::stoi(test::ReadFile(pidFile));
    EXPECT_EQ(::kill(pid, SIGTERM), 0);
    EXPECT_TRUE(AwaitLog("*Monitor process stopped"));
    EXPECT_TRUE(Await([&] { return !test::Exists(pidFile); }));
}

TEST_F(DaemonTest, StandardStreamsLeftClosed_AreNotTakenForOtherFiles) {
    Configure("<monitor><frequency>60</frequency></monitor>");
    const std::string pidFile = m_folder.Path("pid");
    std::vector<std::string> command = Command({"--daemon", "--pid-file", pidFile});
    command.insert(command.begin(), {"/bin/sh", "-c", "exec \"$0\" \"$@\" <&- >&- 2>&-"});
    EXPECT_EQ(test::RunProgram(command).status, 0);
    ASSERT_TRUE(test::Exists(pidFile));
    EXPECT_EQ(::kill(std::stoi(test::ReadFile(pidFile)), SIGTERM), 0);
    EXPECT_TRUE(AwaitLog("*Monitor process stopped"));
    EXPECT_TRUE(Await([&] { return !test::Exists(pidFile); }));
}

TEST_F(DaemonTest, DetachedThatCannotRun_TheCallerReturnsWithItsError) {
    Configure("", "<chassis><oven/></chassis>");
    ExpectRefusal(Command({"--daemon"}), "oven");
}

TEST_F(DaemonTest, ForeignLocale_NumbersStayTheSame) {
    Configure("<monitor><frequency>60</frequency><filter><relative enabled='true'>2.5</relative></filter></monitor>");
    Start({}, {{"LC_ALL", "de_DE.UTF-8"}, {"LANG", "de_DE.UTF-8"}});
    EXPECT_TRUE(AwaitLog("relative filter = true (value = 2.5)"));
    EXPECT_EQ(Stop(), 0);
}

}  // namespace
