#pragma once

#include <memory>
#include <string>
#include <vector>

#include "bmc/uri.h"
#include "qcfg/element.h"
#include "qcfg/serializable.h"
#include "worker_frame.h"

/// Keeps the clocks of the boards' controllers in step with the clock of the host: compares them every period and sets
/// those that are off by the allowed difference or more. The board of the host, whose clock is the source, is never
/// set.
///
/// Settings: section "timesync". The object's thread does all the work; other threads may call StopThread only.
class TimeSync : public qcfg::ISerializable {
public:
    /// The daemon's one time synchronization. The first call constructs it, which starts its thread. Callable from any
    /// thread.
    static TimeSync& GetInstance();

    /// Starts the thread. The daemon's time synchronization comes from GetInstance; tests make their own.
    TimeSync();
    ~TimeSync() override;

    /// The thread's body: settings, report, passes until it is told to stop. A pass that raises is logged and followed
    /// by the next one after the period. When no pass may begin, nothing is logged past the report.
    void operator()();

    /// Tells the thread to end. Waits for a running pass; after the return no pass begins. Callable from any thread,
    /// more than once.
    void StopThread();

    bool Deserialize(const std::vector<std::shared_ptr<qcfg::Element>>& elements) override;
    std::string GetClassName() override;

    /// Logs the settings in force as one message.
    void LogProperties() const;

    /// Takes the boards of the chassis but for the reference: the last board of the host's type or, when there is none,
    /// the last board. Boards that appear later are not seen. Without any board left no pass will begin.
    void UpdateUris();

    /// One pass over all boards. @throws whatever a board raises; the boards behind it are then passed over.
    void SyncronizeBoards() const;

private:
    int m_frequency = 3600;  ///< seconds from the end of a pass to the start of the next
    int m_delta = 2;         ///< seconds by which a board's clock may not differ
    std::vector<bmc::Uri> m_uris;
    WorkerFrame m_frame;
};
