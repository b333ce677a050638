#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bmc/sensor.h"
#include "bmc/sensor_id.h"
#include "bmc/sweep.h"
#include "bmc/uri.h"
#include "module.h"
#include "sensor_log.h"
#include "worker_frame.h"

/// Watches the selected sensors of all boards: reads them every period, logs the crossing of a threshold and the return
/// to normal, tells the registry's clients of changes and crossings, and appends the values that pass the change filter
/// to one log file a board.
///
/// Settings: section "monitor". The object's thread does all the work; other threads may call StopThread only.
class Monitor : public Module {
public:
    /// What is kept of a sensor between two passes.
    struct SensorData {
        bmc::SensorId id;
        bool valid = false;  ///< value holds a reading
        double value = 0.0;  ///< the previous reading, in converted units
    };
    using Sensors = std::map<bmc::Uri, std::vector<SensorData>>;

    /// The daemon's one monitor. The first call constructs it, which starts its thread. Callable from any thread.
    static Monitor& GetInstance();

    /// Starts the thread. The daemon's monitor comes from GetInstance; tests make their own.
    Monitor();
    ~Monitor() override;

    /// The thread's body: settings, report, passes until it is told to stop.
    void operator()();

    /// Tells the thread to end. Waits for a running pass; after the return no pass begins. Callable from any thread,
    /// more than once.
    void StopThread();

    bool Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) override;
    std::string GetClassName() override;

    /// Logs the settings in force as one message.
    void LogProperties() const;

    /// Appends the sensors of @p selected to @p out, by the uri of their board.
    static void Convert(const Selection& selected, Sensors& out);

    /// One pass over all sensors.
    void LogSensors();

    /// Whether the reading @p value is to be recorded. The absolute filter lets readings outside the non-critical band
    /// pass, and the first one back inside; the relative filter lets changes pass that are larger than its percentage
    /// of the nominal value; without any filter every reading passes.
    bool Filter(bmc::Sensor* sensor, const SensorData& data, double value) const;

    /// Logs the most severe threshold that @p value has just passed, or the return to normal.
    /// @param board the board's label
    static void LogCriticalValues(const std::string& board, bmc::Sensor* sensor, const SensorData& data, double value);

    /// Logs that @p value has just gone above, or below, @p limit. @return whether it did.
    static bool LogAboveValues(const std::string& board, bmc::Sensor* sensor, const bmc::SensorReading& limit,
                               const SensorData& data, double value, const std::string& limitName);
    static bool LogBelowValues(const std::string& board, bmc::Sensor* sensor, const bmc::SensorReading& limit,
                               const SensorData& data, double value, const std::string& limitName);

    /// Makes the sensor's registry node tell of the reading @p value: one notification a call, for the most severe
    /// threshold that @p value is beyond, on that threshold's leaf; failing that, for a value that is not @p previous,
    /// on the leaf of the value. What goes wrong is logged.
    /// @param board short name of the board, which is that of its node
    /// @param sensorId in decimal
    static void EmitNotifications(bmc::Sensor* sensor, const std::string& board, const std::string& sensorId,
                                  double value, double previous);

private:
    /// What a pass makes of one board.
    struct Record {
        std::string heading = "[TIME]";
        std::string line;
        bool isWanted = false;  ///< a reading passed the change filter
    };

    void ReadSettings();
    void LogBoard(const bmc::Uri& uri, const std::string& label, std::vector<SensorData>& sensors, bmc::Sweep& sweep);
    /// Appends the sensor's columns to the record, and says when its reading is to be recorded.
    void LogSensor(bmc::Board& board, const std::string& label, SensorData& data, bmc::Sweep& sweep,
                   Record& record) const;
    SensorLog& GetLog(const bmc::Uri& uri, const std::string& columns);

    std::map<bmc::Uri, SensorLog> m_logs;
    Sensors m_sensors;
    SensorIds m_ids;       ///< those of m_sensors, what a pass sweeps
    int m_frequency = 60;  ///< seconds from the end of a pass to the start of the next
    bool m_absoluteFilter = true;
    bool m_relativeFilter = false;
    double m_relativeValue = 0.0;  ///< percent of the nominal value
    WorkerFrame m_frame;
};
