#pragma once

#include <functional>

#include "qapp/health.h"
#include "qapp/service_notifier.h"
#include "qapp/signals.h"

namespace qapp {

/// What the main thread does while the service runs: sleeps, takes signals, feeds the service manager's watchdog
/// as long as the service is well, and watches for the calendar clock being set. For the main thread.
class MainLoop {
public:
    /// @param onReload called after the log was opened anew, when files are to be read anew, too
    MainLoop(Signals& signals, const ServiceNotifier& notifier, const Health& health, std::function<void()> onReload);
    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;
    ~MainLoop();

    /// Returns when a stop was asked for.
    void Run();

private:
    void ArmClockWatch() const;
    void OnSignals();
    void OnClockWatch() const;

    Signals& m_signals;
    const ServiceNotifier& m_notifier;
    const Health& m_health;
    const std::function<void()> m_onReload;
    int m_clockWatch;  ///< a timer that is only there to be cancelled when the calendar clock is set
};

}  // namespace qapp
