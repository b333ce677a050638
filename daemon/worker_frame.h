#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "qapp/health.h"
#include "qstd/source_location.h"

/// What every worker has: its thread, the sleep between two passes, and the stop. A worker holds it as a member, starts
/// it as the last statement of its constructor, and stops and joins it first of all in its destructor.
///
/// The worker's thread holds the lock for the whole of its loop and gives it away only in Sleep. So whoever asks for a
/// stop waits for a running pass, and no pass begins after it was asked for.
class WorkerFrame {
public:
    WorkerFrame() = default;
    WorkerFrame(const WorkerFrame&) = delete;
    WorkerFrame& operator=(const WorkerFrame&) = delete;
    ~WorkerFrame() = default;

    /// Starts the thread, which runs the call operator of @p worker.
    template <class Worker>
    void Start(Worker& worker) {
        m_thread = std::thread(std::ref(worker));
    }

    /// Asks for the end, for good. Any thread, any number of times.
    void Stop();

    /// Waits for the end of the thread.
    void Join() { m_thread.join(); }

    /// For the worker's thread: keeps it from running passes, or lets it, as long as no stop was asked for.
    void SetDisabled(bool isDisabled);

    /// Whether no pass may begin: disabled, or asked to stop.
    bool IsStopped() const;

    /// For the worker's thread: runs @p pass, sleeps for @p period, and so on until no pass may begin. Without anything
    /// to do (@p hasWork false) none does. @throws what the pass throws; the loop has then ended.
    template <class Pass>
    void RunPasses(bool hasWork, std::chrono::seconds period, const Pass& pass) {
        std::unique_lock<std::mutex> lock = Lock();
        if (!hasWork) {
            DisableLocked();
        }
        while (!IsStoppedLocked()) {
            pass();
            Sleep(lock, period);
        }
    }

    // For a loop of the worker's own.
    std::unique_lock<std::mutex> Lock() const { return std::unique_lock<std::mutex>(m_mutex); }
    /// The same as IsStopped, under the lock.
    bool IsStoppedLocked() const noexcept { return m_stopRequested || m_isDisabled; }
    /// As SetDisabled(true), under the lock.
    void DisableLocked() noexcept { m_isDisabled = true; }
    /// Sleeps for @p period with the lock given away; a stop, and a calendar clock that is set, end it.
    void Sleep(std::unique_lock<std::mutex>& lock, std::chrono::seconds period);

    /// For the worker's thread, without the lock: sleeps until a stop is asked for. What a worker does when an access
    /// to a board was broken off because the service stops: its own stop is then about to come, and is no problem to
    /// tell.
    void AwaitStop();

private:
    mutable std::mutex m_mutex;    ///< guards the two below
    bool m_stopRequested = false;  ///< never cleared
    bool m_isDisabled = false;
    std::condition_variable m_cond;
    std::thread m_thread;
};

/// To be called in a handler around a worker's thread or pass: logs the exception that is being handled as an error,
/// @p prefix before its text, and traces it at level 1 from the calling function with @p tracePrefix before its text.
/// What is no std::exception is logged as @p unknown, whole, so that who looks for a message of the log finds it in the
/// sources.
/// @return the exception's text
std::string LogCaught(const std::string& prefix, const std::string& unknown, const std::string& tracePrefix,
                      qstd::SourceLocation where = qstd::SourceLocation::current());

/// To be called in the handler that ends a worker, after LogCaught: tells the service manager.
/// @param worker its name, for people
void TellOfEnd(const std::string& worker, const std::string& why, qapp::Health::Need_e need);

/// To be called in a handler inside a pass: logs the exception that is being handled as an error, @p subject before it,
/// so that the pass can go on.
/// @throws bmc::BrokenOff when it is one: the pass is to end.
void LogAndGoOn(const std::string& subject);
