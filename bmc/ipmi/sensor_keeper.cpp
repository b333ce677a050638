#include "bmc/ipmi/sensor_keeper.h"

#include <utility>

#include "bmc/broken_off.h"

namespace bmc::ipmi {

SensorKeeper::SensorKeeper(std::vector<BoardSensors*> boards, std::chrono::milliseconds period)
    : m_boards(std::move(boards)), m_period(period), m_thread([this] { Run(); }) {}

SensorKeeper::~SensorKeeper() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopped = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void SensorKeeper::Run() {
    try {
        for (std::unique_lock lock(m_mutex); !m_isStopped;
             m_changed.wait_for(lock, m_period, [this] { return m_isStopped; })) {
            lock.unlock();
            for (BoardSensors* const board : m_boards) {
                board->Attend();
            }
            lock.lock();
        }
    } catch (const BrokenOff&) {  // the service stops
    }
    for (BoardSensors* const board : m_boards) {
        board->GiveUp();
    }
}

}  // namespace bmc::ipmi
