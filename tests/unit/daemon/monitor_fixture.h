#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "monitor.h"
#include "prepared_daemon.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"
#include "tests/support/mock_boards.h"
#include "tests/support/temp_folder.h"
#include "tests/support/trace_capture.h"

namespace test {

/// A monitor on three mock boards, whose passes a test starts by moving the clock.
class MonitorTest : public testing::Test {
protected:
    static constexpr const char* c_recordAll =
        "<filter><absolute enabled='false'/><relative enabled='false'/></filter>";

    /// Starts a monitor with the given sections of the configuration.
    void Start(const std::string& sections) {
        m_application.Use(sections, m_folder.Path());
        m_monitor = std::make_unique<Monitor>();
    }

    /// Starts a monitor and waits until it sleeps after its first pass.
    void StartAndPass(const std::string& section) {
        Start(section);
        m_clock.WaitForSleeps(++m_passes);
    }

    /// One more pass. The period must be 60 s.
    void Pass() {
        m_clock.Advance(std::chrono::seconds(60));
        m_clock.WaitForSleeps(++m_passes);
    }

    /// Starts a monitor that ends without a pass, and waits for the end.
    void StartAndEnd(const std::string& section) {
        Start(section);
        ASSERT_TRUE(m_log.WaitFor("I: *Monitor process stopped"));
    }

    std::string SensorLogPath(const std::string& label) const { return m_folder.Path() + "/sensors/" + label + ".log"; }

    ThreeBoards m_boards;
    TempFolder m_folder;
    ManualClock m_clock;
    LogCapture m_log;
    PreparedDaemon m_application;
    std::unique_ptr<Monitor> m_monitor;
    int m_passes = 0;
};

}  // namespace test
