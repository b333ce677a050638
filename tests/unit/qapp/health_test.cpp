#include "qapp/health.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/log_capture.h"
#include "tests/support/service_manager.h"
#include "tests/support/temp_folder.h"

namespace {

using qapp::Health;
using qapp::Watchdog_e;
using testing::ElementsAre;
using testing::IsEmpty;

class HealthTest : public testing::Test {
protected:
    HealthTest() { ::setenv("NOTIFY_SOCKET", m_folder.Path("notify").c_str(), 1); }
    ~HealthTest() override { ::unsetenv("NOTIFY_SOCKET"); }

    test::TempFolder m_folder;
    const test::ServiceManager m_manager{m_folder.Path("notify")};
    test::LogCapture m_log;
    Health m_health;
};

TEST_F(HealthTest, NothingEnded_IsWell) {
    m_health.SetWatchdog(Watchdog_e::workers);
    EXPECT_TRUE(m_health.IsWell());
}

TEST_F(HealthTest, VitalPartEnded_IsWellUnlessTheWatchdogIsForWorkers) {
    m_health.PartEnded("Fan control", "no fans", Health::Need_e::vital);
    EXPECT_TRUE(m_health.IsWell());
    EXPECT_THAT(m_log.Messages(), IsEmpty());
    EXPECT_EQ(m_manager.Receive(), "STATUS=Fan control has ended: no fans");
}

TEST_F(HealthTest, VitalPartEnded_WatchdogForWorkers_IsNotWellAndLogsItOnce) {
    m_health.SetWatchdog(Watchdog_e::workers);
    m_health.PartEnded("Fan control", "no fans", Health::Need_e::vital);
    m_health.PartEnded("Protection", "no boards", Health::Need_e::vital);
    EXPECT_FALSE(m_health.IsWell());
    EXPECT_THAT(m_log.Messages(), ElementsAre("E: The watchdog is not fed any more: Fan control has ended"));
}

TEST_F(HealthTest, UsefulPartEnded_IsWellWhateverTheWatchdogIsFor) {
    m_health.SetWatchdog(Watchdog_e::workers);
    m_health.PartEnded("Monitor", "no sensors", Health::Need_e::useful);
    EXPECT_TRUE(m_health.IsWell());
    EXPECT_EQ(m_manager.Receive(), "STATUS=Monitor has ended: no sensors");
}

TEST_F(HealthTest, Status_NamesAllInOneLine) {
    m_health.PartEnded("Monitor", "first line\nREADY=1", Health::Need_e::useful);
    EXPECT_EQ(m_manager.Receive(), "STATUS=Monitor has ended: first line READY=1");
    m_health.PartEnded("Fan control", "no fans", Health::Need_e::vital);
    EXPECT_EQ(m_manager.Receive(), "STATUS=Monitor has ended: first line READY=1; Fan control has ended: no fans");
}

}  // namespace
