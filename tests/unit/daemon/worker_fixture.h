#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "prepared_daemon.h"
#include "tests/support/log_capture.h"
#include "tests/support/manual_clock.h"
#include "tests/support/mock_boards.h"
#include "tests/support/temp_folder.h"
#include "tests/support/trace_capture.h"

namespace test {

/// A worker on three mock boards, whose passes a test starts by moving the clock.
template <class Worker>
class WorkerTest : public testing::Test {
protected:
    /// @param process what the worker calls itself in its messages of start and end
    explicit WorkerTest(const std::string& process) : m_stopped("I: *" + process + " process stopped") {}

    /// Starts a worker with the given sections of the configuration.
    void Start(const std::string& sections) {
        m_application.Use(sections, m_folder.Path());
        m_worker = std::make_unique<Worker>();
    }

    /// Starts a worker and waits until it sleeps after its first pass.
    void StartAndPass(const std::string& sections) {
        Start(sections);
        m_clock.WaitForSleeps(++m_passes);
    }

    /// Starts a worker that ends without a pass, and waits for the end.
    void StartAndEnd(const std::string& sections) {
        Start(sections);
        ASSERT_TRUE(m_log.WaitFor(m_stopped));
    }

    /// One more pass.
    void Pass(std::chrono::seconds period) {
        m_clock.Advance(period);
        m_clock.WaitForSleeps(++m_passes);
    }

    /// The pool has lost the board, or finds it for its uri only now.
    void PoolFinds(const bmc::Uri& uri, bmc::Board* board) {
        EXPECT_CALL(m_boards.backend, GetBoard(testing::_)).Times(testing::AnyNumber());
        EXPECT_CALL(m_boards.backend, GetBoard(uri)).WillRepeatedly(testing::Return(board));
    }

    const std::string m_stopped;
    ThreeBoards m_boards;
    TempFolder m_folder;
    ManualClock m_clock;
    LogCapture m_log;
    PreparedDaemon m_application;
    int m_passes = 0;
    std::unique_ptr<Worker> m_worker;
};

}  // namespace test
