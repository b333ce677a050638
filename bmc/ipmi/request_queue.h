#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "bmc/ipmi/link.h"
#include "bmc/ipmi/message.h"
#include "bmc/ipmi/transport.h"

namespace bmc::ipmi {

/// Why a request has no answer: becomes an exception in the thread of the caller.
struct Failure {
    enum class Kind_e {
        noAnswer,   ///< NoAnswer
        brokenOff,  ///< BrokenOff
        other,      ///< qstd::Exception
    };
    Kind_e kind = Kind_e::other;
    std::string text{};
    bool wasSent = false;  ///< of NoAnswer
};

/// What became of a request; nothing yet: std::monostate.
using Outcome = std::variant<std::monostate, Response, Failure>;

/// Requests that a caller handed over together. What is not constant is guarded by the lock of its queue.
struct Job {
    Job(std::size_t thePort, Purpose_e thePurpose, std::vector<Request> theRequests)
        : port(thePort), purpose(thePurpose), requests(std::move(theRequests)), outcomes(requests.size()) {}

    const std::size_t port;  ///< whom the requests are for, see Reachability
    const Purpose_e purpose;
    const std::vector<Request> requests;
    const std::thread::id caller = std::this_thread::get_id();
    const SteadyTime begin = std::chrono::steady_clock::now();

    std::vector<Outcome> outcomes;
    std::size_t done = 0;                ///< how many outcomes there are; the request after them is next, or under way
    bool isStarted = false;              ///< its first request is or was under way
    bool isLastTry = false;              ///< is made although its board is known not to answer
    std::optional<std::size_t> awaited;  ///< the outcome that the caller waits for
    SteadyTime lastWake{};               ///< when the caller was last woken
    std::condition_variable ready;       ///< wakes the caller

    bool IsFinished() const noexcept { return done == requests.size(); }

    /// Gives every request that has no outcome @p failure.
    void Finish(const Failure& failure);
};

/// Jobs in the order in which they are to be executed: what switches power, then what writes and verifies, then what
/// reads, then what sweeps; within each of these in the order of their coming. Not locked.
class RequestQueue {
public:
    void Push(const std::shared_ptr<Job>& job);

    /// The job whose turn it is, null when there is none. It stays where it is.
    std::shared_ptr<Job> Front() const;

    /// Takes @p job out if it is still in.
    void Remove(const Job& job);

    /// Takes all jobs out that @p isMeant says.
    std::vector<std::shared_ptr<Job>> TakeAll(const std::function<bool(const Job&)>& isMeant);

    std::size_t Count() const noexcept;

    /// Wakes the callers of all jobs.
    void WakeAll() const;

private:
    static constexpr std::size_t c_ranks = 4;
    static std::size_t Rank(Purpose_e purpose);

    std::array<std::list<std::shared_ptr<Job>>, c_ranks> m_jobs;
};

}  // namespace bmc::ipmi
