#pragma once

#include <string>

#include "monitor.h"
#include "worker_fixture.h"

namespace test {

/// A monitor on three mock boards.
class MonitorTest : public WorkerTest<Monitor> {
protected:
    static constexpr const char* c_recordAll =
        "<filter><absolute enabled='false'/><relative enabled='false'/></filter>";

    MonitorTest() : WorkerTest("Monitor") {}

    /// One more pass. The period must be 60 s.
    void Pass() { WorkerTest::Pass(std::chrono::seconds(60)); }

    std::string SensorLogPath(const std::string& label) const { return m_folder.Path() + "/sensors/" + label + ".log"; }

    std::unique_ptr<Monitor>& m_monitor = m_worker;
};

}  // namespace test
