#pragma once

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "bmc/ipmi/controller.h"
#include "bmc/ipmi/reachability.h"
#include "bmc/ipmi/request_queue.h"
#include "bmc/ipmi/session.h"
#include "bmc/ipmi/stop_limit.h"

namespace bmc::ipmi {

/// The thread of a Controller, and what callers and the thread share. The thread alone uses the session; a caller
/// hands jobs over and waits. Nobody waits for a caller: it gives up by itself what lasts too long, and interrupts what
/// is under way when the stop of the service wants that. All operations but Start and Stop may be called from any
/// thread, also after Stop.
class ControllerWorker {
public:
    ControllerWorker(const ControllerOptions& options, const ControllerTiming& timing, Reachability reachability,
                     std::unique_ptr<Transport> transport, LogFunction log);
    ~ControllerWorker() = default;
    ControllerWorker(const ControllerWorker&) = delete;
    ControllerWorker& operator=(const ControllerWorker&) = delete;

    /// To be called once each, by one thread.
    void Start();
    /// Gives up everything, ends the session and the thread, within 200 ms.
    void Stop();

    /// Hands requests over. Those that fail at once have their outcomes already.
    std::shared_ptr<Job> Submit(std::size_t port, Purpose_e purpose, std::vector<Request> requests);

    /// Waits for an outcome, and takes it.
    Outcome Await(Job& job, std::size_t index);

    /// Gives up what was not sent of a job.
    void GiveUp(Job& job);

    std::optional<bool> IsAnswering(std::size_t port) const;
    unsigned long GetReturns(std::size_t port) const;
    void LimitAccesses(const StopLimit& limit);
    std::size_t CountJobs() const;

private:
    using Lock = std::unique_lock<std::mutex>;

    /// An exchange, or the opening of a session, that is under way.
    struct Running {
        const Job* job;  ///< that it is for; null: it is the thread's own, a probe for example
        bool wasInterrupted = false;
    };

    // The thread's side, all with the lock held, which is released while the transport is used or a message logged:
    void Run();
    bool DoNext(Lock& lock);
    void WaitForWork(Lock& lock);
    bool MayProbeBefore(const Job* job, SteadyTime now) const;
    bool NeedsSession(const Job* job, SteadyTime now) const;
    void OpenSession(Lock& lock, const std::shared_ptr<Job>& job);
    void ProbeBoard(Lock& lock, std::size_t port);
    void KeepAlive(Lock& lock);
    void ExecuteNext(Lock& lock, const std::shared_ptr<Job>& job);
    template <class Exchange>
    ExchangeResult Perform(Lock& lock, const Job* job, const Exchange& exchange);
    void TakeIn(Lock& lock, std::size_t port, const ExchangeResult& result);
    Outcome OutcomeOf(const Job& job, ExchangeResult result) const;
    void FailJobsOfTheSilent();
    void WakeCaller(Job& job, SteadyTime now) const;

    // The callers' side, with the lock held:
    std::optional<Failure> WhyGivenUp(const Job& job, SteadyTime now) const;
    SteadyTime NextLook(const Job& job, SteadyTime now) const;
    void InterruptWhatIsBrokenOff();
    bool TakeLastTry(const Job& job);

    // Both sides:
    bool HasLimitPassed(SteadyTime now) const { return m_limit && m_limit->HasPassed(now); }
    bool IsLetThrough(const Job* job) const;
    TryTimes TimesOfRead(const Job* job) const;
    TryTimes TimesOfWrite(const Job* job) const;
    std::chrono::milliseconds TimeOfOpening(const Job* job) const;

    const ControllerOptions m_options;
    const ControllerTiming m_timing;
    const LogFunction m_log;
    std::unique_ptr<Transport> m_transport;
    Session m_session;          ///< used by the thread only, with or without the lock
    SteadyTime m_lastUse{};     ///< of the session; the thread's, as well as the next
    SteadyTime m_probePause{};  ///< until then no board is probed while others wait

    mutable std::mutex m_mutex;  ///< guards all below
    std::condition_variable m_work;
    std::condition_variable m_ended;
    RequestQueue m_queue;
    Reachability m_reachability;
    std::optional<StopLimit> m_limit;
    bool m_hasLastTry = false;  ///< somebody was silent when the stop began, and was not asked since
    std::optional<Running> m_running;
    bool m_isWaiting = false;  ///< the thread has nothing to do
    bool m_isStopping = false;
    bool m_isClosing = false;  ///< the thread does its last: it closes the session
    bool m_hasEnded = false;
    SteadyTime m_stopTime{};

    std::thread m_thread;
};

}  // namespace bmc::ipmi
