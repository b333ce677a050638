// What the daemon tells the service manager: start, stop, the watchdog, and workers that ended by an error.

#include "daemon_fixture.h"
#include "tests/support/service_manager.h"

namespace {

using test::DaemonTest;
using testing::Contains;
using testing::Not;

TEST_F(DaemonTest, ServiceManager_IsToldOfStartAndStopAndTheWatchdogIsFed) {
    Configure("");
    const test::ServiceManager manager(m_folder.Path("notify"));
    Start({}, {{"NOTIFY_SOCKET", m_folder.Path("notify")}, {"WATCHDOG_USEC", "200000"}});
    EXPECT_EQ(manager.Receive(), "READY=1");
    for (int feeding = 0; feeding < 3; ++feeding) {
        EXPECT_EQ(manager.Receive(), "WATCHDOG=1");
    }
    m_daemon->Signal(SIGTERM);
    EXPECT_EQ(manager.ReceiveNews(), "STOPPING=1");
    EXPECT_EQ(m_daemon->Wait(), 0);
}

class ServiceTest : public DaemonTest {
protected:
    /// Starts the daemon under a service manager whose watchdog wants to be fed every 100 ms.
    void StartService(const std::string& sections) {
        Configure(sections);
        Start({}, {{"NOTIFY_SOCKET", m_folder.Path("notify")}, {"WATCHDOG_USEC", "200000"}});
    }

    /// The news up to and including @p last; a worker may end before the start is complete.
    std::vector<std::string> NewsUntil(const testing::Matcher<std::string>& last) const {
        std::vector<std::string> news;
        do {
            news.push_back(m_manager.ReceiveNews());
        } while (!news.back().empty() && !testing::Matches(last)(news.back()));
        return news;
    }

    /// Has the fans set to a speed that the fan control cannot take for one: its next cycle ends it.
    void EndFanControl() {
        ASSERT_TRUE(AwaitLog("Fans changed from 0 RPM to "));
        EXPECT_EQ(Registry({"set", "fans", "29.6"}).status, 0);
        ASSERT_TRUE(AwaitLog("Problem in Temperature Control process - Too high rpm value: 29\n"));
    }

    const test::ServiceManager m_manager{m_folder.Path("notify")};
    static constexpr const char* c_fanControl = "<temperature_control><frequency>1</frequency></temperature_control>\n";
    static constexpr const char* c_news = "STATUS=Temperature Control has ended: Too high rpm value: 29";
    static constexpr const char* c_notFed = "ERROR    The watchdog is not fed any more: Temperature Control has ended";
};

TEST_F(ServiceTest, FanControlEndedByAnError_TheServiceManagerIsToldAndTheWatchdogFed) {
    StartService(c_fanControl);
    EXPECT_EQ(m_manager.ReceiveNews(), "READY=1");
    EndFanControl();
    EXPECT_EQ(m_manager.ReceiveNews(), c_news);
    for (int feeding = 0; feeding < 3; ++feeding) {
        EXPECT_EQ(m_manager.Receive(), "WATCHDOG=1");
    }
    EXPECT_EQ(Registry({"set", "fans", "3000"}).status, 0);
    EXPECT_EQ(Stop(), 0);
    EXPECT_THAT(Messages(), Contains(LeftFast()));
    EXPECT_THAT(Messages(), Not(Contains(c_notFed)));
}

TEST_F(ServiceTest, FanControlEndedByAnError_TheWatchdogForWorkersIsNotFedAnyMore) {
    StartService(std::string("<service watchdog='workers'/>\n") + c_fanControl);
    EXPECT_EQ(m_manager.ReceiveNews(), "READY=1");
    EXPECT_EQ(m_manager.Receive(), "WATCHDOG=1");
    EndFanControl();
    EXPECT_EQ(m_manager.ReceiveNews(), c_news);
    ASSERT_TRUE(AwaitLog(c_notFed));
    while (m_manager.Receive(std::chrono::milliseconds(1)) == "WATCHDOG=1") {  // those fed before
    }
    EXPECT_EQ(m_manager.Receive(std::chrono::milliseconds(500)), "");
    EXPECT_EQ(Registry({"set", "fans", "3000"}).status, 0);
    EXPECT_EQ(Stop(), 0);
    const auto messages = Messages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), c_notFed), 1);
}

TEST_F(ServiceTest, MonitorEndedByAnError_TheServiceManagerIsToldAndTheWatchdogForWorkersFed) {
    StartService("<service watchdog='workers'/>\n<monitor><sensors><include>x</include></sensors></monitor>\n");
    const std::string ended = "STATUS=Monitor has ended: Bad cast from x to int";
    const auto news = NewsUntil("READY=1");
    if (news.front() != ended) {
        EXPECT_EQ(m_manager.ReceiveNews(), ended);
    }
    for (int feeding = 0; feeding < 3; ++feeding) {
        EXPECT_EQ(m_manager.Receive(), "WATCHDOG=1");
    }
    EXPECT_EQ(Stop(), 0);
}

TEST_F(ServiceTest, TwoWorkersEndedByErrors_TheStatusNamesBoth) {
    const std::string badList = "<sensors><include>x</include></sensors>";
    StartService("<monitor>" + badList + "</monitor>\n<damage_protection>" + badList + "</damage_protection>\n");
    const testing::Matcher<std::string> both = testing::AllOf(
        testing::StartsWith("STATUS="), testing::HasSubstr("Monitor has ended: Bad cast from x to int"),
        testing::HasSubstr("; "), testing::HasSubstr("Damage Protection has ended: Bad cast from x to int"));
    EXPECT_THAT(NewsUntil(both).back(), both);
    EXPECT_EQ(Stop(), 0);
}

}  // namespace
