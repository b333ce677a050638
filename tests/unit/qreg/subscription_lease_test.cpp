#include "tests/support/expect_text.h"
#include "tests/unit/qreg/subscription_fixture.h"

namespace {

using qreg::ErrorCode_e;
using std::chrono::hours;
using std::chrono::seconds;

/// Leases of 60 seconds, the default.
class SubscriptionLease : public test::SubscriptionFixture {};

TEST_F(SubscriptionLease, EveryPoll_RenewsIt) {
    const std::string id = Subscribe();
    EmitRange(1, 1);
    for (int i = 0; i < 5; ++i) {
        m_clock.Advance(seconds(59));
        EXPECT_EQ(Shown(Poll(id)), "1 boards/a 1");
    }
}

TEST_F(SubscriptionLease, Renew_RenewsIt) {
    const std::string id = Subscribe();
    EmitRange(1, 1);
    m_clock.Advance(seconds(59));
    EXPECT_EQ(m_subscriptions->Renew(id), seconds(60));
    m_clock.Advance(seconds(59));
    EXPECT_EQ(Poll(id).lost, 0U);
}

TEST_F(SubscriptionLease, RunOut_GivesTheQueueUp_AndCountsWhatIsLost) {
    const std::string id = Subscribe();
    EmitRange(1, 3);
    m_clock.Advance(seconds(60));
    EmitRange(4, 5);
    auto batch = Poll(id, 0, 0, c_longWait);
    EXPECT_EQ(batch.lost, 5U) << "told at once, there is nothing to wait for";
    EXPECT_EQ(Shown(batch), "");
    EmitRange(6, 6);
    batch = Poll(id);
    EXPECT_EQ(batch.lost, 5U);
    EXPECT_EQ(Shown(batch), "6 boards/a 6");
}

TEST_F(SubscriptionLease, RunOut_NobodyEmitting_GivesTheQueueUpToo) {
    const std::string id = Subscribe();
    EmitRange(1, 3);
    m_clock.Advance(seconds(60));
    EXPECT_EQ(Poll(id).lost, 3U);
}

TEST_F(SubscriptionLease, RunOut_CountsOnlyWhatWouldHaveBeenDelivered) {
    const std::string id = Subscribe({"boards/b"});
    m_clock.Advance(seconds(60));
    EmitRange(1, 7);
    Emit(m_second, 8);
    EXPECT_EQ(Poll(id).lost, 1U);
}

TEST_F(SubscriptionLease, SentEventsOfALeaseThatRanOut_AreLostUnlessTheyWereReceived) {
    const std::string received = Subscribe();
    const std::string partly = Subscribe();
    const std::string notReceived = Subscribe();
    EmitRange(1, 4);
    for (const auto& id : {received, partly, notReceived}) {
        EXPECT_EQ(Poll(id).events.size(), 4U);
    }
    EmitRange(5, 5);
    m_clock.Advance(seconds(60));
    EmitRange(6, 6);
    EXPECT_EQ(Poll(received, 4).lost, 2U);
    EXPECT_EQ(Poll(partly, 3).lost, 3U);
    EXPECT_EQ(Poll(notReceived, 0).lost, 6U);
    EmitRange(7, 7);
    EXPECT_EQ(Shown(Poll(received, 4)), "7 boards/a 7");
    EXPECT_EQ(Poll(received, 4).lost, 2U) << "what was decided stays";
}

TEST_F(SubscriptionLease, Renew_MakesADormantSubscriptionActive) {
    const std::string id = Subscribe();
    EmitRange(1, 2);
    m_clock.Advance(seconds(61));
    m_subscriptions->Renew(id);
    EmitRange(3, 3);
    const auto batch = Poll(id);
    EXPECT_EQ(batch.lost, 2U);
    EXPECT_EQ(Shown(batch), "3 boards/a 3");
}

TEST_F(SubscriptionLease, DormantForADay_IsEnded) {
    const std::string id = Subscribe();
    m_clock.Advance(seconds(60) + hours(24) - std::chrono::milliseconds(1));
    EXPECT_EQ(m_subscriptions->Count(), 1U);
    m_clock.Advance(std::chrono::milliseconds(1));
    EXPECT_EQ(m_subscriptions->Count(), 0U);
    EXPECT_EQ(CodeOf([&] { Poll(id); }), ErrorCode_e::no_such_subscription);
}

TEST_F(SubscriptionLease, DormantForADay_EndsByAnEmissionToo) {
    Subscribe();
    m_clock.Advance(hours(25));
    // The emission has another thread end it, and then nobody listens any more.
    while (IsHeard(m_first)) {
        std::this_thread::yield();
    }
    EXPECT_EQ(m_subscriptions->Count(), 0U);
}

TEST_F(SubscriptionLease, NewOne_TakesThePlaceOfTheLongestDormant) {
    qreg::SubscriptionLimits limits;
    limits.subscriptions = 3;
    Restart(limits);
    const std::string first = Subscribe();
    m_clock.Advance(seconds(1));
    const std::string second = Subscribe();
    const std::string active = Subscribe();
    m_clock.Advance(seconds(30));
    Poll(active);
    EXPECT_EQ(test::TextOf([&] { Subscribe(); }), "Too many subscriptions: at most 3");
    EXPECT_EQ(CodeOf([&] { Subscribe(); }), ErrorCode_e::limit);
    m_clock.Advance(seconds(31));
    const std::string fourth = Subscribe();
    EXPECT_EQ(CodeOf([&] { Poll(first); }), ErrorCode_e::no_such_subscription);
    EXPECT_EQ(CodeOf([&] { Poll(second); }), ErrorCode_e::ok);
    EXPECT_EQ(CodeOf([&] { Poll(fourth); }), ErrorCode_e::ok);
    EXPECT_EQ(CodeOf([&] { Subscribe(); }), ErrorCode_e::limit) << "all three are active again";
}

TEST_F(SubscriptionLease, DoesNotRunOutWhileAPollIsUnderWay) {
    qreg::Filter filter;
    filter.patterns = {"boards/a"};
    filter.wantsPresent = true;
    const std::string id = m_subscriptions->Subscribe(filter).id;
    m_first->onGet = [this] {
        m_clock.Advance(seconds(61));
        EmitRange(1, 1);
        m_clock.Advance(seconds(61));
        EmitRange(2, 2);
    };
    const auto batch = Poll(id);
    EXPECT_EQ(Shown(batch), "1 boards/a 0.5!, 2 boards/a 1, 3 boards/a 2");
    EXPECT_EQ(batch.lost, 0U);
    m_clock.Advance(seconds(59));
    EXPECT_EQ(Poll(id).events.size(), 3U) << "the end of a poll renews the lease";
}

}  // namespace
