// Whose turn it is: one thread, many callers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "controller_fixture.h"

namespace {

using bmc::ipmi::Batch;
using bmc::ipmi::Purpose_e;
using bmc::ipmi::Request;
using std::chrono::milliseconds;
using test::Elsewhere;
using test::EndOf;
using test::ErrorOf;
using testing::ElementsAre;
using testing::IsEmpty;

class ControllerQueue : public test::ControllerOfTwo {
protected:
    ControllerQueue() { m_options.timeout = std::chrono::seconds(10); }

    /// With the thread in an exchange that lasts until the gate is opened.
    void Occupy() {
        m_fake->SetGate(false);
        m_occupation = Elsewhere([this] { Own().Execute({0x30, 0x01}, Purpose_e::reading); });
        ASSERT_TRUE(AwaitSeen("20:30/01"));
    }
    void OpenGate() { m_fake->SetGate(true); }

    static std::vector<Request> Sweep(std::uint8_t count) {
        std::vector<Request> requests;
        for (std::uint8_t i = 0; i < count; ++i) {
            requests.push_back({0x04, i});
        }
        return requests;
    }

    std::future<std::string> m_occupation;
};

TEST_F(ControllerQueue, Execute_GivesTheAnswer) {
    Start();
    const bmc::ipmi::Response response = Own().Execute(Reading(), Purpose_e::reading);
    EXPECT_EQ(response.completionCode, 0);
    EXPECT_THAT(response.data, ElementsAre(0x04, 0x2d));
    EXPECT_EQ(m_fake->SeenRequests(), std::vector<std::string>{"20:04/2d"});
}

TEST_F(ControllerQueue, Links_ReachTheirTargets) {
    Start();
    Bridged().Execute(Reading(), Purpose_e::reading);
    m_controller->OwnLink().Execute({0x04, 0x20}, Purpose_e::reading);
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("86:04/2d", "20:04/20"));
}

TEST_F(ControllerQueue, WhatWasMadeLater_OvertakesByItsPurpose) {
    StartAndAwait();
    Occupy();
    auto batch = Own().Begin(Sweep(2));
    std::vector<std::future<std::string>> callers;
    std::size_t jobs = 2;
    for (const auto& [command, purpose] : {std::pair{std::uint8_t{0x12}, Purpose_e::reading},
                                           {std::uint8_t{0x13}, Purpose_e::writing},
                                           {std::uint8_t{0x14}, Purpose_e::switching},
                                           {std::uint8_t{0x15}, Purpose_e::verifying}}) {
        callers.push_back(Elsewhere([this, command = command, purpose = purpose] {
            Own().Execute({0x30, command}, purpose);
        }));
        ++jobs;
        ASSERT_TRUE(Await([&] { return m_controller->CountJobs() == jobs; }));
    }
    OpenGate();
    for (auto& caller : callers) {
        EXPECT_EQ(EndOf(caller), "");
    }
    batch->Await(0);
    batch->Await(1);
    EXPECT_THAT(m_fake->SeenRequests(),
                ElementsAre("20:30/01", "20:30/14", "20:30/13", "20:30/15", "20:30/12", "20:04/00", "20:04/01"));
}

TEST_F(ControllerQueue, Batch_IsAnsweredInItsOrder) {
    Start();
    auto batch = Own().Begin(Sweep(60));
    for (std::uint8_t i = 0; i < 60; ++i) {
        EXPECT_THAT(batch->Await(i).data, ElementsAre(0x04, i));
    }
    EXPECT_EQ(m_fake->SeenRequests().size(), 60U);
}

TEST_F(ControllerQueue, Batch_AwaitedBackwards_GivesAllTheSame) {
    Start();
    auto batch = Own().Begin(Sweep(20));
    for (std::uint8_t i = 20; i-- > 0;) {
        EXPECT_THAT(batch->Await(i).data, ElementsAre(0x04, i));
    }
}

TEST_F(ControllerQueue, Batch_LetsWhatIsReadInBetween) {
    StartAndAwait();
    std::future<std::string> reader;
    m_fake->SetHook([&](const std::string& what) {
        if (what == "20:04/05") {
            reader = Elsewhere([&] { Own().Execute({0x30, 0x12}, Purpose_e::reading); });
            EXPECT_TRUE(Await([this] { return m_controller->CountJobs() == 2; }));
        }
    });
    auto batch = Own().Begin(Sweep(60));
    batch->Await(59);
    EXPECT_EQ(EndOf(reader), "");
    const std::vector<std::string> seen = m_fake->SeenRequests();
    ASSERT_EQ(seen.size(), 61U);
    EXPECT_EQ(seen[6], "20:30/12");
}

TEST_F(ControllerQueue, Batch_GivesEachAnswerBeforeTheNextCame) {
    StartAndAwait();
    m_fake->SetGate(false);
    auto batch = Own().Begin(Sweep(100));
    for (std::uint8_t i = 0; i < 100; ++i) {
        ASSERT_TRUE(AwaitSeen(fmt::format("20:04/{:02x}", i)));
        m_fake->LetPass();
        ASSERT_THAT(batch->Await(i).data, ElementsAre(0x04, i));
    }
}

TEST_F(ControllerQueue, Batch_GivenUp_SendsNoMoreOfIt) {
    StartAndAwait();
    Occupy();
    auto first = Own().Begin(Sweep(10));
    auto second = Own().Begin({{0x30, 0x02}});
    first.reset();
    OpenGate();
    second->Await(0);
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:30/01", "20:30/02"));
}

TEST_F(ControllerQueue, Batch_GivenUpWhileUnderWay_EndsWithTheRequest) {
    StartAndAwait();
    m_fake->SetGate(false);
    auto batch = Own().Begin(Sweep(10));
    ASSERT_TRUE(AwaitSeen("20:04/00"));
    batch.reset();  // does not wait: the gate is closed
    OpenGate();
    Own().Execute({0x30, 0x02}, Purpose_e::sweeping);
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:04/00", "20:30/02"));
}

TEST_F(ControllerQueue, EmptyBatch_AsksNobody) {
    StartAndAwait();
    Own().Begin({}).reset();
    Own().Execute({0x30, 0x02}, Purpose_e::reading);
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:30/02"));
}

TEST_F(ControllerQueue, Patience_EndsForARequest_NotForABatch) {
    m_timing.queuePatience = milliseconds(20);
    StartAndAwait();
    m_fake->SetGate(false);
    auto occupation = Own().Begin(Sweep(1));
    ASSERT_TRUE(AwaitSeen("20:04/00"));
    auto batch = Own().Begin(Sweep(2));
    EXPECT_EQ(ErrorOfReading(Own()),
              "Exception: io/1 (10.0.0.11:623): the controller is busy: Get Sensor Reading waited 20 ms for its turn");
    OpenGate();
    EXPECT_THAT(batch->Await(1).data, ElementsAre(0x04, 0x01));
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:04/00", "20:04/00", "20:04/01"));
}

TEST_F(ControllerQueue, ManyCallers_EachGetsItsOwnAnswer) {
    Start();
    std::vector<std::future<std::string>> callers;
    for (std::uint8_t number = 0; number < 8; ++number) {
        callers.push_back(Elsewhere([this, number] {
            for (int i = 0; i < 200; ++i) {
                bmc::ipmi::Link& link = (i + number) % 3 == 0 ? Bridged() : Own();
                if (i % 10 == 0) {
                    auto batch = link.Begin({{0x2c, number}, {0x2e, number}, {0x30, number}});
                    if (batch->Await(1).data != std::vector<std::uint8_t>{0x2e, number}) {
                        throw qstd::Exception("another one's answer");
                    }
                } else if (link.Execute({0x30, number}, Purpose_e::reading).data !=
                           std::vector<std::uint8_t>{0x30, number}) {
                    throw qstd::Exception("another one's answer");
                }
            }
        }));
    }
    for (auto& caller : callers) {
        EXPECT_EQ(EndOf(caller), "");
    }
}

TEST_F(ControllerQueue, IdleSession_IsKeptAlive) {
    m_timing.keepAlive = milliseconds(2);
    StartAndAwait();
    EXPECT_TRUE(AwaitSeen("20:06/01", 3));
    EXPECT_EQ(m_fake->Openings(), 1);
}

}  // namespace
