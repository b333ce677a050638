#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "bmc/ipmi/board_sensors.h"

namespace bmc::ipmi {

/// Finds out the sensors of the boards of one controller and keeps what is known of them true, on a thread of its own,
/// so that controllers do not wait for one another and nobody else waits for them.
class SensorKeeper {
public:
    /// Starts the thread. @param boards outlive this object
    explicit SensorKeeper(std::vector<BoardSensors*> boards,
                          std::chrono::milliseconds period = std::chrono::milliseconds(500));

    /// Joins the thread; a request that it waits for has to be given up before (see Controller::LimitAccesses).
    ~SensorKeeper();

    SensorKeeper(const SensorKeeper&) = delete;
    SensorKeeper& operator=(const SensorKeeper&) = delete;

private:
    void Run();

    const std::vector<BoardSensors*> m_boards;
    const std::chrono::milliseconds m_period;
    std::mutex m_mutex;  ///< guards m_isStopped
    std::condition_variable m_changed;
    bool m_isStopped = false;
    std::thread m_thread;  ///< uses all above
};

}  // namespace bmc::ipmi
