// The order of requests, and what the stop of the service lets through.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "bmc/ipmi/request_queue.h"
#include "bmc/ipmi/stop_limit.h"

namespace {

using bmc::ipmi::Failure;
using bmc::ipmi::Job;
using bmc::ipmi::Purpose_e;
using bmc::ipmi::Request;
using bmc::ipmi::RequestQueue;
using bmc::ipmi::Response;
using bmc::ipmi::SteadyTime;
using bmc::ipmi::StopLimit;
using testing::ElementsAre;

std::shared_ptr<Job> Push(RequestQueue& queue, Purpose_e purpose, std::size_t port = 0) {
    auto job = std::make_shared<Job>(port, purpose, std::vector<Request>(2));
    queue.Push(job);
    return job;
}

/// Takes all jobs out in their turn.
std::vector<std::shared_ptr<Job>> Drain(RequestQueue& queue) {
    std::vector<std::shared_ptr<Job>> jobs;
    while (auto job = queue.Front()) {
        queue.Remove(*job);
        jobs.push_back(job);
    }
    return jobs;
}

TEST(RequestQueue, Front_IsTheHighestPurpose_AndTheOldestWithin) {
    RequestQueue queue;
    const auto sweep = Push(queue, Purpose_e::sweeping);
    const auto read1 = Push(queue, Purpose_e::reading);
    const auto read2 = Push(queue, Purpose_e::reading);
    const auto verify = Push(queue, Purpose_e::verifying);
    const auto write = Push(queue, Purpose_e::writing);
    const auto power = Push(queue, Purpose_e::switching);
    EXPECT_THAT(Drain(queue), ElementsAre(power, verify, write, read1, read2, sweep));
}

TEST(RequestQueue, Empty_HasNoFront) {
    EXPECT_EQ(RequestQueue().Front(), nullptr);
}

TEST(RequestQueue, TakeAll_TakesWhatIsMeant) {
    RequestQueue queue;
    const auto first = Push(queue, Purpose_e::reading, 1);
    const auto second = Push(queue, Purpose_e::sweeping, 2);
    const auto third = Push(queue, Purpose_e::switching, 1);
    EXPECT_THAT(queue.TakeAll([](const Job& job) { return job.port == 1; }), ElementsAre(third, first));
    EXPECT_THAT(Drain(queue), ElementsAre(second));
}

TEST(Job, Finish_LeavesWhatIsAnswered) {
    Job job(0, Purpose_e::sweeping, std::vector<Request>(3));
    job.outcomes[0] = Response{};
    job.done = 1;
    job.Finish({Failure::Kind_e::noAnswer, "silent", false});
    EXPECT_TRUE(job.IsFinished());
    EXPECT_TRUE(std::holds_alternative<Response>(job.outcomes[0]));
    EXPECT_EQ(std::get<Failure>(job.outcomes[1]).text, "silent");
    EXPECT_EQ(std::get<Failure>(job.outcomes[2]).text, "silent");
}

TEST(StopLimit, LetsThroughPowerAndVerifyingOfAnybody_WritesOfTheStopperOnly) {
    const std::thread::id stopper = std::this_thread::get_id();
    const std::thread::id other;
    const StopLimit limit{SteadyTime(std::chrono::seconds(10)), std::chrono::seconds(20), stopper};
    EXPECT_TRUE(limit.LetsThrough(Purpose_e::switching, other));
    EXPECT_TRUE(limit.LetsThrough(Purpose_e::verifying, other));
    EXPECT_TRUE(limit.LetsThrough(Purpose_e::writing, stopper));
    EXPECT_FALSE(limit.LetsThrough(Purpose_e::writing, other));
    EXPECT_FALSE(limit.LetsThrough(Purpose_e::reading, stopper));
    EXPECT_FALSE(limit.LetsThrough(Purpose_e::sweeping, stopper));
}

TEST(StopLimit, LastMoment_IsTheDeadline_ThePatienceLaterForWhatIsLetThrough) {
    const std::thread::id stopper = std::this_thread::get_id();
    const SteadyTime deadline(std::chrono::seconds(10));
    const StopLimit limit{deadline, std::chrono::seconds(20), stopper};
    const SteadyTime before = deadline - std::chrono::seconds(1);
    const SteadyTime after = deadline + std::chrono::seconds(1);
    EXPECT_EQ(limit.LastMoment(Purpose_e::reading, stopper, before), deadline);
    EXPECT_EQ(limit.LastMoment(Purpose_e::writing, stopper, before), deadline + std::chrono::seconds(20));
    EXPECT_EQ(limit.LastMoment(Purpose_e::writing, stopper, after), after + std::chrono::seconds(20));
    EXPECT_FALSE(limit.HasPassed(before));
    EXPECT_TRUE(limit.HasPassed(deadline));
}

}  // namespace
