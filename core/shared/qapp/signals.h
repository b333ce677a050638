#pragma once

namespace qapp {

/// The signals that steer a service, taken from a descriptor instead of handlers. Constructed before the first thread,
/// so that every thread inherits the blocked signals. For the main thread.
///
/// SIGTERM and SIGINT ask for a stop, SIGHUP for new log files; SIGPIPE is ignored.
class Signals {
public:
    /// Blocks the signals. @throws qstd::Exception when the system refuses.
    Signals();
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;
    ~Signals();

    /// Becomes readable when a signal is there.
    int GetDescriptor() const noexcept { return m_descriptor; }

    /// Takes all signals that are there.
    void Poll();

    /// Whether a stop was asked for. Never goes back.
    bool IsStopRequested() const noexcept { return m_isStopRequested; }

    /// Whether a signal that asks for a stop waits to be taken. Any thread.
    static bool IsStopPending() noexcept;

    /// Whether new log files were asked for since the last call.
    bool TakeReopenRequest() noexcept;

private:
    int m_descriptor;
    bool m_isStopRequested = false;
    bool m_isReopenRequested = false;
};

}  // namespace qapp
