#include "bmc/ipmi/request_queue.h"

#include <utility>

namespace bmc::ipmi {

void Job::Finish(const Failure& failure) {
    for (; done < outcomes.size(); ++done) {
        outcomes[done] = failure;
    }
}

void RequestQueue::Push(const std::shared_ptr<Job>& job) {
    m_jobs[Rank(job->purpose)].push_back(job);
}

std::shared_ptr<Job> RequestQueue::Front() const {
    for (const auto& jobs : m_jobs) {
        if (!jobs.empty()) {
            return jobs.front();
        }
    }
    return nullptr;
}

void RequestQueue::Remove(const Job& job) {
    m_jobs[Rank(job.purpose)].remove_if([&](const std::shared_ptr<Job>& each) { return each.get() == &job; });
}

std::vector<std::shared_ptr<Job>> RequestQueue::TakeAll(const std::function<bool(const Job&)>& isMeant) {
    std::vector<std::shared_ptr<Job>> taken;
    for (auto& jobs : m_jobs) {
        for (auto each = jobs.begin(); each != jobs.end();) {
            if (isMeant(**each)) {
                taken.push_back(std::move(*each));
                each = jobs.erase(each);
            } else {
                ++each;
            }
        }
    }
    return taken;
}

std::size_t RequestQueue::Count() const noexcept {
    std::size_t count = 0;
    for (const auto& jobs : m_jobs) {
        count += jobs.size();
    }
    return count;
}

void RequestQueue::WakeAll() const {
    for (const auto& jobs : m_jobs) {
        for (const std::shared_ptr<Job>& each : jobs) {
            each->ready.notify_one();
        }
    }
}

std::size_t RequestQueue::Rank(Purpose_e purpose) {
    switch (purpose) {
        case Purpose_e::switching:
            return 0;
        case Purpose_e::writing:
        case Purpose_e::verifying:
            return 1;
        case Purpose_e::reading:
            return 2;
        case Purpose_e::sweeping:
            break;
    }
    return c_ranks - 1;
}

}  // namespace bmc::ipmi
