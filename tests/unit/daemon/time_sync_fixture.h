#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "qstd/time.h"
#include "time_sync.h"
#include "worker_fixture.h"

namespace test {

/// A time synchronization on three mock boards. The host's clock stands at 1000 s; so do the clocks of the boards.
class TimeSyncTest : public WorkerTest<TimeSync> {
protected:
    static constexpr std::int64_t c_second = 1000000;

    TimeSyncTest() : WorkerTest("Time synchronization") {
        SetHost(1000 * c_second);
        for (MockBoard* const board : {&m_boards.host, &m_boards.slot2, &m_boards.icb}) {
            ON_CALL(*board, GetTime).WillByDefault([] { return qstd::Time::Now(qstd::Time::c_current); });
        }
        EXPECT_CALL(m_boards.host, SetTime).Times(0);
    }

    /// Before the worker is started only.
    void SetHost(std::int64_t microseconds) { m_clock.SetCalendarBy(Host(microseconds) - m_clock.SystemNow()); }

    static std::chrono::system_clock::time_point Host(std::int64_t microseconds) {
        return std::chrono::system_clock::time_point(std::chrono::microseconds(microseconds));
    }

    static void SetBoard(MockBoard& board, std::int64_t microseconds) {
        ON_CALL(board, GetTime).WillByDefault(testing::Return(qstd::Time::FromMicroseconds(microseconds)));
    }

    /// The text that tells of a set clock; times in microseconds.
    static std::string SetText(const std::string& label, const std::string& difference, std::int64_t old,
                               std::int64_t now) {
        return "I: Synchronizing time on board " + label + " - difference is " + difference + " seconds. (Old time " +
               qstd::Time::FromMicroseconds(old).ToString() + "; New time " +
               qstd::Time::FromMicroseconds(now).ToString() + ").";
    }

    /// Whether a first pass sets the clock of SLOT_2 when it differs from the host's by @p microseconds.
    bool IsSet(std::int64_t microseconds, const std::string& section = "") {
        int calls = 0;
        EXPECT_CALL(m_boards.slot2, SetTime).WillRepeatedly([&calls](const qstd::Time& /*time*/) { ++calls; });
        SetBoard(m_boards.slot2, 1000 * c_second + microseconds);
        StartAndPass(section);
        m_worker.reset();
        EXPECT_LE(calls, 1);
        return calls == 1;
    }

    const bmc::Uri m_slot2Uri{"u:b", "SLOT", "2"};
};

}  // namespace test
