#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bmc/uri.h"
#include "fan_table.h"
#include "module.h"
#include "qnode/tree_node.h"
#include "worker_frame.h"

/// Drives the chassis fans by the hottest of the watched temperature sensors: every period it goes at most one band up
/// or down the table from temperature to fan speed and sets all fans to the band's speed. Whenever it does not know how
/// hot it is, or has no valid table, the fans get the maximum speed.
///
/// Settings: section "temperature_control". The object's thread does all the work; other threads may call StopThread
/// only. Once the thread has ended any one thread may call any operation.
class TemperatureControl : public Module {
public:
    using TempFansElem = fan_table::TempFansElem;

    static constexpr std::uint32_t c_maxSpeed = fan_table::c_maxSpeed;  ///< RPM

    /// The daemon's one temperature control. The first call constructs it, which starts its thread. Callable from any
    /// thread.
    /// @param fansNode the node "fans"; only the first call's counts
    static TemperatureControl& GetInstance(std::shared_ptr<qnode::TreeNode> fansNode);

    /// Starts the thread. The daemon's temperature control comes from GetInstance; tests make their own.
    /// @param fansNode the node "fans", which belongs to the registry: only a weak reference is kept
    explicit TemperatureControl(std::shared_ptr<qnode::TreeNode>& fansNode);
    ~TemperatureControl() override;

    /// The thread's body: settings, report, control cycles until it is told to stop. An exception ends it for good, and
    /// the fans keep their last speed.
    void operator()();

    /// Tells the thread to end. Waits for a running cycle; after the return no cycle begins. Callable from any thread,
    /// more than once.
    void StopThread();

    bool Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) override;
    std::string GetClassName() override;

    /// The row of the table that a "set" of "fans" is; what it lacks, or what is no number, is 0.
    static TempFansElem ReadRow(const qcfg::Element& set);

    /// Logs the settings in force as one message.
    void LogProperties() const;

    /// Whether the table can be used; the first error in it is logged as a warning.
    bool VerifyTempFansTable();

    /// The lowest upper non-critical threshold of the watched sensors, degrees Celsius; 0 when none has one. What
    /// cannot be read is logged and left out; an exception costs the rest of its board.
    double LowestHighNonCritical() const;

    /// One control cycle. @throws what the fans' node throws, which is about the fan controller.
    void Control();

    /// The highest reading of the watched sensors, degrees Celsius; -1 when none can be read, or all are below that.
    /// What cannot be read is logged and left out; an exception costs the rest of its board.
    double GetMaxTemp() const;

    /// The speed that the fans are set to, RPM, to the nearest whole number: 0 when they are set to different ones or
    /// none can be read, the highest number when the node is gone or is none of fans. Zeros count as different only
    /// after another speed.
    std::uint32_t GetReferenceFanSpeed() const;

    /// Sets all fans to @p rpm and logs it, unless @p currentRpm comes to the same register value.
    /// @param maxTemp for the log message, degrees Celsius; null: left out
    /// @throws qstd::Exception when no register value stands for one of the speeds; what the fans' node throws.
    void SetFansSpeed(std::uint32_t rpm, std::uint32_t currentRpm, const double* maxTemp) const;

    /// Whether both speeds, RPM, come to the same register value.
    /// @throws qstd::Exception naming a speed when no register value stands for it.
    static bool IsRpmEqual(std::uint32_t left, std::uint32_t right);

private:
    void ReadSettings();
    void ReadTable(const qcfg::Element& section);
    void CheckTable();

    const std::weak_ptr<qnode::TreeNode> m_fansNode;
    SensorIds m_sensors;
    fan_table::FanTable m_table;
    std::uint32_t m_band = 0;  ///< the row of the table in force; means nothing while the table is empty
    int m_frequency = 60;      ///< seconds from the end of a cycle to the start of the next
    WorkerFrame m_frame;
};
