#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bmc/board.h"
#include "bmc/sensor_id.h"
#include "bmc/sweep.h"
#include "bmc/uri.h"
#include "module.h"
#include "worker_frame.h"

/// Keeps hardware from damage: reads the selected sensors every period and switches a board off as soon as one of its
/// sensors is above the upper non-recoverable limit. For a sensor of the host's operating system the chassis controller
/// board (ICB) is shut down instead. Nothing is remembered: every pass decides afresh from the present readings.
///
/// Settings: section "damage_protection". The object's thread does all the work; other threads may call StopThread
/// only.
class DamageProtection : public Module {
public:
    /// The daemon's one damage protection. The first call constructs it, which starts its thread. Callable from any
    /// thread.
    static DamageProtection& GetInstance();

    /// Starts the thread. The daemon's damage protection comes from GetInstance; tests make their own.
    DamageProtection();
    ~DamageProtection() override;

    /// The thread's body: settings, report, passes until it is told to stop. A pass that raises is logged and followed
    /// by the next one after the period.
    void operator()();

    /// Tells the thread to end. Waits for a running pass; after the return no pass begins. Callable from any thread,
    /// more than once.
    void StopThread();

    bool Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) override;
    std::string GetClassName() override;

    /// Logs the settings in force as one message.
    /// @throws qstd::Exception "invalid value" when the type of a selected board has no name.
    void LogProperties() const;

    /// One pass over all sensors. A board or sensor that is missing or raises is logged and passed over.
    void Protect() const;

private:
    void ReadSettings();
    static void ProtectBoard(const bmc::Uri& uri, const std::string& label, const std::vector<bmc::SensorId>& ids,
                             bmc::Sweep& sweep);
    static void ProtectFrom(bmc::Board& board, const std::string& label, const bmc::SensorId& id, bmc::Sweep& sweep);
    static void SwitchOff(bmc::Board& board);

    SensorIds m_sensors;
    std::uint32_t m_frequency = 60;  ///< seconds from the end of a pass to the start of the next
    WorkerFrame m_frame;
};
