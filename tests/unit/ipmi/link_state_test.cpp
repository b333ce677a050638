// States and back-off, without a clock.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "bmc/ipmi/link_state.h"

namespace {

using bmc::ipmi::BackOff;
using bmc::ipmi::LinkState;
using bmc::ipmi::SilenceText;
using bmc::ipmi::SteadyTime;
using bmc::ipmi::TransportFailure_e;
using std::chrono::milliseconds;
using Change_e = LinkState::Change_e;
using State_e = LinkState::State_e;

const SteadyTime c_now{std::chrono::hours(1)};
const qstd::Time c_calendar(1795269787, 512000);

LinkState MakeState() {
    return LinkState(BackOff(milliseconds(500), milliseconds(30'000), "10.0.0.11:623"));
}

Change_e Fail(LinkState& state, TransportFailure_e failure = TransportFailure_e::noAnswer, SteadyTime now = c_now) {
    return state.Failed(failure, "no answer within 3000 ms", now, c_calendar);
}

/// The first waits, in milliseconds.
std::vector<std::int64_t> Waits(const std::string& seed, int count) {
    BackOff backOff(milliseconds(500), milliseconds(30'000), seed);
    std::vector<std::int64_t> waits;
    for (int i = 0; i < count; ++i) {
        waits.push_back(backOff.Next().count());
    }
    return waits;
}

TEST(BackOff, Next_DoublesFromLeastToMostGiveOrTakeTenPercent) {
    const std::vector<std::int64_t> plain{500, 1000, 2000, 4000, 8000, 16'000, 30'000, 30'000, 30'000};
    const std::vector<std::int64_t> waits = Waits("10.0.0.11:623", static_cast<int>(plain.size()));
    for (std::size_t i = 0; i < plain.size(); ++i) {
        EXPECT_GE(waits[i], plain[i] * 9 / 10) << i;
        EXPECT_LE(waits[i], plain[i] * 11 / 10) << i;
    }
}

TEST(BackOff, SameSeed_SameWaits_OtherSeed_OtherWaits) {
    EXPECT_EQ(Waits("10.0.0.11:623", 8), Waits("10.0.0.11:623", 8));
    EXPECT_NE(Waits("10.0.0.11:623", 8), Waits("10.0.0.12:623", 8));
}

TEST(LinkState, NotAskedYet_IsUnknown) {
    EXPECT_EQ(MakeState().Get(), State_e::unknown);
}

TEST(LinkState, FirstAnswer_IsFirst_TheNextIsNoChange) {
    LinkState state = MakeState();
    EXPECT_EQ(state.Answered(), Change_e::first);
    EXPECT_EQ(state.Answered(), Change_e::none);
    EXPECT_EQ(state.Get(), State_e::answering);
    EXPECT_EQ(state.GetReturns(), 0U);
}

TEST(LinkState, Failure_FallsSilentOnce_FromUnknownAndFromAnswering) {
    LinkState unknown = MakeState();
    EXPECT_EQ(Fail(unknown), Change_e::fellSilent);
    EXPECT_EQ(Fail(unknown), Change_e::none);

    LinkState answering = MakeState();
    answering.Answered();
    EXPECT_EQ(Fail(answering), Change_e::fellSilent);
    EXPECT_TRUE(answering.IsSilent());
}

TEST(LinkState, AnswerAfterSilence_IsAReturn) {
    LinkState state = MakeState();
    Fail(state);
    EXPECT_EQ(state.Answered(), Change_e::returned);
    Fail(state);
    EXPECT_EQ(state.Answered(), Change_e::returned);
    EXPECT_EQ(state.GetReturns(), 2U);
}

TEST(LinkState, Return_StartsTheBackOffAnew) {
    LinkState state = MakeState();
    for (int i = 0; i < 10; ++i) {
        Fail(state);
    }
    EXPECT_GT(state.NextProbe(), c_now + milliseconds(26'000));
    state.Answered();
    Fail(state);
    EXPECT_LE(state.NextProbe(), c_now + milliseconds(550));
}

TEST(LinkState, RefusedOnce_IsProbedSoon_RefusedAgain_AtTheLongestPeriod) {
    LinkState state = MakeState();
    Fail(state, TransportFailure_e::refused);
    EXPECT_LE(state.NextProbe(), c_now + milliseconds(550));
    Fail(state, TransportFailure_e::refused);
    EXPECT_GE(state.NextProbe(), c_now + milliseconds(27'000));
    EXPECT_LE(state.NextProbe(), c_now + milliseconds(33'000));
}

TEST(LinkState, Silence_KeepsItsBegin_AndTellsTheLastReason) {
    LinkState state = MakeState();
    state.Failed(TransportFailure_e::noAnswer, "no answer within 3000 ms", c_now, c_calendar);
    const std::string since = c_calendar.ToString();
    EXPECT_EQ(SilenceText(state.GetSilence()), "no answer since " + since + ": no answer within 3000 ms");

    state.Failed(TransportFailure_e::refused, "wrong password", c_now + milliseconds(500),
                 c_calendar + qstd::Time(1, 0));
    EXPECT_EQ(SilenceText(state.GetSilence()), "refused since " + since + ": wrong password");
    EXPECT_EQ(state.GetSilence().begin, c_now);

    state.Failed(TransportFailure_e::system, "no route to host", c_now, c_calendar);
    EXPECT_EQ(SilenceText(state.GetSilence()), "not reachable since " + since + ": no route to host");
    state.Failed(TransportFailure_e::broken, "the reply is cut short", c_now, c_calendar);
    EXPECT_EQ(SilenceText(state.GetSilence()), "wrong answers since " + since + ": the reply is cut short");
}

}  // namespace
