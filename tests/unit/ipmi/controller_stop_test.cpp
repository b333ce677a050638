// What becomes of requests when the service stops, and when the controller is given up.

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

using bmc::ipmi::Purpose_e;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using test::Elsewhere;
using test::EndOf;
using test::ErrorOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr const char* c_brokenOff = "BrokenOff: Access to board io/1 was broken off: the service stops";
/// More than a machine that is busy with others needs, and far less than the timeout of the test's controllers.
constexpr std::chrono::seconds c_soon{30};

class ControllerStop : public test::ControllerOfTwo {
protected:
    ControllerStop() { m_options.timeout = test::c_patience; }

    std::string ErrorOfSwitching() {
        return ErrorOf([this] { Own().Execute({bmc::ipmi::NetFn_e::chassis, 0x02, {0}}, Purpose_e::switching); });
    }
    std::string ErrorOfVerifying() {
        return ErrorOf([this] { Own().Execute({bmc::ipmi::NetFn_e::chassis, 0x01}, Purpose_e::verifying); });
    }
    /// With an exchange under way that nobody answers.
    std::future<std::string> Occupy(Purpose_e purpose) {
        m_fake->SetMute(true);
        auto caller = Elsewhere([this, purpose] { Own().Execute({0x30, 0x01}, purpose); });
        EXPECT_TRUE(AwaitSeen("20:30/01"));
        return caller;
    }
};

TEST_F(ControllerStop, BeforeTheDeadline_AllIsExecuted) {
    StartAndAwait();
    LimitAccesses(test::c_patience);
    EXPECT_EQ(ErrorOfReading(Own()), "");
    EXPECT_EQ(ErrorOfWriting(Own()), "");
    auto other = Elsewhere([this] { Own().Execute({0x30, 0x01}, Purpose_e::writing); });
    EXPECT_EQ(EndOf(other), "");
}

TEST_F(ControllerStop, AfterTheDeadline_ReadsAreBrokenOff_AndAskNobody) {
    StartAndAwait();
    LimitAccesses(milliseconds(0));
    EXPECT_EQ(ErrorOfReading(Own()), c_brokenOff);
    EXPECT_EQ(ErrorOf([this] { Own().Begin({Reading()})->Await(0); }), c_brokenOff);
    auto writer = Elsewhere([this] { Own().Execute({0x30, 0x01}, Purpose_e::writing); });
    EXPECT_EQ(EndOf(writer), c_brokenOff);
    EXPECT_THAT(m_fake->Seen(), IsEmpty());
}

TEST_F(ControllerStop, AfterTheDeadline_TheStopperWritesAndVerifies_AnybodySwitches) {
    StartAndAwait();
    LimitAccesses(milliseconds(0));
    EXPECT_EQ(ErrorOfWriting(Own()), "");
    EXPECT_EQ(ErrorOfVerifying(), "");
    auto switching = Elsewhere([this] {
        Own().Execute({0x00, 0x02, {0}}, Purpose_e::switching);
        Own().Execute({0x00, 0x01}, Purpose_e::verifying);
    });
    EXPECT_EQ(EndOf(switching), "");
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:0a/49", "20:00/01", "20:00/02", "20:00/01"));
}

TEST_F(ControllerStop, AtTheDeadline_WhatIsUnderWayIsInterrupted) {
    for (const Purpose_e purpose : {Purpose_e::reading, Purpose_e::sweeping, Purpose_e::writing}) {
        m_fake->SetMute(false);
        StartAndAwait();
        auto caller = Occupy(purpose);
        const auto begin = steady_clock::now();
        LimitAccesses(milliseconds(10));
        EXPECT_EQ(EndOf(caller), c_brokenOff);
        EXPECT_LT(steady_clock::now() - begin, c_soon);
        m_controller.reset();
    }
}

TEST_F(ControllerStop, AtTheDeadline_WhatWaitsIsBrokenOff) {
    StartAndAwait();
    m_fake->SetGate(false);
    auto first = Elsewhere([this] { Own().Execute({0x30, 0x01}, Purpose_e::switching); });
    ASSERT_TRUE(AwaitSeen("20:30/01"));
    auto second = Elsewhere([this] { Own().Execute(Reading(), Purpose_e::reading); });
    ASSERT_TRUE(Await([this] { return m_controller->CountJobs() == 2; }));
    auto batch = Own().Begin({Reading(), Reading()});
    LimitAccesses(milliseconds(10));
    EXPECT_EQ(EndOf(second), c_brokenOff);
    EXPECT_EQ(ErrorOf([&] { batch->Await(1); }), c_brokenOff);
    EXPECT_EQ(ErrorOf([&] { batch->Await(0); }), c_brokenOff);
    m_fake->SetGate(true);
    EXPECT_EQ(EndOf(first), "");
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:30/01"));
}

TEST_F(ControllerStop, ForgottenBatch_IsNotInTheWayOfTheStopper) {
    for (const milliseconds from : {milliseconds(0), milliseconds(20)}) {
        StartAndAwait();
        m_fake->LoseAnswers(1);
        auto batch = Own().Begin({Reading(), Reading()});
        ASSERT_TRUE(AwaitSeen("20:04/2d"));
        LimitAccesses(from);
        EXPECT_EQ(ErrorOfWriting(Own()), "");
        EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:04/2d", "20:0a/49"));
        EXPECT_EQ(ErrorOf([&] { batch->Await(1); }), c_brokenOff);
        m_controller.reset();
    }
}

TEST_F(ControllerStop, OpeningUnderWay_IsNotInTheWayOfTheStopper) {
    m_fake->SetOpening(test::FakeController::Opening_e::silent);
    Start();
    ASSERT_TRUE(Await([this] { return m_fake->Openings() == 1; }));
    LimitAccesses(milliseconds(0));
    const auto begin = steady_clock::now();
    EXPECT_THAT(ErrorOfWriting(Own()), StartsWith("NoAnswer: io/1 (10.0.0.11:623): no answer since "));
    EXPECT_LT(steady_clock::now() - begin, c_soon);
}

TEST_F(ControllerStop, DeadController_CostsTheStopperOneShortTryOnly) {
    StartAndAwait();
    m_fake->SetDead(true);
    LimitAccesses(milliseconds(0));
    const auto begin = steady_clock::now();
    EXPECT_THAT(ErrorOfWriting(Own()), StartsWith("NoAnswer(sent): "));
    for (int i = 0; i < 12; ++i) {
        EXPECT_THAT(ErrorOfWriting(Own()), StartsWith("NoAnswer: "));
        EXPECT_THAT(ErrorOfVerifying(), StartsWith("NoAnswer: "));
        EXPECT_THAT(ErrorOfSwitching(), StartsWith("NoAnswer: "));
    }
    EXPECT_LT(steady_clock::now() - begin, c_soon);
    ASSERT_EQ(m_fake->Seen().size(), 1U);
    EXPECT_LE(m_fake->Seen()[0].allowed, milliseconds(700));
    EXPECT_EQ(m_fake->Openings(), 2);
}

TEST_F(ControllerStop, BoardBehindThatCameBack_IsWrittenToAlthoughItsProbeIsUnderWay) {
    m_options.timeout = milliseconds(300);
    m_timing.leastBackOff = m_timing.mostBackOff = milliseconds(100);
    StartAndAwait();
    m_fake->SetBoardDead(c_boardAddress, true);
    EXPECT_NE(ErrorOfReading(Bridged()), "");
    m_fake->ForgetSeen();
    ASSERT_TRUE(AwaitSeen("86:06/01"));
    m_fake->SetBoardDead(c_boardAddress, false);
    LimitAccesses(milliseconds(0));
    EXPECT_EQ(ErrorOfWriting(Bridged()), "");
}

TEST_F(ControllerStop, AfterTheDeadline_NobodyIsProbedOrKeptAlive) {
    m_timing = {milliseconds(0), milliseconds(0), milliseconds(0), test::c_patience};
    StartAndAwait();
    EXPECT_TRUE(AwaitSeen("20:06/01", 3));
    LimitAccesses(milliseconds(0));
    EXPECT_EQ(ErrorOfWriting(Own()), "");
    m_fake->ForgetSeen();
    // After each of these the thread has the time for what it wants to do by itself.
    for (int i = 0; i < 50; ++i) {
        EXPECT_EQ(ErrorOfWriting(Own()), "");
    }
    EXPECT_EQ(m_fake->Seen().size(), 50U);
}

TEST_F(ControllerStop, WhatIsLetThrough_IsGivenUpAfterThePatience) {
    StartAndAwait();
    m_fake->SetGate(false);
    auto occupation = Elsewhere([this] { ErrorOfSwitching(); });
    ASSERT_TRUE(AwaitSeen("20:00/02"));
    LimitAccesses(milliseconds(0), milliseconds(20));
    EXPECT_EQ(ErrorOfWriting(Own()), "NoAnswer: io/1 (10.0.0.11:623): no answer within 20 ms: the access was given up");
    m_fake->SetGate(true);
    EXPECT_EQ(EndOf(occupation), "");
}

TEST_F(ControllerStop, End_OpenSession_IsClosedWithAWord) {
    StartAndAwait();
    m_controller.reset();
    EXPECT_EQ(m_fake->Farewells(), 1);
}

TEST_F(ControllerStop, End_SilentController_IsNotAsked) {
    m_options.timeout = milliseconds(10);
    StartAndAwait();
    m_fake->SetDead(true);
    EXPECT_THAT(ErrorOfReading(Own()), StartsWith("NoAnswer"));
    m_controller.reset();
    EXPECT_EQ(m_fake->Farewells(), 0);
}

TEST_F(ControllerStop, End_WhileOpening_IsQuick) {
    m_fake->SetDead(true);
    Start();
    ASSERT_TRUE(Await([this] { return m_fake->Openings() == 1; }));
    const auto begin = steady_clock::now();
    m_controller.reset();
    EXPECT_LT(steady_clock::now() - begin, c_soon);
}

TEST_F(ControllerStop, End_RightAfterTheBegin_IsQuick) {
    for (int i = 0; i < 200; ++i) {
        Start();
        m_controller.reset();
    }
}

TEST_F(ControllerStop, End_FailsWhoeverWaits) {
    StartAndAwait();
    auto underWay = Occupy(Purpose_e::reading);
    auto batch = Own().Begin({Reading(), Reading()});
    auto waiting = Elsewhere([&] { batch->Await(1); });
    const auto begin = steady_clock::now();
    m_controller.reset();
    EXPECT_LT(steady_clock::now() - begin, c_soon);
    constexpr const char* c_closed = "Exception: io/1 (10.0.0.11:623): the connection was closed: the service stops";
    EXPECT_EQ(EndOf(underWay), c_closed);
    EXPECT_EQ(EndOf(waiting), c_closed);
    EXPECT_EQ(ErrorOf([&] { batch->Await(0); }), c_closed);  // a batch may outlive its controller
}

TEST_F(ControllerStop, End_AtAnyMoment_LeavesNoSession) {
    m_options.timeout = milliseconds(2);
    for (int i = 0; i < 100; ++i) {
        m_fake->SetDead(i % 5 == 4);
        Start();
        std::vector<std::unique_ptr<bmc::ipmi::Batch>> batches;
        for (int j = 0; j < i % 10; ++j) {
            batches.push_back((j % 2 == 0 ? Own() : Bridged()).Begin({Reading(), Reading(), Reading()}));
        }
        if (i % 3 == 0) {
            LimitAccesses(milliseconds(i % 2));
        }
        m_controller.reset();
        EXPECT_EQ(m_fake->OpenSessions(), 0);
    }
}

}  // namespace
