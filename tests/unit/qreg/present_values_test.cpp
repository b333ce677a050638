#include "tests/unit/qreg/subscription_fixture.h"

namespace {

using qreg::ErrorCode_e;
using std::chrono::seconds;

/// Subscribers who want the present values too. At the begin boards/a is 0.5 and boards/b has no value.
class PresentValues : public test::SubscriptionFixture {
protected:
    std::string SubscribeToPresent(std::vector<std::string> patterns = {}, std::size_t queueLimit = 0) {
        qreg::Filter filter;
        filter.patterns = std::move(patterns);
        filter.queueLimit = queueLimit;
        filter.wantsPresent = true;
        return m_subscriptions->Subscribe(filter).id;
    }

    /// Polls until there is nothing more, and receives everything. @return the batches, each in brackets.
    std::string Drain(const std::string& id, std::uint64_t received = 0) {
        std::string shown;
        for (bool more = true; more;) {
            const auto batch = Poll(id, received);
            more = batch.more;
            m_lost = batch.lost;
            shown += "[" + Shown(batch) + "]";
            if (!batch.events.empty()) {
                received = batch.events.back()->sequence;
            }
        }
        Poll(id, received);
        return shown;
    }

    std::uint64_t m_lost = 0;
};

TEST_F(PresentValues, ComeFirst_WithAndWithoutAValue) {
    const std::string id = SubscribeToPresent();
    const auto batch = Poll(id);
    EXPECT_EQ(Shown(batch), "1 boards/a 0.5!, 2 boards/b !");
    EXPECT_EQ(batch.events[1]->value, qnode::Value());
    EXPECT_EQ(batch.events[0]->time, m_clock.SystemNow());
    EXPECT_FALSE(batch.more);
    EXPECT_EQ(Shown(Poll(id, 2)), "") << "once";
}

TEST_F(PresentValues, AreThoseThatTheFilterTakesIn_AndReadable) {
    test::AddValue<int>(m_boards, "hidden", 1, qreg::RegNode::c_writable);
    test::AddValue<int>(m_boards, "count", 7);
    EXPECT_EQ(Shown(Poll(SubscribeToPresent({"boards/b"}))), "1 boards/b !");
    EXPECT_EQ(Shown(Poll(SubscribeToPresent({"none"}))), "");
    EXPECT_EQ(Shown(Poll(SubscribeToPresent())), "1 boards/a 0.5!, 2 boards/b !, 3 boards/count 7!");
}

TEST_F(PresentValues, NodeThatRaises_SpoilsNoOther) {
    m_first->onGet = [] { throw qstd::Exception("gone"); };
    m_second->Put(2.5);
    EXPECT_EQ(Shown(Poll(SubscribeToPresent())), "1 boards/a !, 2 boards/b 2.5!");
}

TEST_F(PresentValues, OnlyThoseWhoWantThem_GetThem) {
    EXPECT_EQ(Shown(Poll(Subscribe())), "");
}

TEST_F(PresentValues, WhatIsEmittedMeanwhile_ComesAfterThem) {
    const std::string id = SubscribeToPresent();
    EmitRange(1, 1);
    m_first->onGet = [this] { Emit(m_second, 2); };
    EXPECT_EQ(Shown(Poll(id)), "1 boards/a 0.5!, 2 boards/b !, 3 boards/a 1, 4 boards/b 2");
}

TEST_F(PresentValues, AreReadAsTheSubscriberPolls) {
    int reads = 0;
    m_first->onGet = [&reads] { ++reads; };
    const std::string id = SubscribeToPresent();
    EXPECT_EQ(reads, 0);
    EXPECT_EQ(Shown(Poll(id, 0, 1)), "1 boards/a 0.5!");
    m_second->Put(2.5);
    EXPECT_EQ(Shown(Poll(id, 0, 1)), "1 boards/a 0.5!") << "again: it was not received";
    EXPECT_EQ(Shown(Poll(id, 1, 1)), "2 boards/b 2.5!");
    EXPECT_EQ(reads, 1);
}

TEST_F(PresentValues, NeverMoreAtATimeThanTheQueueHolds) {
    for (int i = 0; i < 5; ++i) {
        test::AddValue<int>(m_boards, std::to_string(i), i);
    }
    const std::string id = SubscribeToPresent({}, 3);
    EmitRange(1, 1);
    EXPECT_EQ(Drain(id),
              "[1 boards/a 0.5!, 2 boards/b !, 3 boards/0 0!][4 boards/1 1!, 5 boards/2 2!, 6 boards/3 3!]"
              "[7 boards/4 4!, 8 boards/a 1]");
}

TEST_F(PresentValues, ComeOnceMoreAfterALoss) {
    const std::string id = SubscribeToPresent({"boards/a"}, 2);
    EXPECT_EQ(Drain(id), "[1 boards/a 0.5!]");
    EmitRange(1, 3);
    m_first->Put(3);
    EXPECT_EQ(Drain(id, 1), "[3 boards/a 3!, 4 boards/a 2, 5 boards/a 3]");
    EXPECT_EQ(m_lost, 1U);
    EmitRange(4, 4);
    EXPECT_EQ(Drain(id, 5), "[6 boards/a 4]") << "not a second time for the same loss";
}

TEST_F(PresentValues, LossWhileTheyAreRead_BringsThemOnceMore_AfterWhatWaits) {
    const std::string id = SubscribeToPresent({"boards/a"}, 2);
    int reads = 0;
    m_first->onGet = [this, &reads] {
        if (++reads == 1) {
            EmitRange(1, 3);
        }
    };
    EXPECT_EQ(Drain(id), "[2 boards/a 0.5!, 3 boards/a 2, 4 boards/a 3][5 boards/a 0.5!]");
    EXPECT_EQ(m_lost, 1U);
}

TEST_F(PresentValues, OneWhoAlwaysLoses_GetsNotificationsToo) {
    const std::string id = SubscribeToPresent({"boards/a"}, 2);
    m_first->onGet = [this] { EmitRange(1, 5); };
    std::uint64_t received = 0;
    int presents = 0;
    int others = 0;
    for (int i = 0; i < 20; ++i) {
        const auto batch = Poll(id, received);
        for (const auto& event : batch.events) {
            ++(event->type == qreg::c_presentType ? presents : others);
            received = event->sequence;
        }
        EXPECT_EQ(received, static_cast<std::uint64_t>(presents + others) + batch.lost) << "every number is accounted";
    }
    EXPECT_GE(presents, 10);
    EXPECT_GE(others, 20);
}

TEST_F(PresentValues, ComeOnceMoreAfterItWasDormant) {
    const std::string id = SubscribeToPresent({"boards/a"});
    EXPECT_EQ(Drain(id), "[1 boards/a 0.5!]");
    m_clock.Advance(seconds(60));
    EXPECT_EQ(Drain(id, 1), "[2 boards/a 0.5!]");
    EXPECT_EQ(m_lost, 0U);
    m_clock.Advance(seconds(60));
    EmitRange(1, 4);
    EXPECT_EQ(Drain(id, 2), "[7 boards/a 0.5!]");
    EXPECT_EQ(m_lost, 4U);
}

TEST_F(PresentValues, DormantWhileTheyWereDelivered_BeginAnew) {
    const std::string id = SubscribeToPresent();
    EXPECT_EQ(Shown(Poll(id, 0, 1)), "1 boards/a 0.5!");
    m_clock.Advance(seconds(60));
    const auto batch = Poll(id, 1);
    EXPECT_EQ(Shown(batch), "2 boards/a 0.5!, 3 boards/b !");
    EXPECT_EQ(batch.lost, 0U);
}

TEST_F(PresentValues, NewerPoll_TakesOverWhatAnOlderOneHasRead) {
    const std::string id = SubscribeToPresent();
    std::promise<void> isReading;
    std::promise<void> mayGoOn;
    m_first->onGet = [&] {
        isReading.set_value();
        mayGoOn.get_future().wait();
    };
    auto older = PollAside(id);
    isReading.get_future().wait();
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Shown(Poll(id)), "") << "the values are being read, and this one does not wait";
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
    mayGoOn.set_value();
    EXPECT_EQ(Shown(older.get()), "") << "ended by the newer one";
    EXPECT_EQ(Shown(Poll(id)), "1 boards/a 0.5!, 2 boards/b !");
}

TEST_F(PresentValues, EmissionDoesNotWaitForASlowNode) {
    const std::string id = SubscribeToPresent({"boards/a"});
    std::promise<void> isReading;
    std::promise<void> mayGoOn;
    m_first->onGet = [&] {
        isReading.set_value();
        mayGoOn.get_future().wait();
    };
    auto poll = PollAside(id);
    isReading.get_future().wait();
    EmitRange(1, 2);
    mayGoOn.set_value();
    EXPECT_EQ(Shown(poll.get()), "1 boards/a 0.5!, 2 boards/a 1, 3 boards/a 2");
}

}  // namespace
