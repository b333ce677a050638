// Longer than most: the two sides of one lock, the callers' and the thread's, are read together.
#include "bmc/ipmi/controller_worker.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include "qstd/thread_name.h"

namespace bmc::ipmi {

namespace {

using std::chrono::milliseconds;

// What a service that stops, and boards that do not answer, can afford.
constexpr milliseconds c_lastTry{700};
constexpr milliseconds c_lastOpening{600};

// Of the end of a controller, which lasts 200 ms at the most: what is under way may come to its end that long; the
// session is closed by then; an interruption that was lost is repeated after that time.
constexpr milliseconds c_endOfExchange{40};
constexpr milliseconds c_endOfSession{140};
constexpr milliseconds c_interruptAgain{10};

/// How long closing a session in the middle of the work may take.
constexpr milliseconds c_politeness{100};

/// Probes of boards that do not answer take a fifth of the time at most while others are to be asked: a pause after
/// each, in lengths of the probe.
constexpr int c_pauseAfterProbe = 4;

/// The caller of a batch is woken that often at the most, not for each answer; it looks by itself in case the answer
/// after the one that it waits for takes long.
constexpr milliseconds c_wakePeriod{1};
constexpr milliseconds c_lookPeriod{10};

SteadyTime Now() {
    return std::chrono::steady_clock::now();
}

bool IsSentOnce(Purpose_e purpose) {
    return purpose == Purpose_e::switching || purpose == Purpose_e::writing;
}

Failure ClosedFailure() {
    return {Failure::Kind_e::other, "the connection was closed: the service stops", false};
}

}  // namespace

ControllerWorker::ControllerWorker(const ControllerOptions& options, const ControllerTiming& timing,
                                   Reachability reachability, std::unique_ptr<Transport> transport, LogFunction log)
    : m_options(options),
      m_timing(timing),
      m_log(std::move(log)),
      m_transport(std::move(transport)),
      m_session(*m_transport, std::min(c_politeness, options.timeout / 10)),
      m_reachability(std::move(reachability)) {}

void ControllerWorker::Start() {
    m_thread = std::thread([this] { Run(); });
}

void ControllerWorker::Stop() {
    Lock lock(m_mutex);
    m_isStopping = true;
    m_stopTime = Now();
    for (const std::shared_ptr<Job>& job : m_queue.TakeAll([](const Job&) { return true; })) {
        job->Finish(ClosedFailure());
        job->ready.notify_one();
    }
    m_work.notify_one();
    m_ended.wait_until(lock, m_stopTime + c_endOfExchange, [this] { return m_hasEnded || m_isClosing; });
    while (!m_hasEnded) {
        if (m_running) {
            m_running->wasInterrupted = true;
            m_transport->Interrupt();
        }
        m_ended.wait_for(lock, c_interruptAgain, [this] { return m_hasEnded; });
    }
    lock.unlock();
    m_thread.join();
    m_transport.reset();
}

std::shared_ptr<Job> ControllerWorker::Submit(std::size_t port, Purpose_e purpose, std::vector<Request> requests) {
    auto job = std::make_shared<Job>(port, purpose, std::move(requests));
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (const std::optional<Failure> end = WhyGivenUp(*job, job->begin)) {
        job->Finish(*end);
    } else if (m_reachability.IsSilent(port) && !(job->isLastTry = TakeLastTry(*job))) {
        job->Finish(m_reachability.WhySilent(port));
    } else if (!job->IsFinished()) {
        m_queue.Push(job);
        if (m_isWaiting) {
            m_work.notify_one();
        }
    }
    return job;
}

Outcome ControllerWorker::Await(Job& job, std::size_t index) {
    Lock lock(m_mutex);
    Outcome& outcome = job.outcomes.at(index);
    job.awaited = index;
    while (std::holds_alternative<std::monostate>(outcome)) {
        const SteadyTime now = Now();
        if (HasLimitPassed(now)) {
            InterruptWhatIsBrokenOff();
        }
        if (const std::optional<Failure> end = WhyGivenUp(job, now)) {
            m_queue.Remove(job);
            job.Finish(*end);
        } else {
            job.ready.wait_until(lock, NextLook(job, now));
        }
    }
    job.awaited.reset();
    return std::move(outcome);
}

void ControllerWorker::GiveUp(Job& job) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!job.IsFinished()) {
        m_queue.Remove(job);
        job.Finish({});
    }
}

std::optional<Failure> ControllerWorker::WhyGivenUp(const Job& job, SteadyTime now) const {
    if (m_isStopping) {
        return ClosedFailure();
    }
    if (m_limit && now >= m_limit->LastMoment(job.purpose, job.caller, job.begin)) {
        if (!IsLetThrough(&job)) {
            return Failure{Failure::Kind_e::brokenOff};
        }
        return Failure{Failure::Kind_e::noAnswer,
                       fmt::format("no answer within {} ms: the access was given up", m_limit->patience.count()),
                       job.isStarted};
    }
    if (job.purpose != Purpose_e::sweeping && !job.isStarted && now >= job.begin + m_timing.queuePatience) {
        return Failure{Failure::Kind_e::other,
                       fmt::format("the controller is busy: {} waited {} ms for its turn",
                                   CommandName(job.requests.front()), m_timing.queuePatience.count())};
    }
    return std::nullopt;
}

SteadyTime ControllerWorker::NextLook(const Job& job, SteadyTime now) const {
    SteadyTime next = job.requests.size() > 1 ? now + c_lookPeriod : SteadyTime::max();
    if (job.purpose != Purpose_e::sweeping && !job.isStarted) {
        next = std::min(next, job.begin + m_timing.queuePatience);
    }
    if (m_limit) {
        next = std::min(next, m_limit->LastMoment(job.purpose, job.caller, job.begin));
        // Whoever waits beyond the deadline sees to it that nothing is in the way.
        next = std::min(next, m_limit->HasPassed(now) ? now + c_interruptAgain : m_limit->deadline);
    }
    return next;
}

void ControllerWorker::InterruptWhatIsBrokenOff() {
    if (m_running && !IsLetThrough(m_running->job)) {
        m_running->wasInterrupted = true;
        m_transport->Interrupt();
    }
}

std::optional<bool> ControllerWorker::IsAnswering(std::size_t port) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_reachability.IsAnswering(port);
}

unsigned long ControllerWorker::GetReturns(std::size_t port) const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_reachability.GetReturns(port);
}

void ControllerWorker::LimitAccesses(const StopLimit& limit) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    if (!m_limit) {
        m_hasLastTry = m_reachability.NextProbe().has_value();
    }
    m_limit = limit;
    m_queue.WakeAll();
}

std::size_t ControllerWorker::CountJobs() const {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_queue.Count();
}

void ControllerWorker::Run() {
    qstd::SetThreadName("ipmi " + m_options.name);
    Lock lock(m_mutex);
    while (!m_isStopping) {
        if (!DoNext(lock)) {
            WaitForWork(lock);
        }
    }
    m_isClosing = true;
    m_ended.notify_one();
    lock.unlock();
    m_session.Close(m_stopTime + c_endOfSession);
    lock.lock();
    m_hasEnded = true;
    m_ended.notify_one();
}

bool ControllerWorker::DoNext(Lock& lock) {
    const std::shared_ptr<Job> job = m_queue.Front();
    const SteadyTime now = Now();
    const bool isLimited = HasLimitPassed(now);
    if (job && isLimited && !IsLetThrough(job.get())) {
        m_queue.Remove(*job);
        job->Finish({Failure::Kind_e::brokenOff});
        job->ready.notify_one();
        return true;
    }
    if (NeedsSession(job.get(), now)) {
        OpenSession(lock, job);
        return true;
    }
    const std::optional<Reachability::Due> probe = m_reachability.NextProbe();
    if (probe && now >= probe->time && !isLimited && m_session.IsOpen() && MayProbeBefore(job.get(), now)) {
        ProbeBoard(lock, probe->port);
        return true;
    }
    if (job) {
        ExecuteNext(lock, job);
        return true;
    }
    if (!isLimited && m_session.IsOpen() && now >= m_lastUse + m_timing.keepAlive) {
        KeepAlive(lock);
        return true;
    }
    return false;
}

bool ControllerWorker::MayProbeBefore(const Job* job, SteadyTime now) const {
    return job == nullptr || (job->purpose >= Purpose_e::reading && now >= m_probePause);
}

void ControllerWorker::WaitForWork(Lock& lock) {
    SteadyTime next = SteadyTime::max();
    if (!HasLimitPassed(Now())) {
        if (m_session.IsOpen()) {
            next = m_lastUse + m_timing.keepAlive;
        }
        if (const std::optional<Reachability::Due> probe = m_reachability.NextProbe()) {
            next = std::min(next, probe->time);
        }
    }
    m_isWaiting = true;
    m_work.wait_until(lock, next);
    m_isWaiting = false;
}

bool ControllerWorker::NeedsSession(const Job* job, SteadyTime now) const {
    if (m_session.IsOpen()) {
        return false;
    }
    if (HasLimitPassed(now)) {
        return job != nullptr;
    }
    // While the controller is silent nothing is queued but a last try.
    return job != nullptr || !m_reachability.IsControllerSilent() || now >= m_reachability.NextProbe()->time;
}

template <class Exchange>
ExchangeResult ControllerWorker::Perform(Lock& lock, const Job* job, const Exchange& exchange) {
    m_running = Running{job};
    lock.unlock();
    ExchangeResult result = exchange();
    m_lastUse = Now();
    lock.lock();
    if (m_running->wasInterrupted) {
        m_session.ExpectStrayInterrupt();
    }
    m_running.reset();
    return result;
}

void ControllerWorker::OpenSession(Lock& lock, const std::shared_ptr<Job>& job) {
    const milliseconds time = TimeOfOpening(job.get());
    const ExchangeResult result = Perform(lock, job.get(), [&] { return m_session.Establish(time); });
    TakeIn(lock, 0, result);
    FailJobsOfTheSilent();
}

void ControllerWorker::ProbeBoard(Lock& lock, std::size_t port) {
    const Target target = m_reachability.TargetOf(port);
    const SteadyTime begin = Now();
    const ExchangeResult result = Perform(lock, nullptr, [&] { return m_session.Probe(target, m_options.timeout); });
    m_probePause = m_lastUse + c_pauseAfterProbe * (m_lastUse - begin);
    TakeIn(lock, port, result);
}

void ControllerWorker::KeepAlive(Lock& lock) {
    const TryTimes times = TimesOfRead(nullptr);
    const ExchangeResult result =
        Perform(lock, nullptr, [&] { return m_session.Read(Target{}, Request(NetFn_e::app, 0x01), times); });
    TakeIn(lock, 0, result);
    FailJobsOfTheSilent();
}

void ControllerWorker::ExecuteNext(Lock& lock, const std::shared_ptr<Job>& job) {
    job->isStarted = true;
    const Target target = m_reachability.TargetOf(job->port);
    const Request& request = job->requests[job->done];
    const bool isWrite = IsSentOnce(job->purpose);
    const TryTimes times = isWrite ? TimesOfWrite(job.get()) : TimesOfRead(job.get());
    ExchangeResult result = Perform(lock, job.get(), [&] {
        return isWrite ? m_session.Write(target, request, times) : m_session.Read(target, request, times);
    });
    const bool isAnswered = result.verdict == Verdict_e::answered;
    TakeIn(lock, job->port, result);
    if (!job->IsFinished()) {
        job->outcomes[job->done] = OutcomeOf(*job, std::move(result));
        ++job->done;
        if (job->IsFinished()) {
            m_queue.Remove(*job);
        }
        WakeCaller(*job, m_lastUse);
    }
    if (!isAnswered) {
        FailJobsOfTheSilent();
    }
}

void ControllerWorker::TakeIn(Lock& lock, std::size_t port, const ExchangeResult& result) {
    m_reachability.Take(port, result, m_lastUse, qstd::Time(qstd::Time::c_current));
    if (m_reachability.HasMessages()) {
        const Reachability::Messages messages = m_reachability.TakeMessages();
        lock.unlock();
        for (const auto& [level, text] : messages) {
            m_log(level, text);
        }
        lock.lock();
    }
}

Outcome ControllerWorker::OutcomeOf(const Job& job, ExchangeResult result) const {
    if (result.verdict == Verdict_e::answered) {
        return std::move(result.response);
    }
    if (result.IsInterrupted() && m_limit && !IsLetThrough(&job)) {
        return Failure{Failure::Kind_e::brokenOff};
    }
    // A wrong answer to what was sent once leaves open whether it was executed, as none does.
    const bool isAnswered = result.verdict == Verdict_e::undecided && !IsSentOnce(job.purpose);
    return Failure{isAnswered ? Failure::Kind_e::other : Failure::Kind_e::noAnswer,
                   CommandName(job.requests[job.done]) + ": " + result.text, result.wasSent};
}

void ControllerWorker::FailJobsOfTheSilent() {
    // The last try for a board behind the controller is made although the board is known to be silent.
    const auto isSilent = [this](const Job& job) {
        return m_reachability.IsControllerSilent() || (m_reachability.IsSilent(job.port) && !job.isLastTry);
    };
    for (const std::shared_ptr<Job>& job : m_queue.TakeAll(isSilent)) {
        job->Finish(m_reachability.WhySilent(job->port));
        job->ready.notify_one();
    }
}

void ControllerWorker::WakeCaller(Job& job, SteadyTime now) const {
    const bool isThere = job.awaited && *job.awaited < job.done;
    if (isThere && (job.IsFinished() || now - job.lastWake >= c_wakePeriod)) {
        job.lastWake = now;
        job.ready.notify_one();
    }
}

bool ControllerWorker::TakeLastTry(const Job& job) {
    return IsSentOnce(job.purpose) && IsLetThrough(&job) && std::exchange(m_hasLastTry, false);
}

bool ControllerWorker::IsLetThrough(const Job* job) const {
    return m_limit && job != nullptr && m_limit->LetsThrough(job->purpose, job->caller);
}

TryTimes ControllerWorker::TimesOfRead(const Job* job) const {
    if (IsLetThrough(job)) {
        return TimesOfWrite(job);
    }
    const milliseconds first = m_options.timeout * std::max(m_options.retries, 1U);
    return {first, first + m_options.timeout};
}

TryTimes ControllerWorker::TimesOfWrite(const Job* job) const {
    const milliseconds timeout = m_options.timeout;
    if (IsLetThrough(job)) {
        return {std::min(timeout, c_lastTry), std::min(timeout, c_lastTry) + std::min(timeout, c_lastOpening)};
    }
    return {timeout, 2 * timeout};
}

milliseconds ControllerWorker::TimeOfOpening(const Job* job) const {
    return IsLetThrough(job) ? std::min(m_options.timeout, c_lastOpening) : m_options.timeout * (m_options.retries + 1);
}

}  // namespace bmc::ipmi
