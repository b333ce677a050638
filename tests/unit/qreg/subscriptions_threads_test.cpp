#include <atomic>
#include <thread>

#include "tests/unit/qreg/subscription_fixture.h"

namespace {

using qreg::ErrorCode_e;

class SubscriptionsThreads : public test::SubscriptionFixture {};

/// What one subscriber saw of its subscription.
struct Seen {
    std::uint64_t events = 0;
    std::uint64_t lost = 0;
    std::uint64_t last = 0;
    bool isInOrder = true;

    void Take(const qreg::Batch& batch) {
        for (const auto& event : batch.events) {
            isInOrder = isInOrder && event->sequence > last;
            last = event->sequence;
            ++events;
        }
        lost = batch.lost;
    }
};

TEST_F(SubscriptionsThreads, EveryEventIsDeliveredOrCounted) {
    constexpr int c_emitters = 3;
    constexpr std::uint64_t c_each = 2000;
    constexpr std::size_t c_subscribers = 4;
    std::vector<std::string> ids;
    for (std::size_t i = 0; i < c_subscribers; ++i) {
        ids.push_back(Subscribe({}, i == 0 ? 5 : 10000));
    }
    std::atomic<int> emitting{c_emitters};
    std::vector<Seen> seen(c_subscribers);
    std::vector<std::thread> threads;
    for (int i = 0; i < c_emitters; ++i) {
        threads.emplace_back([&, i] {
            for (std::uint64_t value = 0; value < c_each; ++value) {
                Emit(i % 2 == 0 ? m_first : m_second, static_cast<double>(value));
            }
            --emitting;
        });
    }
    for (std::size_t i = 0; i < c_subscribers; ++i) {
        threads.emplace_back([&, i] {
            bool isLast = false;
            while (!isLast) {
                isLast = emitting == 0;
                for (bool more = true; more;) {
                    const auto batch = Poll(ids[i], seen[i].last, 50, std::chrono::milliseconds(1));
                    seen[i].Take(batch);
                    more = batch.more;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    for (std::size_t i = 0; i < c_subscribers; ++i) {
        EXPECT_TRUE(seen[i].isInOrder);
        EXPECT_EQ(seen[i].events + seen[i].lost, c_emitters * c_each);
        EXPECT_EQ(i == 0 || seen[i].lost == 0, true) << "subscriber " << i << " lost " << seen[i].lost;
    }
}

TEST_F(SubscriptionsThreads, SubscribersComeAndGo_WhileOthersEmit) {
    std::atomic<bool> isOver{false};
    std::vector<std::thread> emitters;
    for (const auto& node : {m_first, m_second}) {
        emitters.emplace_back([&, node] {
            while (!isOver) {
                Emit(node, 1);
                std::this_thread::yield();
            }
        });
    }
    std::vector<std::thread> subscribers;
    for (int i = 0; i < 3; ++i) {
        subscribers.emplace_back([&, i] {
            for (int round = 0; round < 50; ++round) {
                qreg::Filter filter;
                filter.patterns = {i == 0 ? "**/a" : "boards"};
                filter.wantsPresent = i != 1;
                filter.queueLimit = 3;
                const std::string id = m_subscriptions->Subscribe(filter).id;
                Seen seen;
                while (seen.events < 4) {
                    seen.Take(Poll(id, seen.last, 0, c_longWait));
                }
                EXPECT_TRUE(seen.isInOrder);
                EXPECT_GE(seen.events + seen.lost, seen.last) << "a loss may be told before the events around it";
                m_subscriptions->Unsubscribe(id);
            }
        });
    }
    for (auto& subscriber : subscribers) {
        subscriber.join();
    }
    isOver = true;
    for (auto& emitter : emitters) {
        emitter.join();
    }
    EXPECT_EQ(m_subscriptions->Count(), 0U);
}

TEST_F(SubscriptionsThreads, LeasesRunOutAndPlacesAreTaken_WhileOthersEmitAndPoll) {
    qreg::SubscriptionLimits limits;
    limits.subscriptions = 4;
    Restart(limits);
    std::atomic<bool> isOver{false};
    std::thread emitter([&] {
        for (int value = 0; !isOver; ++value) {
            Emit(m_first, value);
            m_clock.Advance(std::chrono::minutes(value % 100 == 0 ? 10 : 0));
            std::this_thread::yield();
        }
    });
    std::vector<std::thread> subscribers;
    std::atomic<int> batches{0};
    for (int i = 0; i < 6; ++i) {
        subscribers.emplace_back([&] {
            std::string id;
            Seen seen;
            for (int round = 0; round < 200; ++round) {
                try {
                    if (id.empty()) {
                        id = Subscribe({}, 10);
                        seen = {};
                    }
                    seen.Take(Poll(id, seen.last, 0, std::chrono::milliseconds(round % 2)));
                    EXPECT_TRUE(seen.isInOrder);
                    ++batches;
                } catch (const qreg::RegistryError& error) {
                    EXPECT_TRUE(error.GetCode() == ErrorCode_e::limit ||
                                error.GetCode() == ErrorCode_e::no_such_subscription)
                        << error.what();
                    id.clear();
                }
            }
        });
    }
    for (auto& subscriber : subscribers) {
        subscriber.join();
    }
    isOver = true;
    emitter.join();
    EXPECT_LE(m_subscriptions->Count(), 4U);
    EXPECT_GT(batches, 0);
}

TEST_F(SubscriptionsThreads, PollsOfOneSubscription_EndEachOtherAndLoseNothing) {
    const std::string id = Subscribe({}, 10000);
    std::atomic<std::uint64_t> received{0};
    std::atomic<bool> isOver{false};
    std::vector<std::thread> pollers;
    for (int i = 0; i < 3; ++i) {
        pollers.emplace_back([&] {
            while (!isOver) {
                const auto batch = Poll(id, received, 10, std::chrono::milliseconds(1));
                EXPECT_EQ(batch.lost, 0U);
                for (std::size_t k = 1; k < batch.events.size(); ++k) {
                    EXPECT_EQ(batch.events[k]->sequence, batch.events[k - 1]->sequence + 1);
                }
                const std::uint64_t last = batch.events.empty() ? 0 : batch.events.back()->sequence;
                for (std::uint64_t known = received; known < last && !received.compare_exchange_weak(known, last);) {
                }
            }
        });
    }
    EmitRange(1, 3000);
    while (received < 3000) {
        std::this_thread::yield();
    }
    isOver = true;
    for (auto& poller : pollers) {
        poller.join();
    }
    EXPECT_EQ(Shown(Poll(id, 3000)), "");
}

TEST_F(SubscriptionsThreads, Stop_WithPollsThatWaitAndOthersThatEmit) {
    for (int round = 0; round < 20; ++round) {
        Restart({});
        std::vector<std::future<qreg::Batch>> polls;
        for (int i = 0; i < 3; ++i) {
            polls.push_back(PollAside(Subscribe({"boards/b"})));
        }
        std::atomic<bool> isOver{false};
        std::thread emitter([&] {
            while (!isOver) {
                Emit(m_first, 1);
                std::this_thread::yield();
            }
        });
        m_subscriptions->Stop();
        for (auto& poll : polls) {
            EXPECT_EQ(CodeOf([&] { poll.get(); }), ErrorCode_e::stopping);
        }
        m_subscriptions.reset();
        isOver = true;
        emitter.join();
    }
}

}  // namespace
