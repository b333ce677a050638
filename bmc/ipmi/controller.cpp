#include "bmc/ipmi/controller.h"

#include <utility>
#include <variant>

#include "bmc/broken_off.h"
#include "bmc/ipmi/controller_worker.h"
#include "bmc/ipmi/failures.h"

namespace bmc::ipmi {

namespace {

/// Who asks: what a caller's exceptions are told with.
struct Subject {
    std::string label;    ///< "io/1"
    std::string address;  ///< "10.0.0.11:623"
};

/// The response in @p outcome, or the exception that it stands for.
Response Unwrap(Outcome outcome, const Subject& subject) {
    if (auto* const response = std::get_if<Response>(&outcome)) {
        return std::move(*response);
    }
    const Failure& failure = std::get<Failure>(outcome);
    if (failure.kind == Failure::Kind_e::brokenOff) {
        throw BrokenOff(subject.label);
    }
    const std::string who =
        subject.label == subject.address ? subject.label : subject.label + " (" + subject.address + ")";
    if (failure.kind == Failure::Kind_e::noAnswer) {
        throw NoAnswer(who + ": " + failure.text, failure.wasSent);
    }
    throw qstd::Exception(who + ": " + failure.text);
}

class JobBatch : public Batch {
public:
    JobBatch(std::shared_ptr<ControllerWorker> worker, std::shared_ptr<Job> job, Subject subject)
        : m_worker(std::move(worker)), m_job(std::move(job)), m_subject(std::move(subject)) {}
    ~JobBatch() override { m_worker->GiveUp(*m_job); }

    Response Await(std::size_t index) override { return Unwrap(m_worker->Await(*m_job, index), m_subject); }

private:
    const std::shared_ptr<ControllerWorker> m_worker;  // outlives the controller if need be
    const std::shared_ptr<Job> m_job;
    const Subject m_subject;
};

class PortLink : public Link {
public:
    PortLink(std::shared_ptr<ControllerWorker> worker, std::size_t port, Subject subject)
        : m_worker(std::move(worker)), m_port(port), m_subject(std::move(subject)) {}

    Response Execute(const Request& request, Purpose_e purpose) override {
        const std::shared_ptr<Job> job = m_worker->Submit(m_port, purpose, {request});
        return Unwrap(m_worker->Await(*job, 0), m_subject);
    }
    std::unique_ptr<Batch> Begin(std::vector<Request> requests) override {
        return std::make_unique<JobBatch>(m_worker, m_worker->Submit(m_port, Purpose_e::sweeping, std::move(requests)),
                                          m_subject);
    }
    std::optional<bool> IsAnswering() const override { return m_worker->IsAnswering(m_port); }
    unsigned long GetReturns() const override { return m_worker->GetReturns(m_port); }

private:
    const std::shared_ptr<ControllerWorker> m_worker;
    const std::size_t m_port;
    const Subject m_subject;
};

}  // namespace

Controller::Controller(const ControllerOptions& options, const std::vector<BoardOnController>& boards,
                       std::unique_ptr<Transport> transport, LogFunction log, const ControllerTiming& timing) {
    Reachability reachability(options.name, options.session, boards, timing.leastBackOff, timing.mostBackOff);
    std::vector<std::pair<std::size_t, Subject>> ports;
    for (const BoardOnController& board : boards) {
        const std::size_t port = reachability.PortOf(board.target);
        ports.emplace_back(port, Subject{board.label, reachability.AddressOf(port)});
    }
    m_worker = std::make_shared<ControllerWorker>(options, timing, std::move(reachability), std::move(transport),
                                                  std::move(log));
    m_ownLink = std::make_unique<PortLink>(m_worker, 0, Subject{options.name, options.name});
    for (const auto& [port, subject] : ports) {
        m_links.push_back(std::make_unique<PortLink>(m_worker, port, subject));
    }
    m_worker->Start();
}

Controller::~Controller() {
    m_worker->Stop();
}

Link& Controller::LinkTo(std::size_t board) {
    return *m_links.at(board);
}

Link& Controller::OwnLink() {
    return *m_ownLink;
}

void Controller::LimitAccesses(const StopLimit& limit) {
    m_worker->LimitAccesses(limit);
}

std::size_t Controller::CountJobs() const {
    return m_worker->CountJobs();
}

}  // namespace bmc::ipmi
