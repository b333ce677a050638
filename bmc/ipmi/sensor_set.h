#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/ipmi_sensor.h"
#include "bmc/ipmi/link.h"
#include "bmc/ipmi/record_cache.h"
#include "bmc/ipmi/record_source.h"
#include "bmc/ipmi/repository.h"
#include "bmc/sensor_id.h"

namespace bmc::ipmi {

/// Which board a SensorSet is of.
struct SensorSetPlace {
    std::string label;       ///< the board, for messages and the cache's file name: "io/1"
    std::string controller;  ///< the controller, as ControllerSettings::Name gives it
    Target target;
};

/// The sensors of one board: found in its records once, then kept for good, because others hold pointers to them. What
/// changes are their thresholds, and whether the records still have them. Any thread; Load and Refresh wait for one
/// another and for the board, Ids and Find for nobody.
class SensorSet {
public:
    /// @param own the link to the board; goes on to live, as do @p controller and @p cache
    /// @param controller of the controller through which the board is reached; shared by the boards behind it
    SensorSet(SensorSetPlace place, Link& own, RepositoryStore& controller, RecordCache& cache, LogFunction log);

    /// Finds the sensors: in the cache if what it holds is of the board as it is now, else in the board's records; and
    /// reads their thresholds. When the board cannot be asked, what the cache holds is taken unproved. Thresholds that
    /// cannot be read are left to Refresh; a warning says why. Does nothing when they were found before; may be called
    /// again when it has raised.
    /// @throws qstd::Exception when the board cannot be asked and the cache holds nothing of it
    void Load();

    /// Reads the thresholds anew. Before that, with @p checkRepository or when the sensors are not proved yet, looks
    /// whether the board's records have changed: a sensor whose record is the same stays, one whose record is another
    /// or is gone is not there any more, unless it comes back as it was; a new one is there after a restart only. One
    /// warning names them. Loads when that has not been done.
    /// @throws qstd::Exception the first that went wrong; the others have been read all the same, unless the board does
    /// not answer
    void Refresh(bool checkRepository);

    /// Whether the sensors are proved and each has been asked for its thresholds: if not, Refresh is due.
    bool IsComplete() const;

    /// The sensors that are there, in the order of the records; none before Load.
    std::vector<SensorId> Ids() const;

    /// Null when there is no such sensor (any more). Lives as long as this object.
    IpmiSensor* Find(const SensorId& id) const;

private:
    bool IsLoaded() const;
    BoardRecords ReadRecords();
    void SetSensors(const BoardRecords& records, bool isProved);
    void CheckRecords();
    void Compare(const BoardRecords& records);
    void ReadThresholds();
    /// @return the first that went wrong @throws NoAnswer, BrokenOff, with which the rest is not asked
    std::exception_ptr ReadThresholdsOf(std::span<IpmiSensor* const> sensors);
    std::string PlaceText() const;

    const SensorSetPlace m_place;
    Link& m_own;
    const RecordSource m_source;
    RecordCache& m_cache;
    const LogFunction m_log;

    std::mutex m_work;  ///< held by Load and Refresh, during transactions too
    RecordOrigin_e m_origin = RecordOrigin_e::controller;
    std::vector<std::uint8_t> m_fingerprint;  ///< of the records that the sensors were last compared with

    mutable std::mutex m_mutex;  ///< guards what follows; never held during a transaction
    bool m_isLoaded = false;
    bool m_isProved = false;
    bool m_areThresholdsRead = false;
    std::vector<std::unique_ptr<IpmiSensor>> m_sensors;  ///< filled once
};

}  // namespace bmc::ipmi
