#include "qreg/subscriptions.h"

#include "tests/support/cpu_time.h"
#include "tests/support/expect_text.h"
#include "tests/unit/qreg/subscription_fixture.h"

namespace {

using qnode::NotificationType;
using qreg::ErrorCode_e;

class Subscriptions : public test::SubscriptionFixture {};

TEST_F(Subscriptions, Event_TellsWhatWasEmitted) {
    const std::string id = Subscribe();
    Emit(m_first, 71.5, NotificationType::threshold);
    const auto batch = Poll(id);
    ASSERT_EQ(batch.events.size(), 1U);
    const qreg::Event& event = *batch.events[0];
    EXPECT_EQ(event.sequence, 1U);
    EXPECT_EQ(event.type, 1U);
    EXPECT_EQ(event.time, m_clock.SystemNow());
    EXPECT_EQ(event.path, "boards/a");
    EXPECT_EQ(event.value, qnode::Value(71.5));
    EXPECT_EQ(batch.lost, 0U);
    EXPECT_FALSE(batch.more);
}

TEST_F(Subscriptions, Values_AreNumbersAndTexts_AnythingElseIsEmpty) {
    const std::string id = Subscribe();
    const qnode::Node node(m_first);
    node.Emit(NotificationType::value, qstd::Any(7));
    node.Emit(NotificationType::value, qstd::Any(std::string("on")));
    node.Emit(NotificationType::value, qstd::Any(std::vector<int>{1}));
    node.Emit(NotificationType::value, qstd::Any());
    node.Emit(NotificationType::value, qstd::Any(std::string(65536, 'x')));
    const auto batch = Poll(id);
    ASSERT_EQ(batch.events.size(), 5U);
    EXPECT_EQ(batch.events[0]->value, qnode::Value(7));
    EXPECT_EQ(batch.events[1]->value, qnode::Value("on"));
    for (std::size_t i = 2; i < 5; ++i) {
        EXPECT_EQ(batch.events[i]->value, qnode::Value());
    }
}

TEST_F(Subscriptions, Ids_AreLongAndNeverTheSame) {
    const std::string one = Subscribe();
    const std::string other = Subscribe();
    EXPECT_EQ(one.size(), 32U);
    EXPECT_EQ(one.find_first_not_of("0123456789abcdef"), std::string::npos);
    EXPECT_NE(one, other);
    EXPECT_EQ(m_subscriptions->Count(), 2U);
}

TEST_F(Subscriptions, Patterns_ChooseThePaths) {
    const std::string one = Subscribe({"boards/b"});
    const std::string either = Subscribe({"boards/x", "*/a"});
    Emit(m_first, 1);
    Emit(m_second, 2);
    EXPECT_EQ(Shown(Poll(one)), "1 boards/b 2");
    EXPECT_EQ(Shown(Poll(either)), "1 boards/a 1");
}

TEST_F(Subscriptions, Types_AreChosenByBits) {
    qreg::Filter filter;
    filter.types = 2;
    const std::string threshold = m_subscriptions->Subscribe(filter).id;
    const std::string all = Subscribe();
    Emit(m_first, 1);
    Emit(m_first, 2, NotificationType::threshold);
    Emit(m_first, 3, static_cast<NotificationType>(33));
    EXPECT_EQ(Shown(Poll(threshold)), "1 boards/a 2");
    EXPECT_EQ(Shown(Poll(all)), "1 boards/a 1, 2 boards/a 2, 3 boards/a 3");
}

TEST_F(Subscriptions, OtherTree_IsNotHeard) {
    const std::string id = Subscribe();
    Emit(test::AddValue<double>(test::Container("other"), "a"), 1);
    EXPECT_EQ(Shown(Poll(id)), "");
}

TEST_F(Subscriptions, EventsComeAgain_UntilTheyWereReceived) {
    const std::string id = Subscribe();
    EmitRange(1, 3);
    EXPECT_EQ(Shown(Poll(id)), "1 boards/a 1, 2 boards/a 2, 3 boards/a 3");
    EXPECT_EQ(Shown(Poll(id)), "1 boards/a 1, 2 boards/a 2, 3 boards/a 3");
    EmitRange(4, 4);
    EXPECT_EQ(Shown(Poll(id, 2)), "3 boards/a 3, 4 boards/a 4");
    EXPECT_EQ(Shown(Poll(id, 4)), "");
    EXPECT_EQ(Shown(Poll(id, 0)), "") << "what was received does not come again";
}

TEST_F(Subscriptions, NumberBeyondTheLastOne_ReceivesAll) {
    const std::string id = Subscribe();
    EmitRange(1, 2);
    Poll(id);
    EXPECT_EQ(Shown(Poll(id, 99)), "");
    EmitRange(3, 3);
    EXPECT_EQ(Shown(Poll(id, 2)), "3 boards/a 3");
}

TEST_F(Subscriptions, Batch_IsAsLargeAsAsked_AndSaysThatThereIsMore) {
    const std::string id = Subscribe();
    EmitRange(1, 5);
    auto batch = Poll(id, 0, 2);
    EXPECT_EQ(Shown(batch), "1 boards/a 1, 2 boards/a 2");
    EXPECT_TRUE(batch.more);
    batch = Poll(id, 2, 3);
    EXPECT_EQ(Shown(batch), "3 boards/a 3, 4 boards/a 4, 5 boards/a 5");
    EXPECT_FALSE(batch.more);
    EXPECT_EQ(Shown(Poll(id, 2, 1)), "3 boards/a 3");
    EXPECT_TRUE(Poll(id, 2, 1).more);
}

TEST_F(Subscriptions, Batch_IsNeverLargerThanTheServerAllows) {
    qreg::SubscriptionLimits limits;
    limits.batch = 3;
    Restart(limits);
    const std::string id = Subscribe();
    EmitRange(1, 5);
    EXPECT_EQ(Poll(id, 0, 100).events.size(), 3U);
    EXPECT_EQ(Poll(id, 0).events.size(), 3U);
}

TEST_F(Subscriptions, OneTooMany_DropsTheOldestAndCountsIt) {
    const std::string id = Subscribe({}, 3);
    EmitRange(1, 3);
    EXPECT_EQ(Poll(id).lost, 0U);
    EXPECT_EQ(Shown(Poll(id, 3)), "");
    EmitRange(4, 8);
    const auto batch = Poll(id, 3);
    EXPECT_EQ(batch.lost, 2U);
    EXPECT_EQ(Shown(batch), "6 boards/a 6, 7 boards/a 7, 8 boards/a 8");
    EmitRange(9, 9);
    EXPECT_EQ(Poll(id, 8).lost, 2U) << "all of its life";
}

TEST_F(Subscriptions, EventsThatWereSent_AreNotDroppedForNewerOnes) {
    const std::string id = Subscribe({}, 2);
    EmitRange(1, 2);
    EXPECT_EQ(Shown(Poll(id)), "1 boards/a 1, 2 boards/a 2");
    EmitRange(3, 5);
    const auto batch = Poll(id);
    EXPECT_EQ(Shown(batch), "1 boards/a 1, 2 boards/a 2, 4 boards/a 4, 5 boards/a 5");
    EXPECT_EQ(batch.lost, 1U);
}

TEST_F(Subscriptions, Limits_AreGrantedAtMost) {
    qreg::SubscriptionLimits limits;
    limits.queue = 50;
    limits.defaultQueue = 20;
    limits.lease = std::chrono::seconds(100);
    limits.defaultLease = std::chrono::seconds(10);
    Restart(limits);
    qreg::Filter filter;
    auto lease = m_subscriptions->Subscribe(filter);
    EXPECT_EQ(lease.queueLimit, 20U);
    EXPECT_EQ(lease.lease, std::chrono::seconds(10));
    filter.queueLimit = 51;
    filter.lease = std::chrono::seconds(101);
    lease = m_subscriptions->Subscribe(filter);
    EXPECT_EQ(lease.queueLimit, 50U);
    EXPECT_EQ(lease.lease, std::chrono::seconds(100));
    filter.queueLimit = 1;
    filter.lease = std::chrono::seconds(1);
    lease = m_subscriptions->Subscribe(filter);
    EXPECT_EQ(lease.queueLimit, 1U);
    EXPECT_EQ(lease.lease, std::chrono::seconds(1));
}

TEST_F(Subscriptions, TooManyPatterns_AreRefused) {
    qreg::SubscriptionLimits limits;
    limits.patterns = 2;
    Restart(limits);
    Subscribe({"a", "b"});
    EXPECT_EQ(test::TextOf([&] { Subscribe({"a", "b", "c"}); }), "Too many patterns in a subscription: 3, at most 2");
    EXPECT_EQ(CodeOf([&] { Subscribe({"a", "b", "c"}); }), ErrorCode_e::limit);
    EXPECT_EQ(m_subscriptions->Count(), 1U);
}

TEST_F(Subscriptions, TooManyPatternsOfAllTogether_AreRefusedUntilOnesAreGivenBackOrDormant) {
    qreg::SubscriptionLimits limits;
    limits.allPatterns = 5;
    Restart(limits);
    const std::string first = Subscribe({"a", "b"});
    m_clock.Advance(std::chrono::seconds(30));
    const std::string second = Subscribe({"a", "b"});
    EXPECT_EQ(test::TextOf([&] { Subscribe({"a", "b"}); }), "Too many patterns in all subscriptions: 6, at most 5");
    EXPECT_EQ(CodeOf([&] { Subscribe({"a", "b"}); }), ErrorCode_e::limit);
    Subscribe({"a"});
    Subscribe();
    m_subscriptions->Unsubscribe(second);
    const std::string third = Subscribe({"a", "b"});
    m_clock.Advance(std::chrono::seconds(31));
    Subscribe({"a", "b"});
    EXPECT_EQ(CodeOf([&] { Poll(first); }), ErrorCode_e::no_such_subscription) << "it was dormant";
    EXPECT_EQ(CodeOf([&] { Poll(third); }), ErrorCode_e::ok);
}

/// The first emission at a path after the list of subscriptions changed compares it with all patterns.
TEST_F(Subscriptions, AllThePatternsThatClientsMayHave_DoNotHoldUpTheEmitter) {
    const std::string slow = "**/" + std::string(500, '*') + "q";
    std::size_t granted = 0;
    for (int i = 0; i < 256; ++i) {
        granted += CodeOf([&] { Subscribe(std::vector<std::string>(64, slow)); }) == ErrorCode_e::ok ? 1 : 0;
    }
    EXPECT_EQ(granted, 32U);
    const auto begin = test::ThreadCpuTime();
    Emit(m_first, 1);
    EXPECT_LT(test::ThreadCpuTime() - begin, std::chrono::milliseconds(50));
}

TEST_F(Subscriptions, UnknownId_IsNoSubscription) {
    EXPECT_EQ(test::TextOf([&] { Poll("x"); }),
              "No subscription \"x\": it never was, was ended, or was dormant for too long");
    EXPECT_EQ(CodeOf([&] { Poll("x"); }), ErrorCode_e::no_such_subscription);
    EXPECT_EQ(CodeOf([&] { m_subscriptions->Renew("x"); }), ErrorCode_e::no_such_subscription);
    EXPECT_EQ(CodeOf([&] { m_subscriptions->Unsubscribe("x"); }), ErrorCode_e::no_such_subscription);
}

TEST_F(Subscriptions, Unsubscribe_EndsIt) {
    const std::string id = Subscribe();
    const std::string other = Subscribe();
    m_subscriptions->Unsubscribe(id);
    EXPECT_EQ(CodeOf([&] { Poll(id); }), ErrorCode_e::no_such_subscription);
    EmitRange(1, 1);
    EXPECT_EQ(Shown(Poll(other)), "1 boards/a 1");
    EXPECT_EQ(m_subscriptions->Count(), 1U);
}

TEST_F(Subscriptions, NobodyListens_UnlessThereIsASubscription) {
    EXPECT_FALSE(IsHeard(m_first));
    const std::string one = Subscribe();
    const std::string other = Subscribe({"boards/b"});
    EXPECT_TRUE(IsHeard(m_first));
    m_subscriptions->Unsubscribe(one);
    EXPECT_TRUE(IsHeard(m_first));
    m_subscriptions->Unsubscribe(other);
    EXPECT_FALSE(IsHeard(m_first));
    Subscribe();
    m_subscriptions->Stop();
    EXPECT_FALSE(IsHeard(m_first));
}

TEST_F(Subscriptions, Poll_WaitsForTheFirstEvent) {
    const std::string id = Subscribe();
    for (int value = 1; value <= 20; ++value) {
        auto poll = PollAside(id, static_cast<std::uint64_t>(value) - 1);
        EmitRange(value, value);
        EXPECT_EQ(Shown(poll.get()), std::to_string(value) + " boards/a " + std::to_string(value));
    }
}

TEST_F(Subscriptions, Poll_WithoutAnyEvent_EndsEmpty) {
    const auto begin = std::chrono::steady_clock::now();
    const auto batch = Poll(Subscribe(), 0, 0, std::chrono::milliseconds(20));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(20));
    EXPECT_TRUE(batch.events.empty());
    EXPECT_FALSE(batch.more);
}

TEST_F(Subscriptions, Poll_WaitsNoLongerThanTheServerAllows) {
    qreg::SubscriptionLimits limits;
    limits.wait = std::chrono::milliseconds(10);
    Restart(limits);
    const auto begin = std::chrono::steady_clock::now();
    Poll(Subscribe(), 0, 0, std::chrono::hours(1));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST_F(Subscriptions, EventThatThePollDoesNotWant_DoesNotEndIt) {
    const std::string id = Subscribe({"boards/b"});
    auto poll = PollAside(id);
    EmitRange(1, 10);
    Emit(m_second, 11);
    EXPECT_EQ(Shown(poll.get()), "1 boards/b 11");
}

TEST_F(Subscriptions, NewerPoll_EndsTheOlderOne) {
    const std::string id = Subscribe();
    auto older = PollAside(id);
    // Whichever of two polls began later ends the other; so one of these ends the older one sooner or later.
    while (older.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) {
        Poll(id);
    }
    const auto batch = older.get();
    EXPECT_TRUE(batch.events.empty());
    EXPECT_FALSE(batch.more);
    EmitRange(1, 1);
    EXPECT_EQ(Shown(Poll(id)), "1 boards/a 1") << "nothing got lost in the older one";
}

TEST_F(Subscriptions, Unsubscribe_EndsAPollThatWaits) {
    const std::string id = Subscribe();
    auto poll = PollAside(id);
    m_subscriptions->Unsubscribe(id);
    EXPECT_EQ(CodeOf([&] { poll.get(); }), ErrorCode_e::no_such_subscription);
}

TEST_F(Subscriptions, Stop_EndsAllWaiting_AndEveryLaterCall) {
    const std::string one = Subscribe();
    const std::string other = Subscribe();
    auto first = PollAside(one);
    auto second = PollAside(other);
    m_subscriptions->Stop();
    m_subscriptions->Stop();
    EXPECT_EQ(CodeOf([&] { first.get(); }), ErrorCode_e::stopping);
    EXPECT_EQ(CodeOf([&] { second.get(); }), ErrorCode_e::stopping);
    EXPECT_EQ(CodeOf([&] { Poll(one); }), ErrorCode_e::stopping);
    EXPECT_EQ(CodeOf([&] { Subscribe(); }), ErrorCode_e::stopping);
    EXPECT_EQ(CodeOf([&] { m_subscriptions->Renew(one); }), ErrorCode_e::stopping);
    EXPECT_EQ(CodeOf([&] { m_subscriptions->Unsubscribe(one); }), ErrorCode_e::stopping);
    EmitRange(1, 3);
}

TEST_F(Subscriptions, OneThatDoesNotRead_TakesNothingFromTheOthers) {
    const std::string idle = Subscribe({}, 10);
    const std::string busy = Subscribe();
    std::uint64_t received = 0;
    for (int value = 1; value <= 1000; ++value) {
        EmitRange(value, value);
        const auto batch = Poll(busy, received);
        ASSERT_EQ(batch.events.size(), 1U);
        EXPECT_EQ(batch.lost, 0U);
        received = batch.events[0]->sequence;
    }
    const auto batch = Poll(idle);
    EXPECT_EQ(batch.lost, 990U);
    EXPECT_EQ(batch.events.size(), 10U);
    EXPECT_EQ(batch.events[0]->sequence, 991U);
}

}  // namespace
