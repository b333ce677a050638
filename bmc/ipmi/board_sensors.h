#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/link.h"
#include "bmc/ipmi/loaded_sensors.h"
#include "bmc/ipmi/sensor_set.h"

namespace bmc::ipmi {

/// How often what is known of a board's sensors is made sure of.
struct SensorsTiming {
    std::chrono::milliseconds thresholds{std::chrono::minutes(5)};  ///< anew after that time
    std::chrono::milliseconds repository{std::chrono::hours(1)};    ///< its stamp is looked at after that time
    /// While something is missing that the board did not tell, it is asked again after that time.
    std::chrono::milliseconds incomplete{std::chrono::seconds(10)};
    std::chrono::milliseconds idsPatience{std::chrono::seconds(30)};  ///< how long AwaitIds waits for a slow board
};

/// The sensors of one board: found out and kept up to date by its keeper, asked for by everybody.
class BoardSensors : public LoadedSensors {
public:
    /// @param link outlives this object
    BoardSensors(std::string label, std::unique_ptr<SensorSet> sensors, const Link& link, LogFunction log,
                 SensorsTiming timing);

    std::vector<SensorId> AwaitIds() override;
    Sensor* Find(const SensorId& id) override;

    /// Does what is due: loads the sensors, or makes sure of them. For the keeper's thread.
    /// @throws BrokenOff when the service stops
    void Attend();

    /// Lets nobody wait any longer, because the service stops: the ids are not to be had then. Any thread.
    void GiveUp();

private:
    using Clock = std::chrono::steady_clock;

    bool IsOverdue(Clock::time_point now) const;
    void Load();
    void Settle(const std::string& reason);
    void Tell(const std::string& reason);

    const std::string m_label;
    const std::unique_ptr<SensorSet> m_sensors;
    const Link& m_link;
    const LogFunction m_log;
    const SensorsTiming m_timing;

    // The keeper's alone.
    bool m_isTried = false;
    unsigned long m_seenReturns = 0;
    Clock::time_point m_thresholdsRead;
    Clock::time_point m_repositoryRead;  ///< the clock's zero: not loaded
    std::string m_told;                  ///< what was logged last

    std::mutex m_mutex;  ///< guards all below
    std::condition_variable m_settled;
    bool m_wasTried = false;
    bool m_isLoaded = false;
    bool m_isGivenUp = false;
    bool m_wasMissed = false;  ///< somebody asked for the ids and did not get them
    std::string m_reason;      ///< why they are not loaded
};

}  // namespace bmc::ipmi
