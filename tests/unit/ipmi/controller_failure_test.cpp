// Who is dead, and who pays for it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "controller_fixture.h"

namespace {

using bmc::ipmi::Purpose_e;
using std::chrono::milliseconds;
using test::Elsewhere;
using test::EndOf;
using test::ErrorOf;
using test::FakeController;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* c_answers = "Controller 10.0.0.11:623 answers: session with cipher suite 17 (boards io/1, io/3)";
constexpr const char* c_since = "[0-9]+/[0-9]+/[0-9]+ [0-9]+:[0-9]+:[0-9]+\\.[0-9]+";

class ControllerFailure : public test::ControllerOfTwo {
protected:
    /// No probe comes by itself.
    void ForbidProbes() {
        m_timing.leastBackOff = std::chrono::hours(1);
        m_timing.mostBackOff = std::chrono::hours(1);
    }
};

TEST_F(ControllerFailure, NeverAsked_IsUnknown_ThenAnswers) {
    m_fake->SetGate(false);
    m_options.timeout = test::c_patience;
    Start();
    EXPECT_EQ(Own().IsAnswering(), std::nullopt);
    m_fake->SetGate(true);
    EXPECT_TRUE(Await([this] { return Own().IsAnswering() == true; }));
    EXPECT_EQ(Bridged().IsAnswering(), std::nullopt);
    EXPECT_EQ(Own().GetReturns(), 0U);
    EXPECT_THAT(Log(), ElementsAre(c_answers));
}

TEST_F(ControllerFailure, DeadFromTheStart_IsLoggedOnce_AndRequestsFail) {
    m_fake->SetDead(true);
    Start();
    EXPECT_THAT(ErrorOfReading(Own()),
                MatchesRegex(std::string("NoAnswer: io/1 \\(10.0.0.11:623\\): no answer since ") + c_since +
                             ": no answer to the opening"));
    EXPECT_THAT(ErrorOfReading(Bridged()),
                MatchesRegex(std::string("NoAnswer: io/3 \\(10.0.0.11:623, IPMB 0x86\\): the controller: no answer "
                                         "since ") +
                             c_since + ": no answer to the opening"));
    EXPECT_TRUE(Await([this] { return m_fake->Openings() >= 4; }));
    EXPECT_THAT(Log(),
                ElementsAre("warning: Controller 10.0.0.11:623 does not answer: no answer to the opening (boards "
                            "io/1, io/3)"));
}

TEST_F(ControllerFailure, DeadController_CostsTheFirstCallerOnly_UntilAProbeFindsItAgain) {
    StartAndAwait();
    m_fake->SetDead(true);
    EXPECT_THAT(ErrorOfReading(Own()),
                StartsWith("NoAnswer(sent): io/1 (10.0.0.11:623): Get Sensor Reading: no answer"));
    m_fake->ForgetSeen();
    EXPECT_THAT(ErrorOfReading(Own()), StartsWith("NoAnswer: io/1 (10.0.0.11:623): no answer since "));
    EXPECT_THAT(ErrorOfWriting(Bridged()), StartsWith("NoAnswer: io/3 "));
    EXPECT_THAT(ErrorOf([this] { Own().Begin({Reading()})->Await(0); }), StartsWith("NoAnswer: io/1 "));
    EXPECT_EQ(Own().IsAnswering(), false);
    EXPECT_EQ(Bridged().IsAnswering(), false);
    EXPECT_THAT(m_fake->SeenRequests(), IsEmpty());

    m_fake->SetDead(false);
    EXPECT_TRUE(Await([this] { return Own().IsAnswering() == true; }));
    EXPECT_EQ(ErrorOfReading(Own()), "");
    EXPECT_EQ(Own().GetReturns(), 1U);
    EXPECT_THAT(Log(),
                ElementsAre(c_answers, HasSubstr("warning: Controller 10.0.0.11:623 does not answer: "),
                            MatchesRegex("Controller 10.0.0.11:623 answers again after [0-9.]+ s \\(boards io/1, "
                                         "io/3\\)")));
}

TEST_F(ControllerFailure, DeadController_FailsTheRestOfABatchAndWhoeverWaits) {
    ForbidProbes();
    StartAndAwait();
    m_fake->SetDead(true);
    auto batch = Own().Begin(std::vector<bmc::ipmi::Request>(60, Reading()));
    ASSERT_TRUE(AwaitSeen("20:04/2d"));
    auto other = Elsewhere([this] { Bridged().Execute({0x04, 0x20}, Purpose_e::sweeping); });
    EXPECT_THAT(ErrorOf([&] { batch->Await(59); }), StartsWith("NoAnswer: io/1 (10.0.0.11:623): no answer since "));
    EXPECT_THAT(ErrorOf([&] { batch->Await(0); }), StartsWith("NoAnswer(sent): io/1 (10.0.0.11:623): Get Sensor"));
    EXPECT_THAT(EndOf(other), StartsWith("NoAnswer: io/3 (10.0.0.11:623, IPMB 0x86): the controller: no answer since"));
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:04/2d"));
}

TEST_F(ControllerFailure, DroppedSession_CostsNobodyAnError) {
    StartAndAwait();
    for (int i = 0; i < 3; ++i) {
        m_fake->DropSession();
        EXPECT_EQ(ErrorOfReading(Own()), "");
        m_fake->DropSession();
        EXPECT_EQ(ErrorOf([this] {
                      auto batch = Bridged().Begin({Reading(), Reading()});
                      batch->Await(0);
                      batch->Await(1);
                  }),
                  "");
    }
    EXPECT_THAT(Log(), ElementsAre(c_answers));
    EXPECT_EQ(Own().GetReturns(), 0U);
}

TEST_F(ControllerFailure, NoRetries_ADroppedSessionCostsNoErrorEither) {
    m_options.retries = 0;
    StartAndAwait();
    m_fake->DropSession();
    EXPECT_EQ(ErrorOfReading(Own()), "");
    m_fake->SetDead(true);
    EXPECT_THAT(ErrorOfReading(Own()), StartsWith("NoAnswer(sent): "));
}

TEST_F(ControllerFailure, WrongAnswers_AreAnErrorWithTheirText_NotASilence) {
    StartAndAwait();
    m_fake->BreakAnswers(2);
    EXPECT_EQ(ErrorOfReading(Own()),
              "Exception: io/1 (10.0.0.11:623): Get Sensor Reading: the reply is of another session");
    EXPECT_EQ(ErrorOfReading(Own()), "");
    EXPECT_EQ(Own().IsAnswering(), true);
    EXPECT_THAT(Log(), ElementsAre(c_answers));
}

TEST_F(ControllerFailure, WriteWithoutAnswer_IsSentOnce_AndCanBeVerified) {
    StartAndAwait();
    m_fake->LoseAnswers(1);
    EXPECT_EQ(ErrorOfWriting(Own()), "NoAnswer(sent): io/1 (10.0.0.11:623): Set SEL Time: no answer in time");
    EXPECT_EQ(ErrorOf([this] { Own().Execute({0x0a, 0x48}, Purpose_e::verifying); }), "");
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:0a/49", "20:0a/48"));
    EXPECT_EQ(Own().IsAnswering(), true);
    EXPECT_THAT(Log(), ElementsAre(c_answers));
}

TEST_F(ControllerFailure, WriteWithAWrongAnswer_LeavesOpenWhetherItWasExecuted) {
    StartAndAwait();
    m_fake->BreakAnswers(1);
    EXPECT_THAT(ErrorOfWriting(Own()), StartsWith("NoAnswer(sent): io/1 (10.0.0.11:623): Set SEL Time: the reply is"));
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:0a/49"));
}

TEST_F(ControllerFailure, WriteToADeadController_IsSentOnce_AndMakesItSilent) {
    ForbidProbes();
    StartAndAwait();
    m_fake->SetDead(true);
    EXPECT_THAT(ErrorOfWriting(Own()), StartsWith("NoAnswer(sent): "));
    EXPECT_THAT(ErrorOfWriting(Own()), StartsWith("NoAnswer: "));
    EXPECT_THAT(m_fake->SeenRequests(), ElementsAre("20:0a/49"));
}

TEST_F(ControllerFailure, BoardThatNobodyAcknowledges_IsSilentAlone) {
    ForbidProbes();
    StartAndAwait();
    m_fake->SetCompletionCode(bmc::ipmi::c_noAcknowledge, 1);
    EXPECT_EQ(ErrorOfReading(Bridged()),
              "NoAnswer: io/3 (10.0.0.11:623, IPMB 0x86): Get Sensor Reading: 0x83 (nobody "
              "acknowledges that address on the bus)");
    EXPECT_THAT(ErrorOfReading(Bridged()), StartsWith("NoAnswer: io/3 (10.0.0.11:623, IPMB 0x86): no answer since "));
    EXPECT_EQ(ErrorOfReading(Own()), "");
    EXPECT_EQ(Bridged().IsAnswering(), false);
    EXPECT_EQ(Own().IsAnswering(), true);
    EXPECT_EQ(m_fake->Openings(), 1);
    EXPECT_THAT(Log(), ElementsAre(c_answers,
                                   "warning: Board io/3 (10.0.0.11:623, IPMB 0x86) does not answer: 0x83 "
                                   "(nobody acknowledges that address on the bus)"));
}

TEST_F(ControllerFailure, BoardThatTimesOut_IsSilentAlone_UntilAProbeFindsIt) {
    StartAndAwait();
    m_fake->SetBoardDead(c_boardAddress, true);
    EXPECT_THAT(ErrorOfReading(Bridged()), StartsWith("NoAnswer(sent): io/3 (10.0.0.11:623, IPMB 0x86): Get Sensor "
                                                      "Reading: no answer"));
    EXPECT_TRUE(AwaitSeen("86:06/01", 2));
    EXPECT_EQ(ErrorOfReading(Own()), "");
    EXPECT_EQ(Bridged().IsAnswering(), false);

    m_fake->SetBoardDead(c_boardAddress, false);
    EXPECT_TRUE(Await([this] { return Bridged().IsAnswering() == true; }));
    EXPECT_EQ(Bridged().GetReturns(), 1U);
    EXPECT_EQ(Own().GetReturns(), 0U);
    EXPECT_TRUE(Await([this] { return Log().size() == 3; })) << "a state is told after it has changed";
    EXPECT_THAT(Log(), ElementsAre(c_answers, HasSubstr("warning: Board io/3"),
                                   HasSubstr("Board io/3 (10.0.0.11:623, "
                                             "IPMB 0x86) answers again")));
}

TEST_F(ControllerFailure, SilentBoard_IsProbedWhileOthersAreSwept) {
    m_timing.leastBackOff = milliseconds(0);
    m_timing.mostBackOff = milliseconds(0);
    StartAndAwait();
    m_fake->SetCompletionCode(bmc::ipmi::c_noAcknowledge, 1'000'000'000);
    EXPECT_THAT(ErrorOfReading(Bridged()), StartsWith("NoAnswer: io/3 "));
    const std::vector<bmc::ipmi::Request> sweep(60, Reading());
    EXPECT_TRUE(Await([&] {
        m_fake->ForgetSeen();
        Own().Begin(sweep)->Await(sweep.size() - 1);
        std::vector<std::string> seen;
        for (const test::SeenExchange& each : m_fake->Seen()) {
            seen.push_back(each.what);
        }
        const auto first = std::find(seen.begin(), seen.end(), "20:04/2d");
        const auto last = std::find(seen.rbegin(), seen.rend(), "20:04/2d").base();
        return std::find(first, last, "86:06/01") != last;
    }));
}

TEST_F(ControllerFailure, ControllerThatDiesAfterItsBoard_IsFoundWithoutACaller) {
    StartAndAwait();
    m_fake->SetBoardDead(c_boardAddress, true);
    EXPECT_THAT(ErrorOfReading(Bridged()), StartsWith("NoAnswer(sent): "));
    m_fake->SetDead(true);
    EXPECT_TRUE(Await([this] { return Own().IsAnswering() == false; }));
}

TEST_F(ControllerFailure, DeadIdleController_IsFoundByTheKeepAlive) {
    m_timing.keepAlive = milliseconds(5);
    StartAndAwait();
    m_fake->SetDead(true);
    EXPECT_TRUE(AwaitLog(2));
    EXPECT_EQ(Own().IsAnswering(), false);
}

TEST_F(ControllerFailure, OneRequestThatIsNeverAnswered_LeavesTheOthersAndThePowerAlone) {
    std::promise<void> underWay;
    bool isTold = false;
    m_fake->SetHook([&](const std::string& what) {
        m_fake->SetMute(what == "20:04/77");
        if (what == "20:04/77" && !std::exchange(isTold, true)) {
            underWay.set_value();
        }
    });
    StartAndAwait();
    const auto batch = Own().Begin({Reading(), Reading(0x77), Reading()});
    EXPECT_EQ(ErrorOf([&] { batch->Await(0); }), "");
    underWay.get_future().wait();
    EXPECT_EQ(ErrorOf([&] { Own().Execute({bmc::ipmi::NetFn_e::chassis, 0x02, {0}}, Purpose_e::switching); }), "");
    EXPECT_THAT(ErrorOf([&] { batch->Await(1); }), HasSubstr("command 0x04/0x77: no answer in time"));
    EXPECT_EQ(ErrorOf([&] { batch->Await(2); }), "");
    EXPECT_EQ(Log().size(), 1U) << "the first answer of the controller";
    m_controller.reset();
}

TEST_F(ControllerFailure, RefusedAccount_IsToldWithItsReason_AndMayComeRight) {
    m_fake->SetOpening(FakeController::Opening_e::refuses);
    Start();
    EXPECT_THAT(ErrorOfReading(Own()), MatchesRegex(std::string("NoAnswer: io/1 \\(10.0.0.11:623\\): refused since ") +
                                                    c_since + ": wrong password"));
    EXPECT_THAT(
        Log(),
        ElementsAre("warning: Controller 10.0.0.11:623 refuses the session: wrong password (boards io/1, io/3)"));
    m_fake->SetOpening(FakeController::Opening_e::answers);
    EXPECT_TRUE(Await([this] { return Own().IsAnswering() == true; }));
}

TEST_F(ControllerFailure, RefusedAccount_IsNotAskedOftenEvenByManyCallers) {
    m_timing.mostBackOff = std::chrono::hours(1);
    m_fake->SetOpening(FakeController::Opening_e::refuses);
    Start();
    for (int i = 0; i < 100; ++i) {
        EXPECT_THAT(ErrorOfReading(Own()), HasSubstr("wrong password"));
    }
    EXPECT_LE(m_fake->Openings(), 2) << "once more soon, because it may have been a damaged packet";
}

TEST_F(ControllerFailure, HostThatCannotSend_IsToldWithItsReason) {
    m_fake->SetOpening(FakeController::Opening_e::fails);
    Start();
    EXPECT_THAT(ErrorOfReading(Own()), HasSubstr("not reachable since "));
    EXPECT_THAT(
        Log(),
        ElementsAre("warning: Controller 10.0.0.11:623 cannot be reached: no route to host (boards io/1, io/3)"));
}

TEST_F(ControllerFailure, TenThousandLostSessions_LeaveNothingBehind) {
    m_options.timeout = milliseconds(1);
    m_options.retries = 0;
    m_timing.leastBackOff = milliseconds(0);
    m_timing.mostBackOff = milliseconds(0);
    StartAndAwait();
    m_fake->SetHook([this](const std::string& what) {
        if (what != "20:06/01") {
            m_fake->BreakAnswers(1);
        }
    });
    auto other = Elsewhere([this] {
        while (m_fake->Openings() < 10'000) {
            ErrorOfReading(Bridged());
            Own().Begin({Reading(), Reading(), Reading()}).reset();
        }
    });
    while (m_fake->Openings() < 10'000) {
        ErrorOfReading(Own());
    }
    EXPECT_EQ(EndOf(other), "");
    EXPECT_LE(m_fake->OpenSessions(), 1);
    m_controller.reset();
    EXPECT_EQ(m_fake->OpenSessions(), 0);
}

}  // namespace
